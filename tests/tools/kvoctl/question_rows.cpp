// Questions: what is shown for each answer.
#include "request_case.h"

namespace kvoctl_test {

namespace {

// Address 10.0.0.5, attributes 1 to 3, a name of 7 bytes, seven extended attributes.
const std::string kLathe = "0A000005 00000001 00000002 FFFFFFFF 00000007 Lathe 1 0000000B 0000000C 0000000D 0000000E 0000000F "
                           "00000010 00000011 ";
const std::string kLatheText = R"(address    10.0.0.5
name       Lathe 1
attr1      1
attr2      2
attr3      4294967295
ext_attr1  11
ext_attr2  12
ext_attr3  13
ext_attr4  14
ext_attr5  15
ext_attr6  16
ext_attr7  17
)";
const std::string kLatheDocument = R"({"address": "10.0.0.5", "name": "Lathe 1", "attr1": 1, "attr2": 2, "attr3": 4294967295,
    "ext_attr1": 11, "ext_attr2": 12, "ext_attr3": 13, "ext_attr4": 14, "ext_attr5": 15, "ext_attr6": 16, "ext_attr7": 17})";

}  // namespace

std::vector<Case> questionRows()
{
    const std::string libraryVersion = "V%#.%#.#%.#%";
    const std::string longVersion(3000, 'v');
    return {
        {"ready_says_yes", {"ready"}, {"yes"}, {"isInitComplete"}, 0, "ready\n", R"({"ready": true})"},
        {"ready_says_no", {"ready"}, {"no"}, {"isInitComplete"}, 1, "not ready\n", R"({"ready": false})"},
        {"ready_is_refused", {"ready"}, {"failed"}, {"isInitComplete"}, 4, "", kRefusalDocument, "kvoctl: ready: " + kRefusal},
        {"ready_finds_no_service", {"ready"}, {}, {}, 3, "", kMissingDocument, "kvoctl: ready: " + kMissing},
        {"ready_waits_for_the_yes",
         {"ready", "--wait", "20"},
         {"no", "no", "yes"},
         {"isInitComplete", "isInitComplete", "isInitComplete"},
         0,
         "ready\n",
         R"({"ready": true})"},
        {"ready_does_not_wait_after_a_refusal",
         {"ready", "--wait", "20"},
         {"no", "failed", "yes"},
         {"isInitComplete", "isInitComplete"},
         4,
         "",
         kRefusalDocument,
         "kvoctl: ready: " + kRefusal},
        {"debug_level_is_none", {"debug-level"}, {"DEBUG_LEVEL_NONE"}, {"getDebugLevel"}, 0, "none\n", R"({"debug_level": 0})"},
        {"debug_level_is_1", {"debug-level"}, {"DEBUG_LEVEL_I"}, {"getDebugLevel"}, 0, "I\n", R"({"debug_level": 1})"},
        {"debug_level_is_2", {"debug-level"}, {"DEBUG_LEVEL_II"}, {"getDebugLevel"}, 0, "II\n", R"({"debug_level": 2})"},
        {"debug_level_is_refused",
         {"debug-level"},
         {"failed"},
         {"getDebugLevel"},
         4,
         "",
         kRefusalDocument,
         "kvoctl: debug-level: " + kRefusal},
        {"debug_level_finds_no_service", {"debug-level"}, {}, {}, 3, "", kMissingDocument, "kvoctl: debug-level: " + kMissing},
        {"version_shows_both",
         {"version"},
         {"V1.2"},
         {"getVersion"},
         0,
         "library  " + libraryVersion + "\nservice  V1.2\n",
         R"({"library": ")" + libraryVersion + R"(", "service": "V1.2"})"},
        {"version_may_be_long",
         {"version"},
         {longVersion},
         {"getVersion"},
         0,
         "library  " + libraryVersion + "\nservice  " + longVersion + "\n",
         R"({"library": ")" + libraryVersion + R"(", "service": ")" + longVersion + R"("})"},
        // The library tells no difference between a text that is too long for the buffer and a refusal.
        {"version_may_be_too_long",
         {"version"},
         {std::string(4096, 'v')},
         {"getVersion"},
         4,
         "",
         kRefusalDocument,
         "kvoctl: version: " + kRefusal},
        {"version_finds_no_service", {"version"}, {}, {}, 3, "", kMissingDocument, "kvoctl: version: " + kMissing},
        {"kill_daemon_takes_any_answer", {"kill-daemon"}, {"failed"}, {"killDaemon"}, 0, "", R"({"done": true})"},
        {"kill_daemon_finds_no_service", {"kill-daemon"}, {}, {}, 3, "", kMissingDocument, "kvoctl: kill-daemon: " + kMissing},
        {"station_by_address", {"station", "10.0.0.5"}, {kLathe}, {"getExDescByIP 0A000005"}, 0, kLatheText, kLatheDocument},
        {"station_by_name", {"station", "Lathe 1"}, {kLathe}, {"getExDescByName Lathe 1"}, 0, kLatheText, kLatheDocument},
        {"station_by_a_name_of_hex_digits",
         {"station", "0A000005"},
         {kLathe},
         {"getExDescByName 0A000005"},
         0,
         kLatheText,
         kLatheDocument},
        {"station_by_a_command_s_name",
         {"station", "version"},
         {kLathe},
         {"getExDescByName version"},
         0,
         kLatheText,
         kLatheDocument},
        {"station_by_a_name_in_brackets",
         {"station", "[a,b]"},
         {kLathe},
         {"getExDescByName [a,b]"},
         0,
         kLatheText,
         kLatheDocument},
        {"station_address_not_found",
         {"station", "10.0.0.9"},
         {"not found"},
         {"getExDescByIP 0A000009"},
         1,
         "",
         R"({"error": {"code": 0, "meaning": "no station has the address 10.0.0.9"}})",
         "kvoctl: station: no station has the address 10.0.0.9 (result 0)\n"},
        {"station_name_not_found",
         {"station", "10.0.0.300"},
         {"not found"},
         {"getExDescByName 10.0.0.300"},
         1,
         "",
         R"({"error": {"code": 0, "meaning": "no station is named \"10.0.0.300\""}})",
         "kvoctl: station: no station is named \"10.0.0.300\" (result 0)\n"},
        {"station_is_refused",
         {"station", "10.0.0.5"},
         {"failed"},
         {"getExDescByIP 0A000005"},
         4,
         "",
         kRefusalDocument,
         "kvoctl: station: " + kRefusal},
        {"station_finds_no_service", {"station", "x"}, {}, {}, 3, "", kMissingDocument, "kvoctl: station: " + kMissing},
        {"brightness_resolves_a_name",
         {"brightness", "Lathe 1", "off"},
         {kLathe, "ok"},
         {"getExDescByName Lathe 1", "setBrightness=0 0A000005"},
         0,
         "",
         R"({"done": true})"},
        {"brightness_sets_nothing_for_an_unknown_name",
         {"brightness", "Lathe 9", "off"},
         {"not found", "ok"},
         {"getExDescByName Lathe 9"},
         1,
         "",
         R"({"error": {"code": 0, "meaning": "no station is named \"Lathe 9\""}})",
         "kvoctl: brightness: no station is named \"Lathe 9\" (result 0)\n"},
    };
}

}  // namespace kvoctl_test
