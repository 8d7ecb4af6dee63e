// Output on a terminal: tables that fit its width, and texts that cannot control it.
#include "tools/kvoctl/support/kvoctl.h"

#include "support/scripted_service.h"

#include <array>
#include <cstdio>

namespace kvoctl_test {

namespace {

using support::ScriptedService;

/// A plant with one station, 10.0.0.5, of this name.
std::vector<support::Script> plantOf(const std::string &name)
{
    std::array<char, 9> length{};
    std::snprintf(length.data(), length.size(), "%08zX", name.size());
    return {support::replies("1"),
            support::replies("00000001 0A000005 00000001 00000002 00000003 " + std::string(length.data()) + " " + name + " ")};
}

std::string tableOf(const std::string &name, const RunConditions &conditions)
{
    const ScriptedService service(plantOf(name));
    const Ended ended = kvoctl({"stations"}, conditions);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    return ended.out;
}

/// The row of a station in a terminal of 46 columns, which leaves 15 for its name.
std::string rowOf(const std::string &name)
{
    const std::string table = tableOf(name, {.terminal = 46});
    const std::size_t begin = table.find('\n') + 1;
    return table.substr(begin, table.find('\n', begin) - begin);
}

TEST(Terminal, cuts_long_names_at_its_width)
{
    EXPECT_EQ(tableOf("A name that is too long", {.terminal = 46}), "ADDRESS   NAME             ATTR1  ATTR2  ATTR3\n"
                                                                    "10.0.0.5  A name that is…      1      2      3\n"
                                                                    "1 station\n");
}

TEST(Terminal, does_not_cut_a_name_that_just_fits)
{
    EXPECT_EQ(rowOf("Exactly fifteen"), "10.0.0.5  Exactly fifteen      1      2      3");
}

TEST(Terminal, shows_records_with_whole_names_if_cutting_is_not_enough)
{
    EXPECT_EQ(tableOf("A name that is too long", {.terminal = 38}), "10.0.0.5  A name that is too long\n"
                                                                    "  ATTR1 1  ATTR2 2  ATTR3 3\n"
                                                                    "1 station\n");
    EXPECT_EQ(tableOf("A name that is too long", {.terminal = 17}), "10.0.0.5  A name that is too long\n"
                                                                    "  ATTR1 1\n"
                                                                    "  ATTR2 2\n"
                                                                    "  ATTR3 3\n"
                                                                    "1 station\n");
}

TEST(Terminal, cuts_a_name_to_8_columns_if_that_makes_lines_fit)
{
    EXPECT_THAT(tableOf("A name that is too long", {.terminal = 39}), testing::HasSubstr("\n10.0.0.5  A name …      1 "));
}

/// Two stations with all their attributes.
std::string extendedTable(const RunConditions &conditions)
{
    const std::string attributes = "00000001 00000002 00000003 ";
    const std::string more = "00000004 00000005 00000006 00000007 FFFFFFFF 00000009 0000000A ";
    const ScriptedService service(
        {support::replies("2"), support::replies("00000002 0A000005 " + attributes + "00000028 " + std::string(40, 'n') + " " +
                                                 more + "0A000006 " + attributes + "00000007 Lathe 1 " + more)});
    const Ended ended = kvoctl({"stations", "--extended"}, conditions);
    EXPECT_EQ(ended.status, 0);
    return ended.out;
}

TEST(Terminal, of_80_columns_shows_extended_stations_as_records)
{
    EXPECT_EQ(extendedTable({.terminal = 80}),
              "10.0.0.5  " + std::string(40, 'n') +
                  "\n"
                  "  ATTR1 1  ATTR2 2  ATTR3 3  EXT1 4  EXT2 5  EXT3 6  EXT4 7  EXT5 4294967295\n"
                  "  EXT6 9  EXT7 10\n"
                  "10.0.0.6  Lathe 1\n"
                  "  ATTR1 1  ATTR2 2  ATTR3 3  EXT1 4  EXT2 5  EXT3 6  EXT4 7  EXT5 4294967295\n"
                  "  EXT6 9  EXT7 10\n"
                  "2 stations\n");
}

TEST(Terminal, cuts_a_name_in_a_record_if_that_makes_its_line_fit)
{
    EXPECT_THAT(extendedTable({.terminal = 49}),
                testing::StartsWith("10.0.0.5  " + std::string(38, 'n') + "…\n  ATTR1 1  ATTR2 2  ATTR3 3  EXT1 4  EXT2 5\n"));
}

TEST(Terminal, that_is_wide_enough_shows_extended_stations_as_a_table)
{
    EXPECT_THAT(extendedTable({.terminal = 130}), testing::StartsWith("ADDRESS   NAME "));
    EXPECT_THAT(extendedTable({}), testing::StartsWith("ADDRESS   NAME ")) << "as a file does";
}

// ---- Colour ----

constexpr const char *kRed = "\x1B[1;31m";
constexpr const char *kGreen = "\x1B[32m";
constexpr const char *kPlain = "\x1B[0m";

TEST(Terminal, shows_the_findings_of_doctor_in_colour)
{
    const std::string out = kvoctl({"doctor"}, {.terminal = 120, .environment = {"TERM=xterm"}}).out;
    EXPECT_THAT(out, testing::HasSubstr(std::string(kRed) + "FAULT" + kPlain + "  "));
    EXPECT_THAT(out, testing::HasSubstr(std::string(kGreen) + "ok" + kPlain + "     libpavo.so.1     The loader"))
        << "escape sequences take no columns";
}

TEST(Terminal, shows_no_colour_if_the_environment_disables_it)
{
    for (const std::vector<std::string> &unwanted :
         {std::vector<std::string>{"TERM=dumb"}, std::vector<std::string>{"TERM=xterm", "NO_COLOR=1"}}) {
        const Ended ended = kvoctl({"doctor"}, {.terminal = 120, .environment = unwanted});
        EXPECT_EQ(ended.out.find('\x1B'), std::string::npos) << unwanted.back();
    }
    EXPECT_EQ(kvoctl({"doctor"}, {.environment = {"TERM=xterm"}}).out.find('\x1B'), std::string::npos) << "not a terminal";
    EXPECT_NE(kvoctl({"doctor"}, {.terminal = 120, .environment = {"TERM=xterm", "NO_COLOR="}}).out.find('\x1B'),
              std::string::npos)
        << "an empty NO_COLOR is ignored";
}

TEST(Terminal, shows_failures_in_colour)
{
    const RunConditions terminal{.terminal = 120, .environment = {"TERM=xterm"}, .errorsToTerminal = true};
    EXPECT_THAT(kvoctl({"station", "10.0.0.5"}, terminal).out,
                testing::StartsWith(std::string(kRed) + "kvoctl: station:" + kPlain + " no service answers at"));
    EXPECT_THAT(kvoctl({"statons"}, terminal).out,
                testing::StartsWith(std::string(kRed) + "kvoctl:" + kPlain + " \"statons\" is not a command"));
}

TEST(Terminal, of_unknown_width_uses_the_variable_columns)
{
    EXPECT_EQ(tableOf("A name that is too long", {.terminal = 0, .environment = {"COLUMNS=40"}}),
              "ADDRESS   NAME       ATTR1  ATTR2  ATTR3\n"
              "10.0.0.5  A name t…      1      2      3\n"
              "1 station\n");
}

TEST(Terminal, of_unknown_width_cuts_nothing_if_the_variable_columns_is_not_a_width)
{
    for (const char *columns : {"COLUMNS=", "COLUMNS=0", "COLUMNS=40x", "COLUMNS=-40"}) {
        EXPECT_THAT(tableOf("A name that is too long", {.terminal = 0, .environment = {columns}}),
                    testing::HasSubstr("A name that is too long"))
            << columns;
    }
}

TEST(Terminal, uses_its_own_width_rather_than_the_variable_columns)
{
    EXPECT_THAT(tableOf("A name that is too long", {.terminal = 200, .environment = {"COLUMNS=40"}}),
                testing::HasSubstr("A name that is too long"));
}

TEST(Pipe, shows_whole_names_regardless_of_the_variable_columns)
{
    const std::string longest(259, 'n');
    EXPECT_THAT(tableOf(longest, {.environment = {"COLUMNS=40"}}), testing::HasSubstr(longest));
}

TEST(Pipe, pads_names_to_at_most_40_columns)
{
    const std::string entry = "0A000005 00000001 00000002 00000003 ";
    const std::string exact(40, 'e');
    const std::string longest(259, 'n');
    const ScriptedService service(
        {support::replies("3"), support::replies("00000003 " + entry + "00000004 Mill " + entry + "00000028 " + exact + " " +
                                                 entry + "00000103 " + longest + " ")});
    EXPECT_EQ(kvoctl({"stations"}).out, "ADDRESS   NAME" + std::string(36, ' ') + "  ATTR1  ATTR2  ATTR3\n" +  //
                                            "10.0.0.5  Mill" + std::string(36, ' ') + "      1      2      3\n" + "10.0.0.5  " +
                                            exact + "      1      2      3\n" + "10.0.0.5  " + longest +
                                            "      1      2      3\n3 stations\n");
}

TEST(Pipe, has_no_spaces_at_the_end_of_a_line)
{
    const ScriptedService service({support::replies("00000002 00000001 00000000  00000002 00000003 x   ")});
    EXPECT_EQ(kvoctl({"clients"}).out, "VALUE  NAME\n    1\n    2  x\n2 clients\n");
}

TEST(Terminal, shows_a_single_station_uncut)
{
    const ScriptedService service(
        {support::replies("0A000005 00000001 00000002 FFFFFFFF 00000017 A name that is too long 00000001 "
                          "00000002 00000003 00000004 00000005 00000006 00000007 ")});
    const Ended ended = kvoctl({"station", "10.0.0.5"}, {.terminal = 15});
    EXPECT_THAT(ended.out, testing::HasSubstr("name       A name that is too long\n"));
    EXPECT_THAT(ended.out, testing::HasSubstr("attr3      4294967295\n"));
}

struct Shown {
    std::string name;
    std::string row;
};

TEST(Names, are_measured_in_displayed_columns)
{
    const std::vector<Shown> rows{
        {"Fräse", "10.0.0.5  Fräse      1      2      3"},
        {"プレス", "10.0.0.5  プレス      1      2      3"},
        {"Fra\u0308se", "10.0.0.5  Fra\u0308se      1      2      3"},
        // Each of these characters takes two columns. The name has 15 columns; the last one is for the ellipsis.
        {"プレスプレスプレス", "10.0.0.5  プレスプレスプ…      1      2      3"},
        {"aプレスプレスプレス", "10.0.0.5  aプレスプレス…       1      2      3"},
        // The accent belongs to the letter before it and is cut off with it, never alone.
        {"abcdefghijklmno\u0301pq", "10.0.0.5  abcdefghijklmn…      1      2      3"},
        {"abcdefghijklmn\u0301op", "10.0.0.5  abcdefghijklmn\u0301…      1      2      3"},
    };
    for (const Shown &row : rows) {
        EXPECT_EQ(rowOf(row.name), row.row);
    }
}

TEST(Names, cannot_control_the_terminal)
{
    const std::vector<Shown> rows{
        {"a\x1B[2Jb", R"(10.0.0.5  a\x1B[2Jb      1      2      3)"},
        {"tab\there", R"(10.0.0.5  tab\x09here      1      2      3)"},
        {"\x7F", R"(10.0.0.5  \x7F      1      2      3)"},
        {"Fr\xE4se", R"(10.0.0.5  Fr\xE4se      1      2      3)"},
        {"\xC2\x9B"
         "2J",
         R"(10.0.0.5  \xC2\x9B2J      1      2      3)"},
        {"half\xE3\x83", R"(10.0.0.5  half\xE3\x83      1      2      3)"},
        {"surrogate\xED\xA0\x80", R"(10.0.0.5  surrogate\xED…       1      2      3)"},
    };
    for (const Shown &row : rows) {
        EXPECT_EQ(rowOf(row.name), row.row);
    }
}

TEST(Names, look_the_same_in_every_locale)
{
    EXPECT_THAT(tableOf("プレス 1", {.environment = {"LC_ALL=C"}}), testing::HasSubstr("10.0.0.5  プレス 1      1"));
}

TEST(Messages, cannot_control_the_terminal)
{
    const ScriptedService service({support::replies("not found")});
    EXPECT_EQ(kvoctl({"station", "Fr\xE4se\xC2\x9B"}).err,
              "kvoctl: station: no station is named \"Fr\\xE4se\\xC2\\x9B\" (result 0)\n");
}

}  // namespace

}  // namespace kvoctl_test
