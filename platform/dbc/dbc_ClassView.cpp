#include "dbc_ClassView.h"

#include <utility>

dbc_ClassView::dbc_ClassView(cow_String className, dbc_Table& viewed, int version, int first, int last)
    : name(std::move(className)), table(viewed), classVersion(version), firstGiven(first), lastGiven(last) {}

dbc_ClassView::~dbc_ClassView() = default;
