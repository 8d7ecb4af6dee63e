// Orders: "ok" or not, nothing else to tell.
#include "tools/kvoctl/support/request_case.h"

#include <tuple>

namespace kvoctl_test {

namespace {

/// A request that only has something done, against all that can become of it.
std::vector<Case> orders(const std::string &name, const Arguments &arguments, const std::string &request)
{
    const std::string prefix = "kvoctl: " + arguments.front() + ": ";
    return {
        {name + "_is_done", arguments, {"ok"}, {request}, 0, "", R"({"done": true})"},
        {name + "_is_refused", arguments, {"failed"}, {request}, 4, "", kRefusalDocument, prefix + kRefusal},
        {name + "_gets_an_unknown_answer", arguments, {"hm"}, {request}, 4, "", kRefusalDocument, prefix + kRefusal},
        {name + "_finds_no_service", arguments, {}, {}, 3, "", kMissingDocument, prefix + kMissing},
    };
}

}  // namespace

std::vector<Case> orderRows()
{
    std::vector<Case> all;
    for (const auto &[name, arguments, request] : std::vector<std::tuple<std::string, Arguments, std::string>>{
             {"backlight_on", {"backlight", "on"}, "setBacklight=1"},
             {"backlight_off", {"backlight", "off"}, "setBacklight=0"},
             {"brightness_by_address", {"brightness", "10.0.0.5", "on"}, "setBrightness=1 0A000005"},
             {"brightness_by_hex_digits", {"brightness", "0a00000C", "off"}, "setBrightness=0 0A00000C"},
             {"debug_level_none", {"debug-level", "none"}, "setDebugLevel=DEBUG_LEVEL_NONE"},
             {"debug_level_1", {"debug-level", "1"}, "setDebugLevel=DEBUG_LEVEL_I"},
             {"debug_level_I", {"debug-level", "I"}, "setDebugLevel=DEBUG_LEVEL_I"},
             {"debug_level_2", {"debug-level", "2"}, "setDebugLevel=DEBUG_LEVEL_II"},
             {"debug_level_II", {"debug-level", "II"}, "setDebugLevel=DEBUG_LEVEL_II"},
         }) {
        const std::vector<Case> rows = orders(name, arguments, request);
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

}  // namespace kvoctl_test
