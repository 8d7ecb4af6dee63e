// The station lists on disk: the daemon's lock, the file, and its lines.
#include <kvo_hws/requests.h>

#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

namespace fs = std::filesystem;
using support::ScriptedService;
using testing::ElementsAre;
using testing::IsEmpty;

using RegistryFunction = int32_t (*)(KvoDescription *, uint32_t *, uint32_t);

/// A registry directory of the daemon, and the daemon's replies about it.
class RegistryLists : public testing::Test {
protected:
    RegistryLists()
    {
        char name[] = "/tmp/kvo_registry_XXXXXX";
        directory_ = std::string(mkdtemp(name)) + "/";
        fs::create_directory(directory_ + "kvo_hws");
    }
    ~RegistryLists() override { fs::remove_all(directory_); }

    void writeCurrent(const std::string &text) const { std::ofstream(directory_ + "kvo_hws/currkvos.reg") << text; }

    /// Calls @p read with a service's usual replies; the list has capacity + 1 elements, the last one as a guard.
    int32_t read(RegistryFunction function, uint32_t capacity)
    {
        const ScriptedService service(
            {support::replies("yes"), support::replies(directory_), support::replies("ok"), support::replies("ok")});
        return readFrom(service, function, capacity, 1);
    }

    int32_t readFrom(const ScriptedService &service, RegistryFunction function, uint32_t capacity, uint32_t timeout)
    {
        list = initial;
        list.resize(capacity + 1);
        std::memset(&list.back(), 0x5A, sizeof(KvoDescription));
        count = capacity;
        const int32_t result = function(list.data(), &count, timeout);
        EXPECT_EQ(list.back().address, 0x5A5A5A5AU) << "beyond the capacity";
        EXPECT_EQ(list.back().attr1, 0x5A5A5A5AU) << "beyond the capacity";
        requests = service.requests();
        return result;
    }

    int32_t readCurrent(uint32_t capacity) { return read(KVO_HWS_getKVOCurrentListFromRegistry, capacity); }

    std::string directory_;
    std::vector<KvoDescription> initial;  ///< the initial contents of the caller's array, followed by zeros
    std::vector<KvoDescription> list;
    uint32_t count = 0;
    std::vector<std::string> requests;
};

const std::vector<std::string> kAllRequests = {"isInitComplete\n", "getregistrypath\n", "lockKVORegData\n",
                                               "unlockKVORegData\n"};

uint32_t network(const char *dotted) { return inet_addr(dotted); }

TEST_F(RegistryLists, are_read_under_the_daemons_lock)
{
    writeCurrent("\"st1\" 10.0.0.5 1x2:3\n");
    EXPECT_EQ(readCurrent(3), 1);
    EXPECT_EQ(requests, kAllRequests);
    ASSERT_EQ(count, 1U);
    EXPECT_EQ(list[0].address, network("10.0.0.5"));
    EXPECT_STREQ(list[0].name, "st1");
    EXPECT_EQ(list[0].attr1, 1U);
    EXPECT_EQ(list[0].attr2, 2U);
    EXPECT_EQ(list[0].attr3, 3U);
}

TEST_F(RegistryLists, are_read_from_one_file_for_each_list)
{
    writeCurrent("\"now\" 10.0.0.5 1x2:3\n");
    std::ofstream(directory_ + "kvo_hws/prevkvos.reg") << "\"before\" 10.0.0.5 1x2:3\n";
    EXPECT_EQ(read(KVO_HWS_getKVOPreviousListFromRegistry, 1), 1);
    EXPECT_STREQ(list[0].name, "before");
    EXPECT_EQ(readCurrent(1), 1);
    EXPECT_STREQ(list[0].name, "now");
}

TEST_F(RegistryLists, log_no_messages_of_their_own)
{
    writeCurrent("\"st1\" 10.0.0.5 1x2:3\n");
    const support::MessagesOn messages;
    const support::SyslogCapture capture;
    EXPECT_EQ(readCurrent(0), -3);
    EXPECT_EQ(readCurrent(1), 1);
    uint32_t capacity = 1;
    EXPECT_EQ(KVO_HWS_getKVOCurrentListFromRegistry(nullptr, &capacity, 1), -7);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(RegistryLists, need_one_element_for_each_line)
{
    writeCurrent("\"a\" 10.0.0.1 1x2:3\n\"b\" 10.0.0.2 4x5:6\n\"c\" 10.0.0.3 7x8:9\n");
    EXPECT_EQ(readCurrent(2), -3);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(list[0].name[0], '\0') << "nothing is parsed";
    EXPECT_EQ(requests, kAllRequests) << "the lock is released";

    EXPECT_EQ(readCurrent(3), 1);
    ASSERT_EQ(count, 3U);
    EXPECT_STREQ(list[2].name, "c");
    EXPECT_EQ(list[2].attr3, 9U);
}

TEST_F(RegistryLists, an_empty_file_is_an_empty_list)
{
    writeCurrent("");
    EXPECT_EQ(readCurrent(0), 1);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(readCurrent(4), 1);
    EXPECT_EQ(count, 0U);
}

struct Lines {
    const char *name;
    std::string text;
    std::vector<std::string> stations;
};

std::ostream &operator<<(std::ostream &out, const Lines &row) { return out << row.name; }

class RegistryLines : public RegistryLists, public testing::WithParamInterface<Lines> {};

TEST_P(RegistryLines, are_read_as_stations)
{
    writeCurrent(GetParam().text);
    EXPECT_EQ(readCurrent(8), 1);
    std::vector<std::string> stations;
    for (uint32_t i = 0; i < count; ++i) {
        in_addr address{list[i].address};
        const std::string dotted = address.s_addr == INADDR_NONE ? "none" : inet_ntoa(address);
        stations.push_back(
            std::string(list[i].name) + "|" + dotted + "|" + std::to_string(static_cast<int32_t>(list[i].attr1)) + "|" +
            std::to_string(static_cast<int32_t>(list[i].attr2)) + "|" + std::to_string(static_cast<int32_t>(list[i].attr3)));
    }
    EXPECT_EQ(stations, GetParam().stations);
}

const Lines kLines[] = {
    {"blanks_and_quotes_before_the_name", " \" \"\" st1\" 10.0.0.5 1x2:3\n", {"st1|10.0.0.5|1|2|3"}},
    {"several_blanks_between_fields", "\"st1\"   10.0.0.5   1x2:3\n", {"st1|10.0.0.5|1|2|3"}},
    {"name_with_blanks", "\"press line 4\" 10.0.0.5 1x2:3\n", {"press line 4|10.0.0.5|1|2|3"}},
    {"no_blank_before_the_address", "\"st1\"10.0.0.5 1x2:3\n", {"st1|10.0.0.5|1|2|3"}},
    {"attr1_of_0_is_skipped", "\"a\" 10.0.0.1 0x2:3\n\"b\" 10.0.0.2 1x2:3\n", {"b|10.0.0.2|1|2|3"}},
    {"attr1_of_0_at_the_end_is_skipped", "\"a\" 10.0.0.1 1x2:3\n\"b\" 10.0.0.2 0x2:3\n", {"a|10.0.0.1|1|2|3"}},
    {"last_line_without_line_feed_is_not_read", "\"a\" 10.0.0.1 1x2:3\n\"b\" 10.0.0.2 1x2:3", {"a|10.0.0.1|1|2|3"}},
    {"malformed_address", "\"a\" 10.0.0.256 1x2:3\n", {"a|none|1|2|3"}},
    {"tab_before_the_address", "\"a\" \t10.0.0.1 1x2:3\n", {"a|none|1|2|3"}},
    {"signs_and_trailing_characters_in_numbers", "\"a\" 10.0.0.1 -1ax +2b: 3c\n", {"a|10.0.0.1|-1|2|3"}},
    {"empty_line_shifts_the_fields", "\n\"a\" 10.0.0.1 1x2:3\n", {"\n|none|10|2|3"}},
    {"nothing_after_a_nul_byte", std::string("\"a\" 10.0.0.1 1x2:3\n\0\"b\" 10.0.0.2 1x2:3\n", 39), {"a|10.0.0.1|1|2|3"}},
    {"blanks_alone", "   \"\"  ", {}},
    {"name_without_end", "\"a 10.0.0.1 1x2:3\n", {}},
    {"address_without_end", "\"a\" 10.0.0.1", {}},
    {"missing_x", "\"a\" 10.0.0.1 1:2:3\n", {}},
    {"missing_colon", "\"a\" 10.0.0.1 1x2x3\n", {}},
};

INSTANTIATE_TEST_SUITE_P(Table, RegistryLines, testing::ValuesIn(kLines), [](const auto &row) { return row.param.name; });

TEST_F(RegistryLists, an_empty_line_becomes_part_of_the_next_name)
{
    // The name begins with the empty line's line feed and ends at the next line's opening quote.
    writeCurrent("\n\"a\" 10.0.0.1 1x2:3\n\"b\" 10.0.0.2 4x5:6\n");
    EXPECT_EQ(readCurrent(8), 1);
    ASSERT_EQ(count, 2U);
    EXPECT_STREQ(list[0].name, "\n");
    EXPECT_EQ(list[0].address, INADDR_NONE) << "a\", which is in the place of the address";
    EXPECT_EQ(list[0].attr1, 10U) << "10.0.0.1 1";
    EXPECT_STREQ(list[1].name, "b");
    EXPECT_EQ(list[1].address, network("10.0.0.2"));
}

TEST_F(RegistryLists, long_names_are_truncated_to_the_field)
{
    writeCurrent("\"" + std::string(259, 'n') + "\" 10.0.0.1 1x2:3\n\"" + std::string(300, 'm') + "\" 10.0.0.2 1x2:3\n");
    EXPECT_EQ(readCurrent(2), 1);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(std::string(list[0].name), std::string(259, 'n'));
    EXPECT_EQ(std::string(list[1].name), std::string(259, 'm'));
    EXPECT_EQ(list[1].attr1, 1U);
}

TEST_F(RegistryLists, count_an_element_of_the_caller_that_was_not_zeroed)
{
    // Deliberate: the element after the last station is checked too, so callers must pass a zeroed array.
    writeCurrent("\"a\" 10.0.0.1 1x2:3\n");
    initial.resize(2);
    initial[1].attr1 = 1;
    EXPECT_EQ(readCurrent(2), 1);
    EXPECT_EQ(count, 2U);
}

TEST_F(RegistryLists, a_missing_or_unreadable_file_is_minus_1_and_the_lock_is_released)
{
    EXPECT_EQ(readCurrent(1), -1);
    EXPECT_EQ(requests, kAllRequests);
    EXPECT_EQ(count, 1U);

    fs::create_directory(directory_ + "kvo_hws/currkvos.reg");
    EXPECT_EQ(readCurrent(1), -1) << "a directory instead of the file";
    EXPECT_EQ(requests, kAllRequests);
}

TEST_F(RegistryLists, a_pipe_instead_of_the_file_does_not_block)
{
    ASSERT_EQ(mkfifo((directory_ + "kvo_hws/currkvos.reg").c_str(), 0600), 0);
    EXPECT_EQ(readCurrent(1), 1);
    EXPECT_EQ(count, 0U);
}

TEST_F(RegistryLists, refuse_null_pointers_before_a_request_is_sent)
{
    const ScriptedService service({support::replies("yes")});
    KvoDescription one[1];
    uint32_t capacity = 1;
    for (const RegistryFunction function : {KVO_HWS_getKVOPreviousListFromRegistry, KVO_HWS_getKVOCurrentListFromRegistry}) {
        EXPECT_EQ(function(nullptr, &capacity, 1), -7);
        EXPECT_EQ(function(one, nullptr, 1), -7);
    }
    EXPECT_THAT(service.requests(), IsEmpty());
}

struct Answers {
    const char *name;
    std::vector<std::string> replies;
    std::vector<std::string> requests;
    int32_t result;
};

std::ostream &operator<<(std::ostream &out, const Answers &row) { return out << row.name; }

class RegistryAnswers : public RegistryLists, public testing::WithParamInterface<Answers> {};

TEST_P(RegistryAnswers, lead_to_the_expected_result)
{
    std::vector<support::Script> scripts;
    for (const std::string &reply : GetParam().replies) {
        scripts.push_back(support::replies(reply));
    }
    const ScriptedService service(scripts);
    EXPECT_EQ(readFrom(service, KVO_HWS_getKVOCurrentListFromRegistry, 1, 0), GetParam().result);
    EXPECT_EQ(requests, GetParam().requests);
    EXPECT_EQ(count, 1U);
}

const Answers kAnswers[] = {
    {"still_starting", {"no"}, {"isInitComplete\n"}, 0},
    {"readiness_failed", {"failed"}, {"isInitComplete\n"}, -1},
    {"path_failed", {"yes", "failed"}, {"isInitComplete\n", "getregistrypath\n"}, -1},
    {"lock_failed", {"yes", "/tmp/", "failed"}, {"isInitComplete\n", "getregistrypath\n", "lockKVORegData\n"}, -1},
    {"lock_busy_is_tried_once_at_timeout_0",
     {"yes", "/tmp/", "busy"},
     {"isInitComplete\n", "getregistrypath\n", "lockKVORegData\n"},
     -4},
    {"path_of_1005_characters", {"yes", "/" + std::string(1004, 'p'), "ok", "ok"}, kAllRequests, -1},
    {"path_of_1100_characters", {"yes", "/" + std::string(1099, 'p'), "ok", "ok"}, kAllRequests, -1},
    {"path_without_file", {"yes", "/nowhere/", "ok", "ok"}, kAllRequests, -1},
};

INSTANTIATE_TEST_SUITE_P(Table, RegistryAnswers, testing::ValuesIn(kAnswers), [](const auto &row) { return row.param.name; });

TEST_F(RegistryLists, return_minus_2_without_a_service)
{
    KvoDescription one[1];
    uint32_t capacity = 1;
    EXPECT_EQ(KVO_HWS_getKVOCurrentListFromRegistry(one, &capacity, 1), -2);
}

TEST_F(RegistryLists, a_path_of_1004_characters_is_used)
{
    // Repeated separators change only the path's length.
    writeCurrent("\"st1\" 10.0.0.5 1x2:3\n");
    const std::string path = std::string(1004 - directory_.size(), '/') + directory_;
    ASSERT_EQ(path.size(), 1004U);
    const ScriptedService service(
        {support::replies("yes"), support::replies(path), support::replies("ok"), support::replies("ok")});
    EXPECT_EQ(readFrom(service, KVO_HWS_getKVOCurrentListFromRegistry, 1, 0), 1);
    EXPECT_EQ(count, 1U);

    const ScriptedService longer(
        {support::replies("yes"), support::replies("/" + path), support::replies("ok"), support::replies("ok")});
    EXPECT_EQ(readFrom(longer, KVO_HWS_getKVOCurrentListFromRegistry, 1, 0), -1);
}

TEST_F(RegistryLists, the_lock_is_tried_every_10_ms_until_it_is_free)
{
    writeCurrent("\"st1\" 10.0.0.5 1x2:3\n");
    const ScriptedService service({support::replies("yes"), support::replies(directory_), support::replies("busy"),
                                   support::replies("busy"), support::replies("busy"), support::replies("ok"),
                                   support::replies("ok")});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(readFrom(service, KVO_HWS_getKVOCurrentListFromRegistry, 1, 5), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_THAT(requests, ElementsAre("isInitComplete\n", "getregistrypath\n", "lockKVORegData\n", "lockKVORegData\n",
                                      "lockKVORegData\n", "lockKVORegData\n", "unlockKVORegData\n"));
}

TEST_F(RegistryLists, a_timeout_of_0_gives_up_after_one_attempt_and_10_ms)
{
    const ScriptedService service({support::replies("yes"), support::replies(directory_), support::replies("busy")});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(readFrom(service, KVO_HWS_getKVOCurrentListFromRegistry, 1, 0), -4);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 10ms);
    EXPECT_EQ(requests.size(), 3U);
}

TEST_F(RegistryLists, a_timeout_of_many_seconds_does_not_overflow)
{
    // 4294968 s are more milliseconds than 32 bits can represent.
    writeCurrent("\"st1\" 10.0.0.5 1x2:3\n");
    std::vector<support::Script> scripts = {support::replies("yes"), support::replies(directory_)};
    scripts.insert(scripts.end(), 80, support::replies("busy"));
    scripts.insert(scripts.end(), 2, support::replies("ok"));
    const ScriptedService service(scripts);
    EXPECT_EQ(readFrom(service, KVO_HWS_getKVOCurrentListFromRegistry, 1, 4'294'968), 1);
}

TEST_F(RegistryLists, lines_after_a_nul_byte_are_not_counted)
{
    writeCurrent(std::string("\"a\" 10.0.0.1 1x2:3\n\0\n\n\n", 23));
    EXPECT_EQ(readCurrent(1), 1);
    EXPECT_EQ(count, 1U);
}

TEST_F(RegistryLists, a_file_beyond_32_bits_is_refused)
{
    writeCurrent("");
    const std::string path = directory_ + "kvo_hws/currkvos.reg";
    std::error_code error;
    fs::resize_file(path, uint64_t{1} << 32, error);  // a sparse file: it takes no disk space
    if (error) {
        GTEST_SKIP() << "the file system does not support a file of 4 GiB: " << error.message();
    }
    EXPECT_EQ(readCurrent(1), -1);
    EXPECT_EQ(requests, kAllRequests);
}

TEST_F(RegistryLists, the_lock_is_given_up_after_the_timeout_without_an_unlock)
{
    const ScriptedService service({support::replies("yes"), support::replies(directory_), support::replies("busy")});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(readFrom(service, KVO_HWS_getKVOCurrentListFromRegistry, 1, 1), -4);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, 990ms) << "the clock counts whole milliseconds";
    EXPECT_LT(taken, 4s);
    EXPECT_GT(requests.size(), 4U) << "two requests, and several for the lock";
    EXPECT_EQ(requests.back(), "lockKVORegData\n");
}

}  // namespace
