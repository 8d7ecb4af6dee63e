// "kvoctl panel show": shows the whole state of a station.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

SetUp stationPage();

}  // namespace kvoctl
