#include "ddr_OldVersions.h"

#include "dbc_DatabaseConverter.h"
#include "dbc_OldClassRegistrar.h"
#include "ddr_DdbConversions.h"
#include "ddr_ModelConversions.h"
#include "ddr_OldNames.h"

namespace {

constexpr cls_AttributeType integer = cls_AttributeType::Integer;
constexpr cls_AttributeType string = cls_AttributeType::String;
constexpr cls_AttributeType boolean = cls_AttributeType::Boolean;
constexpr cls_AttributeType object = cls_AttributeType::Object;
constexpr cls_CollectionType single = cls_CollectionType::Single;
constexpr cls_CollectionType list = cls_CollectionType::List;
constexpr cls_CollectionType stringMap = cls_CollectionType::StringMap;

constexpr unsigned plain = 1;
constexpr unsigned noBase = 1;

cls_ClassMetadata& createModel(cls_ClassRegistrar& registrar, int version) {
  return registrar.CreateClassMD("ddr_Model", ddr_oldModelTypeId, version, nullptr, noBase)
      .AddAttribute("modelName", string, plain, single);
}

cls_ClassMetadata& createDdb(cls_ClassRegistrar& registrar, int version, unsigned modelsTypeId) {
  return registrar.CreateClassMD("ddr_Ddb", ddr_oldDdbTypeId, version, nullptr, noBase)
      .AddAttribute("models", object, modelsTypeId, stringMap)
      .AddAttribute("results", object, ddr_oldMapTypeId, stringMap)
      .AddAttribute("userData", object, ddr_oldMapTypeId, stringMap);
}

/// The eight attributes that every layout ends with, but for lists added later.
cls_ClassMetadata& addDdbScalars(cls_ClassMetadata& metadata) {
  return metadata.AddAttribute("name", string, plain, single)
      .AddAttribute("modifyTime", integer, plain, single)
      .AddAttribute("creationTime", integer, plain, single)
      .AddAttribute("analysisVersion", string, plain, single)
      .AddAttribute("sequenceData", string, plain, single)
      .AddAttribute("onlyHasUserDefinedData", boolean, plain, single)
      .AddAttribute("description", string, plain, single)
      .AddAttribute("ddbVersion", integer, plain, single);
}

void defineDdbWithLists(cls_ClassRegistrar& registrar, int version) {
  addDdbScalars(createDdb(registrar, version, ddr_oldModelTypeId)
                    .AddAttribute("diagnosticData", object, ddr_oldDiagnosticListTypeId, list))
      .AddAttribute("productAddOns", object, ddr_oldAddOnListTypeId, list);
}

dbc_ClassConverter& modelStep(dbc_DatabaseConverter& converter, int step, int version) {
  return converter.GetConverter(step).Upgrade("ddr_Model", ddr_oldModelTypeId, version);
}

dbc_ClassConverter& ddbStep(dbc_DatabaseConverter& converter, int step, int version) {
  return converter.GetConverter(step).Upgrade("ddr_Ddb", ddr_oldDdbTypeId, version);
}

class ddr_Model_203 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override { createModel(registrar, 203); }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    modelStep(converter, 401, 203)
        .BindConversionFunction(ddr_convertModel203)
        .BindFinalizeFunction(ddr_finalizeModel203);
  }
};

class ddr_Model_401 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    createModel(registrar, 401).AddAttribute("instanceTable", object, ddr_oldExtensionTableTypeId, single);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    modelStep(converter, 857, 401).BindConversionFunction(ddr_convertModel401);
  }
};

class ddr_Model_857 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    createModel(registrar, 857).AddAttribute("instanceTable", object, ddr_oldExtensionTableTypeId, single);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    modelStep(converter, 874, 857).BindConversionFunction(ddr_convertModel857);
  }
};

class ddr_Ddb_203 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    addDdbScalars(createDdb(registrar, 203, ddr_oldMapTypeId));
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    // Kept on purpose: this step alone has the number of the version that it acts on. Steps run by number,
    // and this one before all others.
    ddbStep(converter, 203, 203).BindConversionFunction(ddr_convertDdb203);
  }
};

class ddr_Ddb_204 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    addDdbScalars(createDdb(registrar, 204, ddr_oldMapTypeId));
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    ddbStep(converter, 309, 204).BindConversionFunction(ddr_convertDdb204);
  }
};

class ddr_Ddb_309 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    addDdbScalars(createDdb(registrar, 309, ddr_oldMapTypeId)
                      .AddAttribute("diagnosticData", object, ddr_oldDiagnosticDataTypeId, single));
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    ddbStep(converter, 321, 309).BindConversionFunction(ddr_convertDdb309);
  }
};

class ddr_Ddb_321 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    defineDdbWithLists(registrar, 321);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override { ddbStep(converter, 818, 321); }
};

class ddr_Ddb_818 : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    defineDdbWithLists(registrar, 818);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override { ddbStep(converter, 848, 818); }
};

template <class Version>
void registerVersion(unsigned tag) {
  omi_Singleton<dbc_OldClassRegistrar>::Instance().Register(
      new dbc_OldClassRegistrar::Holder(static_cast<dbc_OldClassVersion*>(new Version)), tag);
}

} // namespace

void ddr_registerOldVersions(unsigned tag) {
  registerVersion<ddr_Model_203>(tag);
  registerVersion<ddr_Model_401>(tag);
  registerVersion<ddr_Model_857>(tag);
  registerVersion<ddr_Ddb_203>(tag);
  registerVersion<ddr_Ddb_204>(tag);
  registerVersion<ddr_Ddb_309>(tag);
  registerVersion<ddr_Ddb_321>(tag);
  registerVersion<ddr_Ddb_818>(tag);
}
