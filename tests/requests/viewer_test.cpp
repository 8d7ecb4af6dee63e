// The viewer's requests, row by row.
#include <kvo_hws/requests.h>

#include "support/request_rows.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

using support::kNoConnection;
using support::kStation;
using support::RequestCase;
using support::Rows;

class Viewer : public testing::TestWithParam<RequestCase> {};

TEST_P(Viewer, behaves_as_its_row) { support::check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(SetStatusline, Viewer,
                         testing::ValuesIn(Rows("set status line", "setStatusline=0A000005,1,2,Hello",
                                                [] { return KVO_HWS_setStatusline(kStation, 1, 2, "Hello"); })
                                               .on("ok", 1)
                                               .sends("setStatusline=0A000005,4294967295,4294967294,",
                                                      [] {
                                                          return KVO_HWS_setStatusline(kStation, 0xFFFFFFFF, 0xFFFFFFFE, "");
                                                      })
                                               .nullPointer([] { return KVO_HWS_setStatusline(kStation, 1, 2, nullptr); })
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    Reboot, Viewer,
    testing::ValuesIn(Rows("set reboot", "reboot=0A000005", [] { return KVO_HWS_rebootKVO(kStation); }).on("ok", 1).rows()),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(IsViewerActive, Viewer,
                         testing::ValuesIn(Rows("is viewer active", "isViewerActive=0A000005",
                                                [] { return KVO_HWS_isViewerActive(kStation); })
                                               .on("active", 1)
                                               .on("not active", 0)
                                               .unknown("Active")
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(ActivateMe, Viewer,
                         testing::ValuesIn(Rows("activate me", "activateMe=0A000005",
                                                [] { return KVO_HWS_setActivateMe(kStation); })
                                               .on("ok", 1)
                                               .on("busy", 0)
                                               .rows()),
                         support::nameOf);

// The null check says "set start viewer", everything else "start viewer".
INSTANTIATE_TEST_SUITE_P(
    StartViewer, Viewer,
    testing::ValuesIn(Rows("start viewer", "startViewer=\"a:b:c\" 0A000005",
                           [] { return KVO_HWS_setStartViewer(kStation, "a", "b", "c"); })
                          .on("ok", 1)
                          .on("busy", 0)
                          .nullPointer([] { return KVO_HWS_setStartViewer(kStation, nullptr, "b", "c"); }, "set start viewer")
                          .nullPointer([] { return KVO_HWS_setStartViewer(kStation, "a", nullptr, "c"); }, "set start viewer")
                          .nullPointer([] { return KVO_HWS_setStartViewer(kStation, "a", "b", nullptr); }, "set start viewer")
                          .rows()),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(StartConfiguredViewer, Viewer,
                         testing::ValuesIn(Rows("start configured viewer", "startConfiguredViewer=\"cfg:3\" 0A000005",
                                                [] { return KVO_HWS_startConfiguredViewer(kStation, "cfg", 3); })
                                               .on("ok", 1)
                                               .on("busy", 0)
                                               .sends("startConfiguredViewer=\"cfg:4294967295\" 0A000005",
                                                      [] { return KVO_HWS_startConfiguredViewer(kStation, "cfg", 0xFFFFFFFF); })
                                               .nullPointer([] { return KVO_HWS_startConfiguredViewer(kStation, nullptr, 3); })
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(StopViewer, Viewer,
                         testing::ValuesIn(Rows("stop viewer", "stopViewer=0A000005",
                                                [] { return KVO_HWS_setStopViewer(kStation); })
                                               .on("ok", 1)
                                               .on("not running", 0)
                                               .unknown("not running ")
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(StopViewerPreempt, Viewer,
                         testing::ValuesIn(Rows("stop viewer preempt", "stopViewerPreempt=0A000005",
                                                [] { return KVO_HWS_setStopViewerPreempt(kStation); })
                                               .on("ok", 1)
                                               .on("not running", 0)
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(StopViewerNoClean, Viewer,
                         testing::ValuesIn(Rows("stop viewer no clean", "stopViewerNoClean=0A000005",
                                                [] { return KVO_HWS_setStopViewerNoClean(kStation); })
                                               .on("ok", 1)
                                               .on("not running", 0)
                                               .rows()),
                         support::nameOf);

// ---- The one reply with two parts ----

/// What is expected of the two buffers; null: nothing was written there.
struct Parts {
    const char *server;
    uint32_t serverSize;
    const char *display;
    uint32_t displaySize;
};

std::function<int32_t()> currentServer(uint32_t serverSize, uint32_t displaySize, const Parts &expected)
{
    return [=] {
        support::Filled<2048> server;
        support::Filled<2048> display;
        uint32_t serverSizeOut = serverSize;
        uint32_t displaySizeOut = displaySize;
        const int32_t result =
            KVO_HWS_getCurrentServer(kStation, server.bytes(), &serverSizeOut, display.bytes(), &displaySizeOut);
        server.expectText(expected.server);
        display.expectText(expected.display);
        EXPECT_EQ(serverSizeOut, expected.serverSize);
        EXPECT_EQ(displaySizeOut, expected.displaySize);
        return result;
    };
}

const std::string kLongest(1024, 's');

INSTANTIATE_TEST_SUITE_P(
    CurrentServer, Viewer,
    testing::ValuesIn(Rows("get current server", "getCurServer=0A000005", currentServer(16, 4, {nullptr, 16, nullptr, 4}))
                          .on("none", 0)
                          .value("vncserver=10.0.0.7:3", 1, currentServer(16, 4, {"10.0.0.7", 9, "3", 2}))
                          .value("vncserver=10.0.0.7:3", 1, currentServer(9, 2, {"10.0.0.7", 9, "3", 2}))
                          .value("vncserver=10.0.0.7:3", -3, currentServer(8, 4, {nullptr, 9, nullptr, 4}))
                          .value("vncserver=10.0.0.7:3", -4, currentServer(9, 1, {"10.0.0.7", 9, nullptr, 2}))
                          .value("vncserver=10.0.0.7:3", -4, currentServer(9, 0, {"10.0.0.7", 9, nullptr, 2}))
                          .value("vncserver=:", 1, currentServer(1, 1, {"", 1, "", 1}))
                          .value("vncserver=:", -3, currentServer(0, 1, {nullptr, 1, nullptr, 1}))
                          .value("vncserver=a:b:c x", 1, currentServer(16, 16, {"a", 2, "b:c x", 6}))
                          .value("vncserver10.0.0.7:3", -1, currentServer(16, 4, {nullptr, 16, nullptr, 4}))
                          .value("vncserver=10.0.0.7", -1, currentServer(16, 4, {nullptr, 16, nullptr, 4}))
                          .value("vncserver", -1, currentServer(16, 4, {nullptr, 16, nullptr, 4}))
                          .value("vncserver=" + kLongest + ":3", 1, currentServer(1025, 4, {kLongest.c_str(), 1025, "3", 2}))
                          .value("vncserver=" + kLongest + "s:3", -1, currentServer(2000, 4, {nullptr, 2000, nullptr, 4}))
                          .value("vncserver=" + kLongest + "s:3", -1, currentServer(4, 4, {nullptr, 4, nullptr, 4}))
                          .value("vncserver=a:" + kLongest + "s", -1, currentServer(4, 4, {"a", 2, nullptr, 4}))
                          .value("vncserver=a:" + kLongest, 1, currentServer(4, 1025, {"a", 2, kLongest.c_str(), 1025}))
                          .value("vncserver=a:" + kLongest + "s", -1, currentServer(4, 2000, {"a", 2, nullptr, 2000}))
                          .unknown("vncserve=a:b")
                          .nullPointer(
                              [] {
                                  char text[8];
                                  uint32_t size = 8;
                                  EXPECT_EQ(KVO_HWS_getCurrentServer(kStation, text, nullptr, text, &size), -7);
                                  EXPECT_EQ(KVO_HWS_getCurrentServer(kStation, text, &size, nullptr, &size), -7);
                                  EXPECT_EQ(KVO_HWS_getCurrentServer(kStation, text, &size, text, nullptr), -7);
                                  return KVO_HWS_getCurrentServer(kStation, nullptr, &size, text, &size);
                              },
                              "", 4)
                          .rows()),
    support::nameOf);

}  // namespace
