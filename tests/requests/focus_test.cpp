// Focus, start and channel information, row by row.
#include <kvo_hws/requests.h>

#include "support/request_rows.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using support::Filled;
using support::kStation;
using support::RequestCase;
using support::Rows;
using support::stores;
using support::storesNothing;

class Focus : public testing::TestWithParam<RequestCase> {};

TEST_P(Focus, behaves_as_its_row) { support::check(GetParam()); }

// ---- Suspend options ----

constexpr uint32_t kUntouched = support::Out<uint32_t>::kUntouched;

Rows::Call suspendOptions(uint32_t lock, uint32_t priority)
{
    return [=] {
        uint32_t lockOut = kUntouched;
        uint32_t priorityOut = kUntouched;
        const int32_t result = KVO_HWS_getKVOPriority(kStation, &lockOut, &priorityOut);
        EXPECT_EQ(lockOut, lock);
        EXPECT_EQ(priorityOut, priority);
        return result;
    };
}

std::vector<RequestCase> priorityRows()
{
    Rows rows("get KVO priority", "getKVOPriority=0A000005", suspendOptions(kUntouched, kUntouched));
    rows.value("Priority=", 1, suspendOptions(0, 1))
        .value("Priority=:", 1, suspendOptions(0, 1))
        .value("Priority=0:", 1, suspendOptions(0, 1))
        .value("Priority=1:", 1, suspendOptions(1, 1))
        .value("Priority=1:3", 1, suspendOptions(1, 3))
        .value("Priority=1:10", 1, suspendOptions(1, 10))
        .value("Priority=:7", 1, suspendOptions(0, 7))
        .unknown("priority=1:3");
    for (const char *malformed : {"1", "2:3", "0:0", "0:11", "0:5 ", "x", " 1:3", "+1:3", "-1:3", ":x", ":+5", "1 :5",
                                  "4294967296:1", ":4294967297", "::", "1:3:"}) {
        rows.on(std::string("Priority=") + malformed, -1, "error get suspend options");
    }
    return rows.rows();
}

INSTANTIATE_TEST_SUITE_P(Priority, Focus, testing::ValuesIn(priorityRows()), support::nameOf);

// ---- Numbers ----

int32_t startupActive(uint32_t *out) { return KVO_HWS_getKVOStartupActive(kStation, out); }
int32_t startupPrio(uint32_t *out) { return KVO_HWS_getKVOStartupPrio(kStation, out); }
int32_t channelOnFocus(uint32_t *out) { return KVO_HWS_getKVOChannelOnFocus(kStation, out); }

INSTANTIATE_TEST_SUITE_P(StartupActive, Focus,
                         testing::ValuesIn(Rows("get KVO startup active", "getKVOStartupActive=0A000005",
                                                storesNothing<uint32_t>(startupActive))
                                               .value("startup-active=0", 1, stores<uint32_t>(startupActive, 0))
                                               .value("startup-active=2", 1, stores<uint32_t>(startupActive, 2))
                                               .on("startup-active=3", -1)
                                               .on("startup-active=1 ", -1)
                                               .on("startup-active=-1", -1)
                                               .nullPointer([] { return startupActive(nullptr); })
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(StartupPrio, Focus,
                         testing::ValuesIn(Rows("get KVO startup prio", "getKVOStartupPrio=0A000005",
                                                storesNothing<uint32_t>(startupPrio))
                                               .value("startup-prio=70", 1, stores<uint32_t>(startupPrio, 70))
                                               .value("startup-prio=4294967295", 1, stores<uint32_t>(startupPrio, 0xFFFFFFFF))
                                               .value("startup-prio=4294967298", 1,
                                                      stores<uint32_t>(startupPrio, sizeof(long) == 8 ? 2 : 0xFFFFFFFF))
                                               .on("startup-prio=70x", -1)
                                               .nullPointer([] { return startupPrio(nullptr); })
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(ChannelOnFocus, Focus,
                         testing::ValuesIn(Rows("get KVO channel on focus", "getKVOChannelOnFocus=0A000005",
                                                storesNothing<uint32_t>(channelOnFocus))
                                               .value("channel-on-focus=1", 1, stores<uint32_t>(channelOnFocus, 1))
                                               .value("channel-on-focus=8", 1, stores<uint32_t>(channelOnFocus, 8))
                                               .on("channel-on-focus=0", -1)
                                               .on("channel-on-focus=9", -1)
                                               .on("channel-on-focus=", -1)
                                               .on("channel-on-focus=1 ", -1)
                                               .nullPointer([] { return channelOnFocus(nullptr); })
                                               .rows()),
                         support::nameOf);

const std::string kLong(1500, 't');  // more than one read of the channel

// ---- Texts ----

Rows::Call text(int32_t (*get)(uint32_t, char *), const char *expected)
{
    return [=] {
        Filled<2048> buffer;
        const int32_t result = get(kStation, buffer.bytes());
        buffer.expectText(expected);
        return result;
    };
}

INSTANTIATE_TEST_SUITE_P(
    ScreenOnFocus, Focus,
    testing::ValuesIn(Rows("get KVO screen on focus", "getKVOScreenOnFocus=0A000005",
                           text(KVO_HWS_getKVOScreenOnFocus, nullptr))
                          .value("screen-on-focus=machine", 1, text(KVO_HWS_getKVOScreenOnFocus, "machine"))
                          .value("screen-on-focus=" + kLong, 1, text(KVO_HWS_getKVOScreenOnFocus, kLong.c_str()))
                          .value("screen-on-focus=", 1, text(KVO_HWS_getKVOScreenOnFocus, ""))
                          .nullPointer([] { return KVO_HWS_getKVOScreenOnFocus(kStation, nullptr); })
                          .rows()),
    support::nameOf);

// Whatever the daemon answers is the text; only "failed" is none.
INSTANTIATE_TEST_SUITE_P(
    T2M2N, Focus,
    testing::Values(
        RequestCase{"text", text(KVO_HWS_getKVOT2M2N, "1:2 3:4"), {"getKVOt2m2n=0A000005"}, {"1:2 3:4"}, 1},
        RequestCase{"unknown_is_a_text", text(KVO_HWS_getKVOT2M2N, "unknown"), {"getKVOt2m2n=0A000005"}, {"unknown"}, 1},
        RequestCase{"empty_is_a_text", text(KVO_HWS_getKVOT2M2N, ""), {"getKVOt2m2n=0A000005"}, {""}, 1},
        RequestCase{
            "failed_with_a_blank_is_a_text", text(KVO_HWS_getKVOT2M2N, "failed "), {"getKVOt2m2n=0A000005"}, {"failed "}, 1},
        RequestCase{"failed",
                    text(KVO_HWS_getKVOT2M2N, nullptr),
                    {"getKVOt2m2n=0A000005"},
                    {"failed"},
                    -1,
                    {"get KVO M:N - error sending request"}},
        RequestCase{"null_pointer",
                    [] { return KVO_HWS_getKVOT2M2N(kStation, nullptr); },
                    {},
                    {"asked"},
                    -7,
                    {"get KVO M:N - null pointer received"}},
        RequestCase{"no_service",
                    text(KVO_HWS_getKVOT2M2N, nullptr),
                    {},
                    {},
                    -2,
                    {support::kNoConnection, "get KVO M:N - can not send request"}}),
    support::nameOf);

// ---- Channel information ----

const std::string kLongest(230, 'i');

INSTANTIATE_TEST_SUITE_P(
    SetChannelInfo, Focus,
    testing::ValuesIn(Rows("set channel info", "setChannelInfo=\"turning 2\" 0A000005",
                           [] { return KVO_HWS_setChannelInfo(kStation, "turning 2"); })
                          .on("ok", 1)
                          .sends("setChannelInfo=\"\" 0A000005", [] { return KVO_HWS_setChannelInfo(kStation, ""); })
                          .sends("setChannelInfo=\"" + kLongest + "\" 0A000005",
                                 [] { return KVO_HWS_setChannelInfo(kStation, kLongest.c_str()); })
                          .sends("setChannelInfo=\"a\"b\" 0A000005", [] { return KVO_HWS_setChannelInfo(kStation, "a\"b"); })
                          .refused([] { return KVO_HWS_setChannelInfo(kStation, (kLongest + "i").c_str()); }, -3,
                                   "channel info to long (max. 230)")
                          .nullPointer([] { return KVO_HWS_setChannelInfo(kStation, nullptr); })
                          .rows()),
    support::nameOf);

Rows::Call channelInfo(uint32_t size, const char *expected, uint32_t sizeOut)
{
    return [=] {
        Filled<64> buffer;
        uint32_t told = size;
        const int32_t result = KVO_HWS_getChannelInfo(kStation, buffer.bytes(), &told);
        buffer.expectText(expected);
        EXPECT_EQ(told, sizeOut);
        return result;
    };
}

INSTANTIATE_TEST_SUITE_P(GetChannelInfo, Focus,
                         testing::ValuesIn(Rows("get channel info", "getChannelInfo=0A000005", channelInfo(16, nullptr, 16))
                                               .value("channel-info=abc", 1, channelInfo(4, "abc", 4))
                                               .value("channel-info=abc", 1, channelInfo(16, "abc", 16))
                                               .value("channel-info=abc", -3, channelInfo(3, nullptr, 4))
                                               .value("channel-info=abc", -3, channelInfo(0, nullptr, 4))
                                               .value("channel-info=", 0, channelInfo(0, nullptr, 0))
                                               .value("channel-info=", 0, channelInfo(1, "", 1))
                                               .nullPointer(
                                                   [] {
                                                       char buffer[4];
                                                       EXPECT_EQ(KVO_HWS_getChannelInfo(kStation, buffer, nullptr), -7);
                                                       uint32_t size = 4;
                                                       return KVO_HWS_getChannelInfo(kStation, nullptr, &size);
                                                   },
                                                   "", 2)
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(DeleteChannelInfo, Focus,
                         testing::ValuesIn(Rows("delete channel info", "deleteChannelInfo=0A000005",
                                                [] { return KVO_HWS_deleteChannelInfo(kStation); })
                                               .on("ok", 1)
                                               .rows()),
                         support::nameOf);

}  // namespace
