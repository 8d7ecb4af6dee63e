// An event as kvoctl shows it: a word, and fields by their names.
#pragma once

#include "kvoctl/command_line/command_line.h"
#include "kvoctl/output/property.h"

#include <string>
#include <vector>

namespace kvoctl {

/// Texts are the bytes that came.
struct Field {
    std::string key;
    Value value;
};

using Fields = std::vector<Field>;

struct Event {
    std::string word;  ///< empty where all events of a command are of one kind
    Fields fields{};
};

/// One line for people: 'new code=10 ip_address="10.0.0.5" ...'.
std::string textLine(const Event &event);
/// One line for programs: a JSON object.
std::string jsonLine(const Event &event);

/// One of the two above.
using LineFormat = std::string (*)(const Event &event);
LineFormat lineFormat(const CommandLine &commandLine);

/// Variables for a program, "KVO_USB_IP_ADDRESS=10.0.0.5", with the texts as they are. @p prefix begins all of them.
std::vector<std::string> environment(const std::string &prefix, const Event &event);

}  // namespace kvoctl
