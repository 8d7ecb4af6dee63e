// "kvoctl panel show": shows the whole state of a station.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

CommandSetup panelShowCommand();

}  // namespace kvoctl
