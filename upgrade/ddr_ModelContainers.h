// The containers in which models of old releases kept what extensions hold now.
#pragma once

/// One kind of contents of an old model: the field of its container, the command name of the extension that
/// takes the contents over, and the type id of the stored class. Frozen: what files of older releases hold.
struct ddr_ModelContainerKind {
  char const* container;
  char const* command;
  unsigned typeId;
};

/// The thirteen kinds; a row of nulls ends the table.
inline constexpr ddr_ModelContainerKind ddr_modelContainers[] = {
    {"matCont", "material", 0x238007d},
    {"sectCont", "section", 0x260003b},
    {"ampCont", "amplitude", 0x2440017},
    {"constraintCont", "constraint", 0x2d00012},
    {"bpCont", "profile", 0x2640014},
    {"amcCont", "adaptiveMeshControl", 0x2680010},
    {"loadCont", "load", 0x2880052},
    {"bcCont", "bc", 0x2980030},
    {"ipCont", "interactionProperty", 0x2a00062},
    {"intCont", "interaction", 0x2a00061},
    {"fCont", "field", 0x2ec002c},
    {"foCont", "fieldOutputRequest", 0x2400032},
    {"hoCont", "historyOutputRequest", 0x2400033},
    {nullptr, nullptr, 0},
};
