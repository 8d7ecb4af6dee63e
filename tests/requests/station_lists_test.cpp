// The station lists and the look-up of one station: both exchanges, every outcome of each.
#include <kvo_hws/requests.h>

#include "support/request_table.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using support::kNoConnection;
using support::RequestCase;

constexpr uint32_t kPattern = 0x5A5A5A5A;
const std::string kOne = "0A000005 00000001 00000002 00000003 00000003 st1 ";
const std::string kTwo = "0A000006 00000004 00000005 FFFFFFFF 00000008 press 2  ";
const std::string kExtension = "00000011 00000022 00000033 00000044 00000055 00000066 00000077 ";

/// An array with a guard element, filled with a pattern.
template <class Record>
struct Stations {
    explicit Stations(uint32_t capacity) : records(capacity + 1), count(capacity)
    {
        std::memset(records.data(), 0x5A, records.size() * sizeof(Record));
    }
    [[nodiscard]] bool guardIntact() const { return records.back().address == kPattern && records.back().name[0] == 0x5A; }

    std::vector<Record> records;
    uint32_t count;
};

/// What a case expects of the array, beside result, commands and messages.
enum class Seen { untouched, cleared, filled, firstOnly };

template <class Record>
void expectSeen(const Stations<Record> &stations, uint32_t capacity, Seen seen)
{
    EXPECT_TRUE(stations.guardIntact());
    if (seen == Seen::filled) {
        EXPECT_EQ(stations.records[0].address, 0x0A000005U);
        EXPECT_STREQ(stations.records[0].name, "st1");
        EXPECT_EQ(stations.records[1].attr3, 0xFFFFFFFF);
        EXPECT_STREQ(stations.records[1].name, "press 2 ");
        return;
    }
    if (seen == Seen::firstOnly) {
        EXPECT_EQ(stations.records[0].address, 0x0A000005U);
        EXPECT_EQ(stations.records[1].address, 0U);
        return;
    }
    for (uint32_t i = 0; i < capacity; ++i) {
        EXPECT_EQ(stations.records[i].address, seen == Seen::cleared ? 0U : kPattern);
        EXPECT_EQ(stations.records[i].attr3, seen == Seen::cleared ? 0U : kPattern);
    }
}

RequestCase basic(const std::string &name, uint32_t capacity, std::vector<std::string> commands,
                  std::vector<std::string> replies, int32_t result, uint32_t count, Seen seen,
                  std::vector<std::string> messages = {})
{
    return {name,
            [=] {
                Stations<KvoDescription> stations(capacity);
                const int32_t code = KVO_HWS_getDescriptionList(stations.records.data(), &stations.count);
                EXPECT_EQ(stations.count, count);
                expectSeen(stations, capacity, seen);
                return code;
            },
            std::move(commands),
            std::move(replies),
            result,
            std::move(messages)};
}

RequestCase extended(const std::string &name, uint32_t capacity, std::vector<std::string> commands,
                     std::vector<std::string> replies, int32_t result, uint32_t count, Seen seen,
                     std::vector<std::string> messages = {})
{
    return {name,
            [=] {
                Stations<KvoDescriptionEx> stations(capacity);
                const int32_t code = KVO_HWS_getDescriptionListEx(stations.records.data(), &stations.count);
                EXPECT_EQ(stations.count, count);
                expectSeen(stations, capacity, seen);
                if (seen == Seen::filled) {
                    EXPECT_EQ(stations.records[1].extAttr7, 0x77U);
                }
                return code;
            },
            std::move(commands),
            std::move(replies),
            result,
            std::move(messages)};
}

class StationLists : public testing::TestWithParam<RequestCase> {};

TEST_P(StationLists, behave_as_their_row) { support::check(GetParam()); }

const std::string kB = "get KVO description list - ";
const std::string kE = "get KVO description list extended - ";
const std::vector<std::string> kBoth = {"getCountElemDL", "getDLV2 2"};
const std::vector<std::string> kBothEx = {"getCountElemDL_Ex", "getDL_ExV2 2"};

INSTANTIATE_TEST_SUITE_P(
    Basic, StationLists,
    testing::Values(
        basic("two_stations", 2, kBoth, {"2", "00000002 " + kOne + kTwo}, 1, 2, Seen::filled),
        basic("asks_for_the_capacity_not_the_count", 5, {"getCountElemDL", "getDLV2 5"}, {"2", "00000002 " + kOne + kTwo}, 1, 2,
              Seen::filled),
        basic("takes_a_list_that_has_grown_but_fits", 2, kBoth, {"1", "00000002 " + kOne + kTwo}, 1, 2, Seen::filled),
        basic("capacity_0_and_no_station", 0, {"getCountElemDL", "getDLV2 0"}, {"0", "00000000 "}, 1, 0, Seen::untouched),
        basic("capacity_is_cleared_beyond_the_list", 2, kBoth, {"0", "00000000 "}, 1, 0, Seen::cleared),
        basic("too_small_at_the_count", 2, {"getCountElemDL"}, {"3"}, -3, 3, Seen::cleared, {kB + "not enough memory (1)"}),
        basic("too_small_at_the_list", 1, {"getCountElemDL", "getDLV2 1"}, {"1", "00000002 " + kOne + kTwo}, -3, 2,
              Seen::cleared, {kB + "not enough memory (2)"}),
        basic("count_with_a_blank", 2, {"getCountElemDL"}, {"5 "}, -1, 2, Seen::cleared, {kB + "wrong count reply"}),
        basic("count_with_a_letter", 2, {"getCountElemDL"}, {"5x"}, -1, 2, Seen::cleared, {kB + "wrong count reply"}),
        basic("count_beyond_32_bits", 2, {"getCountElemDL"}, {"4294967297"}, -3, 0xFFFFFFFF, Seen::cleared,
              {kB + "not enough memory (1)"}),
        basic("count_of_all_32_bits", 2, {"getCountElemDL"}, {"4294967294"}, -3, 0xFFFFFFFE, Seen::cleared,
              {kB + "not enough memory (1)"}),
        basic("count_missing_reads_as_0", 2, kBoth, {"", "00000000 "}, 1, 0, Seen::cleared),
        basic("count_failed", 2, {"getCountElemDL"}, {"failed"}, -1, 2, Seen::cleared, {kB + "error sending request (count)"}),
        basic("list_failed", 2, kBoth, {"2", "failed"}, -1, 2, Seen::cleared, {kB + "error sending request"}),
        basic("list_without_count", 2, kBoth, {"2", "00000002"}, -1, 2, Seen::cleared, {kB + "can not get count from reply"}),
        basic("list_empty", 2, kBoth, {"2", ""}, -1, 2, Seen::cleared, {kB + "can not get count from reply"}),
        basic("list_cut", 2, kBoth, {"2", "00000002 " + kOne}, -1, 2, Seen::firstOnly,
              {kB + "can not get KVO list from reply"}),
        basic("no_service", 2, {}, {}, -2, 2, Seen::cleared, {kNoConnection, kB + "can not send request (count)"}),
        RequestCase{"null_list",
                    [] {
                        uint32_t count = 0;
                        return KVO_HWS_getDescriptionList(nullptr, &count);
                    },
                    {},
                    {"asked"},
                    -7,
                    {kB + "null pointer received"}},
        RequestCase{"null_count",
                    [] {
                        KvoDescription list[1];
                        return KVO_HWS_getDescriptionList(list, nullptr);
                    },
                    {},
                    {"asked"},
                    -7,
                    {kB + "null pointer received"}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    Extended, StationLists,
    testing::Values(
        extended("two_stations", 2, kBothEx, {"2", "00000002 " + kOne + kExtension + kTwo + kExtension}, 1, 2, Seen::filled),
        extended("asks_for_the_capacity_not_the_count", 5, {"getCountElemDL_Ex", "getDL_ExV2 5"},
                 {"2", "00000002 " + kOne + kExtension + kTwo + kExtension}, 1, 2, Seen::filled),
        extended("cleared_when_a_list_has_come_that_fits", 2, kBothEx, {"0", "00000000 "}, 1, 0, Seen::cleared),
        extended("capacity_0_and_no_station", 0, {"getCountElemDL_Ex", "getDL_ExV2 0"}, {"0", "00000000 "}, 1, 0,
                 Seen::untouched),
        extended("too_small_at_the_count", 2, {"getCountElemDL_Ex"}, {"3"}, -3, 3, Seen::untouched,
                 {kE + "not enough memory (1)"}),
        extended("too_small_at_the_list", 1, {"getCountElemDL_Ex", "getDL_ExV2 1"}, {"1", "00000002 "}, -3, 2, Seen::untouched,
                 {kE + "not enough memory (2)"}),
        extended("count_with_a_blank", 2, {"getCountElemDL_Ex"}, {"5 "}, -1, 2, Seen::untouched, {kE + "wrong count reply"}),
        extended("count_failed", 2, {"getCountElemDL_Ex"}, {"failed"}, -1, 2, Seen::untouched,
                 {kE + "error sending request (count)"}),
        extended("list_failed", 2, kBothEx, {"2", "failed"}, -1, 2, Seen::untouched, {kE + "error sending request"}),
        extended("list_without_count", 2, kBothEx, {"2", "no list"}, -1, 2, Seen::untouched,
                 {kE + "can not get count from reply"}),
        extended("list_cut", 2, kBothEx, {"2", "00000002 " + kOne + kExtension}, -1, 2, Seen::firstOnly,
                 {kE + "can not get KVO list from reply"}),
        extended("no_service", 2, {}, {}, -2, 2, Seen::untouched, {kNoConnection, kE + "can not send request (count)"}),
        RequestCase{"null_list_asks_for_the_number",
                    [] {
                        uint32_t count = 100;
                        const int32_t code = KVO_HWS_getDescriptionListEx(nullptr, &count);
                        EXPECT_EQ(count, 7U);
                        return code;
                    },
                    {"getCountElemDL_Ex"},
                    {"7"},
                    -3,
                    {kE + "not enough memory (1)"}},
        RequestCase{"null_list_is_too_small_even_for_none",
                    [] {
                        uint32_t count = 100;
                        const int32_t code = KVO_HWS_getDescriptionListEx(nullptr, &count);
                        EXPECT_EQ(count, 0U);
                        return code;
                    },
                    {"getCountElemDL_Ex"},
                    {"0"},
                    -3,
                    {kE + "not enough memory (1)"}},
        RequestCase{"null_count",
                    [] {
                        KvoDescriptionEx list[1];
                        return KVO_HWS_getDescriptionListEx(list, nullptr);
                    },
                    {},
                    {"asked"},
                    -7,
                    {kE + "null pointer received"}}),
    support::nameOf);

TEST(StationListsInBetween, a_service_that_goes_away_between_the_requests_is_told_without_the_count)
{
    const support::MessagesOn messages;
    for (const bool withExtension : {false, true}) {
        const support::ScriptedService service({support::replies("0"), support::closesAfterRequest()});
        const support::SyslogCapture capture;
        uint32_t count = 1;
        KvoDescription list[1];
        KvoDescriptionEx listEx[1];
        EXPECT_EQ(withExtension ? KVO_HWS_getDescriptionListEx(listEx, &count) : KVO_HWS_getDescriptionList(list, &count), -1);
        EXPECT_EQ(capture.texts(), (std::vector<std::string>{"command socket - can not read from socket",
                                                             (withExtension ? kE : kB) + "can not send request"}));
    }
}

// ---- One station ----

const std::string kX = "get KVO description extended - ";

RequestCase lookUp(const std::string &name, uint32_t address, const char *key, std::string command,
                   std::vector<std::string> replies, int32_t result, std::vector<std::string> messages = {})
{
    const bool asks = !command.empty() && !replies.empty();
    return {name,
            [=] {
                KvoDescriptionEx record;
                std::memset(&record, 0x5A, sizeof record);
                const int32_t code = KVO_HWS_getDescriptionEx(address, key, &record);
                if (result == 1) {
                    EXPECT_EQ(record.address, 0x0A000005U);
                    EXPECT_STREQ(record.name, "st1");
                    EXPECT_EQ(record.name[259], '\0') << "the whole record is cleared first";
                    EXPECT_EQ(record.extAttr7, 0x77U);
                } else if (replies.empty() || replies[0].size() < 20) {
                    EXPECT_EQ(record.address, kPattern);
                } else {
                    EXPECT_EQ(record.name[259], '\0') << "cleared before the malformed reply was read";
                }
                return code;
            },
            asks ? std::vector<std::string>{std::move(command)} : std::vector<std::string>{},
            std::move(replies),
            result,
            std::move(messages)};
}

INSTANTIATE_TEST_SUITE_P(
    One, StationLists,
    testing::Values(lookUp("by_address", 0x0A000005, nullptr, "getExDescByIP 0A000005", {kOne + kExtension}, 1),
                    lookUp("by_name", 0, "x", "getExDescByName x", {kOne + kExtension}, 1),
                    lookUp("an_address_comes_before_a_name", 0x0A000005, "x", "getExDescByIP 0A000005", {kOne + kExtension}, 1),
                    lookUp("not_found", 0, "x y", "getExDescByName x y", {"not found"}, 0),
                    lookUp("no_key", 0, nullptr, "", {"asked"}, -1),
                    lookUp("failed", 0, "x", "getExDescByName x", {"failed"}, -1, {kX + "error sending request (count)"}),
                    lookUp("malformed", 0, "x", "getExDescByName x", {kOne + kExtension.substr(9)}, -1),
                    lookUp("no_service", 0, "x", "", {}, -2, {kNoConnection, kX + "can not send request (count)"}),
                    RequestCase{"null_record",
                                [] { return KVO_HWS_getDescriptionEx(1, nullptr, nullptr); },
                                {},
                                {"asked"},
                                -7,
                                {kX + "null pointer received"}},
                    RequestCase{"no_key_comes_before_the_null_record",
                                [] { return KVO_HWS_getDescriptionEx(0, nullptr, nullptr); },
                                {},
                                {"asked"},
                                -1}),
    support::nameOf);

TEST(StationLookUp, a_command_beyond_1024_bytes_is_sent_cut)
{
    const support::ScriptedService service({support::replies("not found")});
    KvoDescriptionEx record;
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0, std::string(2000, 'n').c_str(), &record), 0);
    EXPECT_EQ(service.requests().at(0), ("getExDescByName " + std::string(2000, 'n')).substr(0, 1023) + "\n");
}

}  // namespace
