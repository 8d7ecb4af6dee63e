// An event as kvoctl shows it: a word and named fields.
#pragma once

#include "kvoctl/command_line/command_line.h"
#include "kvoctl/output/property.h"

#include <string>
#include <vector>

namespace kvoctl {

/// A text has the received bytes, unchanged.
struct Field {
    std::string key;
    Value value;
};

using Fields = std::vector<Field>;

struct Event {
    std::string word;  ///< empty if all events of a command are of one kind
    Fields fields{};
};

/// One line for users: 'new code=10 ip_address="10.0.0.5" ...'.
std::string textLine(const Event &event);
/// One line for programs: a JSON object.
std::string jsonLine(const Event &event);

/// textLine or jsonLine.
using LineFormat = std::string (*)(const Event &event);
/// jsonLine if --json was given, else textLine.
LineFormat lineFormat(const CommandLine &commandLine);

/// The event as environment variables, such as "KVO_USB_IP_ADDRESS=10.0.0.5". All names begin with @p prefix. Texts are
/// unchanged.
std::vector<std::string> environment(const std::string &prefix, const Event &event);

}  // namespace kvoctl
