// Lists of any length: a list that fits needs the requests of the function of C, a longer one is asked again.
#include <kvo_hws/kvo_hws.hpp>

#include "support/catalogue_service.h"
#include "support/scripted_service.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvo::Address;
using kvo::Errc;
using kvo::Service;
using support::replies;
using support::Script;
using support::ScriptedService;
using testing::ElementsAre;

std::string hexadecimal(std::size_t number)
{
    char digits[17];
    std::snprintf(digits, sizeof digits, "%08zX", number);
    return digits;
}

/// A reply with stations that have no name, and the addresses 1, 2, ...
std::string stations(std::size_t count, std::size_t extended = 0)
{
    std::string reply = hexadecimal(count) + " ";
    for (std::size_t i = 1; i <= count; ++i) {
        reply += hexadecimal(i) + " 0000000A 0000000B 0000000C 00000000  ";
        for (std::size_t attribute = 0; attribute < extended; ++attribute) {
            reply += hexadecimal(attribute + 1) + " ";
        }
    }
    return reply;
}

std::string clients(std::size_t count)
{
    std::string reply = hexadecimal(count) + " ";
    for (std::size_t i = 1; i <= count; ++i) {
        reply += hexadecimal(i) + " 00000002 pc ";
    }
    return reply;
}

/// The size that a list is asked with begins at 64 again.
class Lists : public testing::Test {
protected:
    Lists()
    {
        for (auto &asked : kvo::detail::asked_sizes) {
            asked = 0;
        }
    }

    /// The answers to the two requests for a list of @p count stations.
    static std::vector<Script> answers(std::size_t count) { return {replies(std::to_string(count)), replies(stations(count))}; }

    /// Reads the list from a service with @p scripts; the commands are in commands_.
    std::size_t read(const std::vector<Script> &scripts)
    {
        const ScriptedService service(scripts);
        const auto list = Service::description_list();
        commands_ = support::commandsOf(service);
        EXPECT_TRUE(list) << list.error().message();
        return list ? list->size() : 0;
    }

    std::vector<std::string> commands_;
};

TEST_F(Lists, that_fit_need_the_requests_of_the_function_of_c)
{
    EXPECT_EQ(read(answers(64)), 64U);
    EXPECT_THAT(commands_, ElementsAre("getCountElemDL", "getDLV2 64"));
    EXPECT_EQ(read(answers(0)), 0U);
    EXPECT_THAT(commands_, ElementsAre("getCountElemDL", "getDLV2 64"));
}

TEST_F(Lists, of_65_stations_are_asked_again_and_remembered)
{
    EXPECT_EQ(read({replies("65"), replies("65"), replies(stations(65))}), 65U);
    EXPECT_THAT(commands_, ElementsAre("getCountElemDL", "getCountElemDL", "getDLV2 65"));
    EXPECT_EQ(read(answers(65)), 65U);
    EXPECT_THAT(commands_, ElementsAre("getCountElemDL", "getDLV2 65"));
    EXPECT_EQ(read(answers(1)), 1U);
    EXPECT_THAT(commands_, ElementsAre("getCountElemDL", "getDLV2 65"));
}

TEST_F(Lists, have_a_remembered_size_each)
{
    EXPECT_EQ(read({replies("65"), replies("65"), replies(stations(65))}), 65U);
    const ScriptedService service({replies("2"), replies(stations(2, 7)), replies(clients(2))});
    EXPECT_EQ(Service::description_list_ex().value().size(), 2U);
    EXPECT_EQ(Service::client_list().value().size(), 2U);
    EXPECT_THAT(support::commandsOf(service), ElementsAre("getCountElemDL_Ex", "getDL_ExV2 64", "getClientList 0 0"));
}

TEST_F(Lists, that_grow_between_the_two_requests_are_asked_again)
{
    EXPECT_EQ(read({replies("64"), replies(stations(66)), replies("66"), replies(stations(67)), replies("67"),
                    replies(stations(67))}),
              67U);
    EXPECT_THAT(commands_,
                ElementsAre("getCountElemDL", "getDLV2 64", "getCountElemDL", "getDLV2 66", "getCountElemDL", "getDLV2 67"));
}

TEST_F(Lists, that_grow_with_each_of_eight_attempts_are_an_error)
{
    std::size_t count = 64;
    const ScriptedService service({support::answersWith([&count](const std::string &) { return std::to_string(++count); })});
    const auto list = Service::description_list();
    ASSERT_FALSE(list);
    EXPECT_EQ(list.error().meaning(), Errc::too_small);
    EXPECT_EQ(list.error().code(), -3);
    EXPECT_THAT(list.error().reason(), testing::HasSubstr("8 attempts"));
    EXPECT_EQ(service.requests().size(), 8U);
}

TEST_F(Lists, are_not_larger_than_a_million_elements)
{
    const ScriptedService service({replies("1000001")});
    const auto list = Service::description_list();
    ASSERT_FALSE(list);
    EXPECT_EQ(list.error().meaning(), Errc::too_small);
    EXPECT_THAT(list.error().reason(), testing::HasSubstr("1000000"));
    EXPECT_EQ(service.requests().size(), 1U);
}

TEST_F(Lists, of_a_million_elements_are_asked_for)
{
    const ScriptedService service({replies("1000000"), replies("1000000"), replies(stations(2))});
    EXPECT_EQ(Service::description_list().value().size(), 2U);
    EXPECT_THAT(support::commandsOf(service), ElementsAre("getCountElemDL", "getCountElemDL", "getDLV2 1000000"));
}

TEST_F(Lists, have_all_elements_in_order)
{
    {
        const ScriptedService service({replies("100"), replies("100"), replies(stations(100, 7))});
        const auto list = Service::description_list_ex().value();
        ASSERT_EQ(list.size(), 100U);
        for (uint32_t i = 0; i < 100; ++i) {
            EXPECT_EQ(list[i].address, Address(i + 1));
        }
        EXPECT_EQ(list[99].attr3, 12U);
        EXPECT_EQ(list[99].ext_attr1, 1U);
        EXPECT_EQ(list[99].ext_attr7, 7U);
    }
    const ScriptedService service({replies(clients(70)), replies(clients(70))});
    const auto list = Service::client_list(0xBEEF).value();
    ASSERT_EQ(list.size(), 70U);
    EXPECT_EQ(list[69].value, 70U);
    EXPECT_EQ(list[69].name, "pc");
    EXPECT_THAT(support::commandsOf(service), ElementsAre("getClientList 0 BEEF", "getClientList 0 BEEF"));
}

TEST_F(Lists, that_fail_after_they_did_not_fit_are_errors)
{
    const ScriptedService service({replies("65"), replies("failed")});
    const auto list = Service::description_list();
    ASSERT_FALSE(list);
    EXPECT_EQ(list.error().meaning(), Errc::failed);
}

// ---- The lists on disk ----

/// A registry directory of the daemon, and the daemon's replies about it.
class RegistryLists : public Lists {
protected:
    RegistryLists()
    {
        char name[] = "/tmp/kvo_registry_XXXXXX";
        directory_ = std::string(mkdtemp(name)) + "/";
        std::filesystem::create_directory(directory_ + "kvo_hws");
    }
    ~RegistryLists() override { std::filesystem::remove_all(directory_); }

    void write(const char *file, std::size_t stations) const
    {
        std::ofstream stream(directory_ + "kvo_hws/" + file);
        for (std::size_t i = 1; i <= stations; ++i) {
            stream << "\"st" << i << "\" 10.0.0." << i << " 1x2:3\n";
        }
    }
    [[nodiscard]] std::vector<Script> answers() const
    {
        return {replies("yes"), replies(directory_), replies("ok"), replies("ok")};
    }

    std::string directory_;
    const std::vector<std::string> kRequests{"isInitComplete", "getregistrypath", "lockKVORegData", "unlockKVORegData"};
};

TEST_F(RegistryLists, are_read_from_one_file_each_with_addresses_as_in_other_lists)
{
    write("currkvos.reg", 2);
    write("prevkvos.reg", 1);
    {
        const ScriptedService service(answers());
        const auto list = Service::current_list_from_registry(1s).value().value();
        EXPECT_EQ(support::commandsOf(service), kRequests);
        ASSERT_EQ(list.size(), 2U);
        EXPECT_EQ(list[1].address, Address("10.0.0.2"));
        EXPECT_EQ(list[1].name, "st2");
        EXPECT_EQ(list[1].attr1, 1U);
        EXPECT_EQ(list[1].attr3, 3U);
    }
    const ScriptedService service(answers());
    EXPECT_EQ(Service::previous_list_from_registry(1s).value().value().size(), 1U);
    EXPECT_EQ(support::commandsOf(service), kRequests);
}

TEST_F(RegistryLists, that_do_not_fit_are_read_again)
{
    write("currkvos.reg", 65);
    std::vector<Script> twice = answers();
    for (const Script &script : answers()) {
        twice.push_back(script);
    }
    const ScriptedService service(twice);
    EXPECT_EQ(Service::current_list_from_registry(1s).value().value().size(), 65U);
    EXPECT_EQ(service.requests().size(), 8U);
}

TEST_F(RegistryLists, are_empty_while_the_daemon_is_starting)
{
    const ScriptedService service({replies("no")});
    const auto list = Service::previous_list_from_registry(1s);
    ASSERT_TRUE(list);
    EXPECT_FALSE(list->has_value());
    EXPECT_THAT(support::commandsOf(service), ElementsAre("isInitComplete"));
}

TEST_F(RegistryLists, time_out_while_another_client_has_the_lock)
{
    for (const std::chrono::seconds timeout : {0s, -5s}) {
        const ScriptedService service({replies("yes"), replies(directory_), replies("busy")});
        const auto list = Service::current_list_from_registry(timeout);
        ASSERT_FALSE(list);
        EXPECT_EQ(list.error().meaning(), Errc::timeout);
        EXPECT_STREQ(list.error().reason(), "the registry stayed locked for too long");
    }
}

TEST_F(RegistryLists, without_a_file_are_an_error)
{
    const ScriptedService service(answers());
    const auto list = Service::current_list_from_registry(0s);
    ASSERT_FALSE(list);
    EXPECT_EQ(list.error().meaning(), Errc::failed);
    EXPECT_EQ(support::commandsOf(service), kRequests) << "the lock is released";
}

}  // namespace
