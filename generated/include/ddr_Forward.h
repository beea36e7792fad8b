// The names of the module's record classes, for headers that need no more.
#pragma once

#include "os_Export.h"

class DDR_API ddr_Ddb;
class DDR_API ddr_Model;
class DDR_API ddr_Result;
class DDR_API ddr_UserData;
