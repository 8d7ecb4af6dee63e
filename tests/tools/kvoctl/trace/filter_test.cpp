// Which exchanges each filter selects.
#include "exchanges.h"

#include "kvoctl/trace/filter.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace kvoctl_test {

namespace {

using kvoctl::Filter;

struct FilterRow {
    std::string name;
    Filter filter;
    Entry entry;
    bool matches;
};

std::ostream &operator<<(std::ostream &out, const FilterRow &row) { return out << row.name; }

Filter station(uint32_t address, const std::string &name = "") { return {.stations = {{address, name}}}; }

Entry ask(const std::string &request) { return entry(request + "\n", "ok\n"); }
Entry event(Kind kind, const std::string &text) { return entry(text + "\n", "ok\n", End::closed, kind); }
Entry of(const Peer &peer) { return entryOf(peer, exchange("getVersion\n", "V1\n")); }

const Filter kStation = station(0x0A000005);

const std::vector<FilterRow> kFilters = {
    {"nothing_given", {}, ask("getVersion"), true},
    {"program_name", {.programs = {"panel"}}, ask("getVersion"), true},
    {"other_program_name", {.programs = {"pane"}}, ask("getVersion"), false},
    {"one_of_two_programs", {.programs = {"other", "panel"}}, ask("getVersion"), true},
    {"process_id", {.programs = {"4711"}}, ask("getVersion"), true},
    {"other_process_id", {.programs = {"471"}}, ask("getVersion"), false},
    {"long_program_name", {.programs = {"panel-of-the-machine"}}, of({1, "panel-of-the-ma"}), true},
    {"name_that_is_a_number", {.programs = {"12"}}, of({99, "12"}), true},
    {"unknown_name", {.programs = {"panel"}}, of({1, ""}), false},
    {"empty_name", {.programs = {""}}, of({1, ""}), false},
    {"unknown_process_id", {.programs = {"0"}}, of({0, ""}), false},
    {"command", {.commands = {"getDLV2"}}, ask("getDLV2 8"), true},
    {"beginning_of_a_command", {.commands = {"getDL"}}, ask("getDLV2 8"), false},
    {"command_in_other_case", {.commands = {"getdlv2"}}, ask("getDLV2 8"), false},
    {"two_kinds_of_values", {.programs = {"panel"}, .commands = {"getVersion"}}, ask("getVersion"), true},
    {"only_one_kind_of_value_fits", {.programs = {"panel"}, .commands = {"getVersion"}}, ask("getDLV2 8"), false},
    {"station_after_equals", kStation, ask("getMCPAddress=0A000005"), true},
    {"other_station", kStation, ask("getMCPAddress=0A000006"), false},
    {"station_after_a_text", kStation, ask("startViewer=\"a:b:c\" 0A000005"), true},
    {"station_in_reverse_order", kStation, ask("getMCPAddress=0500000A"), true},
    {"station_of_a_status_line", kStation, ask("setStatusline=0A000005,1,2,Tool 7 0A000006"), true},
    {"station_in_the_text_of_a_status_line", kStation, ask("setStatusline=0A000006,1,2,Tool 0A000005"), false},
    {"station_in_a_text", kStation, ask("setChannelInfo=\"0A000005\" 0A000006"), false},
    {"station_after_a_blank", kStation, ask("getExDescByIP 0A000005"), true},
    {"number_of_a_look_up", station(12), ask("getIPbyMCPAddress=0000000C"), false},
    {"flags_of_clients", station(31), ask("getClientList 0 0000001F"), false},
    {"capacity_of_a_list", station(0x10000000), ask("getDLV2 10000000"), false},
    {"request_without_a_station", kStation, ask("getVersion"), false},
    {"short_number", station(5), ask("setBacklight=5"), false},
    {"name_of_a_station", station(0x0A000005, "Lathe 1"), ask("getExDescByName Lathe 1"), true},
    {"other_name_of_a_station", station(0x0A000005, "Lathe 1"), ask("getExDescByName Lathe"), false},
    {"look_up_by_name_without_a_name", kStation, ask("getExDescByName 0A000005"), false},
    {"address_of_a_named_station", station(0x0A000005, "Lathe 1"), ask("getMCPAddress=0A000005"), true},
    {"station_of_a_usb_event", kStation, event(Kind::usb, "removeUSBdevice*10.0.0.5*a*b*"), true},
    {"other_station_of_a_usb_event", kStation, event(Kind::usb, "removeUSBdevice*10.0.0.50*a*b*"), false},
    {"usb_event_without_a_station", kStation, event(Kind::usb, "suicide"), false},
    {"station_of_an_embedded_event", kStation, event(Kind::event, "focus,10.0.0.5"), true},
    {"other_data_of_an_embedded_event", kStation, event(Kind::event, "key,10.0.0.6"), false},
    {"failure", {.failures = true}, entry("getVersion\n", "failed\n"), true},
    {"no_failure", {.failures = true}, entry("getVersion\n", "V1\n"), false},
    {"open_at_the_end", {.failures = true}, entry("getVersion\n", "", End::open), false}};

class FilterMatches : public testing::TestWithParam<FilterRow> {};

TEST_P(FilterMatches, what_the_user_means) { EXPECT_EQ(GetParam().filter.matches(GetParam().entry), GetParam().matches); }

INSTANTIATE_TEST_SUITE_P(Rows, FilterMatches, testing::ValuesIn(kFilters), [](const auto &row) { return row.param.name; });

}  // namespace

}  // namespace kvoctl_test
