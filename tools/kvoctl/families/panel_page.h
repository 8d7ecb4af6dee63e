// "kvoctl panel show": one station's whole state on one page.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

SetUp stationPage();

}  // namespace kvoctl
