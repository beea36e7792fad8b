// omu_Exceptions.cpp: bad values and missing keys.
#include "omu_Exceptions.h"

#include <utility>

omu_ValueErrorException::omu_ValueErrorException(std::string text) : nex_Exception(std::move(text)) {}

omu_ValueErrorException::omu_ValueErrorException(cow_String const& text) : nex_Exception(text.Text()) {}

omu_ValueErrorException::omu_ValueErrorException(char const* text) : nex_Exception(text) {}

omu_ValueErrorException::~omu_ValueErrorException() = default;

omu_AccessErrorException::omu_AccessErrorException(cow_String const& key)
    : nex_Exception("No entry with key '" + std::string(key.Text()) + "'"), missingKey(key.View()) {}

omu_AccessErrorException::omu_AccessErrorException(cow_String const& key, cls_Uid const& access)
    : omu_AccessErrorException(key) {
  accessUid = access;
}

omu_AccessErrorException::~omu_AccessErrorException() = default;
