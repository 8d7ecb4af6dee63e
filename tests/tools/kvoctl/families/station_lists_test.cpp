// The lists of stations, from the service and from its registry: buffer sizes, requests, and each result.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "support/scripted_service.h"

#include <cstdio>

namespace kvoctl_test {

namespace {

using kvosim_test::TemporaryDirectory;
using support::ScriptedService;
using testing::ElementsAre;

std::string hex(std::size_t number)
{
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08zX", number);
    return text.data();
}

/// The description text of stations 10.0.0.0, 10.0.0.1 ... with these names.
std::string listText(const std::vector<std::string> &names)
{
    std::string text = hex(names.size()) + " ";
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += hex(0x0A000000 + i) + " 00000001 00000002 0000000A " + hex(names[i].size()) + " " + names[i] + " ";
    }
    return text;
}

std::vector<support::Script> scripts(const std::vector<std::string> &replies)
{
    std::vector<support::Script> list;
    list.reserve(replies.size());
    for (const std::string &reply : replies) {
        list.push_back(support::replies(reply));
    }
    return list;
}

TEST(Stations, are_shown_as_a_table_with_header_and_count)
{
    const ScriptedService service(scripts({"2", listText({"Lathe 1", "Mill"})}));
    const Ended ended = kvoctl({"stations"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out, "ADDRESS   NAME     ATTR1  ATTR2  ATTR3\n"
                         "10.0.0.0  Lathe 1      1      2     10\n"
                         "10.0.0.1  Mill         1      2     10\n"
                         "2 stations\n");
    EXPECT_THAT(service.requests(), ElementsAre("getCountElemDL\n", "getDLV2 64\n"));
}

TEST(Stations, are_counted_below_the_table)
{
    {
        const ScriptedService service(scripts({"1", listText({"Mill"})}));
        EXPECT_THAT(kvoctl({"stations"}).out, testing::EndsWith("\n1 station\n"));
    }
    const ScriptedService service(scripts({"0", listText({})}));
    EXPECT_EQ(kvoctl({"stations"}).out, "ADDRESS  NAME  ATTR1  ATTR2  ATTR3\n0 stations\n");
}

TEST(Stations, are_an_empty_list_in_json_if_the_plant_is_empty)
{
    const ScriptedService service(scripts({"0", listText({})}));
    EXPECT_EQ(kvoctl({"stations", "--json"}).document(), Json::parse(R"({"stations": []})"));
}

TEST(Stations, are_requested_again_with_a_buffer_of_the_reported_size)
{
    const std::vector<std::string> names(65, "Mill");
    const ScriptedService service(scripts({"65", "65", listText(names)}));
    const Ended ended = kvoctl({"stations", "--json"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.document()["stations"].size(), 65U);
    EXPECT_THAT(service.requests(), ElementsAre("getCountElemDL\n", "getCountElemDL\n", "getDLV2 65\n"));
}

TEST(Stations, may_grow_between_the_two_requests)
{
    const std::vector<std::string> names(66, "Mill");
    const ScriptedService service(scripts({"64", listText(names), "66", listText(names)}));
    const Ended ended = kvoctl({"stations"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, testing::EndsWith("\n66 stations\n"));
    EXPECT_THAT(service.requests(), ElementsAre("getCountElemDL\n", "getDLV2 64\n", "getCountElemDL\n", "getDLV2 66\n"));
}

TEST(Stations, that_grow_with_each_request_are_an_error)
{
    const ScriptedService service(scripts({"65", "66", "67", "68", "69", "70", "71", "72", "73"}));
    const Ended ended = kvoctl({"stations"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: stations: the list grew with each request (result -3)\n");
    EXPECT_EQ(service.requests().size(), 8U);
}

TEST(Stations, of_an_impossible_number_are_an_error)
{
    const ScriptedService service(scripts({"4294967295"}));
    const Ended ended = kvoctl({"stations", "--extended"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err,
              "kvoctl: stations: the service reports 4294967295 stations; kvoctl accepts at most 1000000 (result -3)\n");
}

TEST(Stations, show_a_refusal_as_text_and_as_one_document)
{
    const ScriptedService service(scripts({"failed"}));
    const Ended ended = kvoctl({"stations", "--json"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: stations: the service refused or sent an unknown reply (result -1)\n");
    EXPECT_EQ(ended.document(),
              Json::parse(R"({"error": {"code": -1, "meaning": "the service refused or sent an unknown reply"}})"));
}

TEST(Stations, may_have_the_address_255_255_255_255_in_the_list_of_the_service)
{
    const ScriptedService service(scripts({"1", "00000001 FFFFFFFF 00000001 00000002 00000003 00000001 x "}));
    EXPECT_EQ(kvoctl({"stations", "--json"}).document()["stations"][0]["address"], "255.255.255.255");
}

TEST(Stations, with_names_that_are_not_utf8_are_shown)
{
    const ScriptedService service(scripts({"1", listText({"Fr\xE4se"})}));
    EXPECT_EQ(kvoctl({"stations", "--json"}).document()["stations"][0]["name"], "Fr\uFFFDse");
}

// ---- Registry lists ----

class RegistryLists : public testing::Test {
protected:
    void write(const char *name, const std::string &text)
    {
        std::filesystem::create_directories(directory_ / "kvo_hws");
        std::ofstream(directory_ / "kvo_hws" / name, std::ios::binary) << text;
    }
    [[nodiscard]] std::string path() const { return directory_.path().string() + "/"; }

private:
    TemporaryDirectory directory_;
};

TEST_F(RegistryLists, have_addresses_in_network_order_or_none)
{
    write("currkvos.reg", "\"Lathe 1\" 10.0.0.5 1x2:3\n\"Lost\" 10.0.0.x 4x5:-1\n\"Removed\" 10.0.0.7 0x5:6\n");
    const ScriptedService service(scripts({"yes", path(), "ok", "ok"}));
    EXPECT_EQ(kvoctl({"stations", "--current"}).out, "ADDRESS   NAME     ATTR1  ATTR2       ATTR3\n"
                                                     "10.0.0.5  Lathe 1      1      2           3\n"
                                                     "-         Lost         4      5  4294967295\n"
                                                     "2 stations\n");
    EXPECT_THAT(service.requests(),
                ElementsAre("isInitComplete\n", "getregistrypath\n", "lockKVORegData\n", "unlockKVORegData\n"));
}

TEST_F(RegistryLists, show_a_missing_address_as_null_in_json)
{
    write("prevkvos.reg", "\"Lost\" nowhere 4x5:6\n");
    const ScriptedService service(scripts({"yes", path(), "ok", "ok"}));
    EXPECT_EQ(kvoctl({"stations", "--previous", "--json"}).document(),
              Json::parse(R"({"stations": [{"address": null, "name": "Lost", "attr1": 4, "attr2": 5, "attr3": 6}]})"));
}

TEST_F(RegistryLists, of_any_length_are_read_whole)
{
    std::string lines;
    for (int i = 0; i < 100; ++i) {
        lines += "\"Mill\" 10.0.0." + std::to_string(i) + " 1x2:3\n";
    }
    write("currkvos.reg", lines);
    const std::vector<std::string> oneReading{"yes", path(), "ok", "ok"};
    std::vector<std::string> replies = oneReading;
    replies.insert(replies.end(), oneReading.begin(), oneReading.end());
    const ScriptedService service(scripts(replies));
    EXPECT_THAT(kvoctl({"stations", "--current"}).out, testing::EndsWith("\n100 stations\n"));
    EXPECT_EQ(service.requests().size(), 8U);
}

TEST_F(RegistryLists, are_unavailable_while_the_service_is_starting)
{
    const ScriptedService service(scripts({"no"}));
    const Ended ended = kvoctl({"stations", "--current", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvoctl: stations: the service is still starting; try again (result 0)\n");
    EXPECT_EQ(ended.document(),
              Json::parse(R"({"error": {"code": 0, "meaning": "the service is still starting; try again"}})"));
}

TEST_F(RegistryLists, report_a_registry_that_stays_locked)
{
    const ScriptedService service(scripts({"yes", path(), "busy"}));
    const Ended ended = kvoctl({"stations", "--previous", "--lock-timeout", "0"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: stations: the registry stayed locked for 0 s (result -4)\n");
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "getregistrypath\n", "lockKVORegData\n"));
}

TEST_F(RegistryLists, report_a_missing_file)
{
    const ScriptedService service(scripts({"yes", path(), "ok", "ok"}));
    const Ended ended = kvoctl({"stations", "--current"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: stations: the service refused, or the list is missing in its registry (result -1)\n");
}

TEST_F(RegistryLists, need_a_service)
{
    const Ended ended = kvoctl({"stations", "--previous"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.err, "kvoctl: stations: no service answers at /tmp/kvo_hws/cmd_sock (result -2)\n" + kNoServiceHint);
}

}  // namespace

}  // namespace kvoctl_test
