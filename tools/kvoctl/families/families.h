// The families of subcommands. Each function adds one family to the command line.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

/// Headings of the help.
inline constexpr const char *kOneStationHeading = "One station, by family";
inline constexpr const char *kEmbeddedHeading = "Embedded stations";

void addStationCommands(CommandLine &commandLine);
void addPanelCommands(CommandLine &commandLine);
void addViewerCommands(CommandLine &commandLine);
void addAddressCommands(CommandLine &commandLine);
void addFocusCommands(CommandLine &commandLine);
void addInputCommands(CommandLine &commandLine);
void addUsbCommands(CommandLine &commandLine);
void addMetricCommands(CommandLine &commandLine);
void addAgentCommands(CommandLine &commandLine);
void addEventCommands(CommandLine &commandLine);
void addServiceCommands(CommandLine &commandLine);

}  // namespace kvoctl
