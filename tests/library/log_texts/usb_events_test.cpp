// What the USB events log.
#include "library/log_texts/collector.h"
#include "support/no_descriptors.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/usb_events.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using log_texts::Collector;
using log_texts::kMessagesOnly;
using support::ScriptedService;

/// Serves a line on a connection's thread and waits until that ends.
void serveLine(const std::string &line)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[0], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    shutdown(ends[0], SHUT_WR);
    support::onOwnThread([end = ends[1]] { return ConInstThread(reinterpret_cast<void *>(intptr_t{end})); });
    close(ends[0]);
}

void collectUsbEvents(Collector &collector)
{
    const auto activate = [] { support::onOwnThread([] { return KVO_HWS_activateUSBEvents(support::EventRecorder::older); }); };
    const auto activateV2 = [] {
        support::onOwnThread([] { return KVO_HWS_activateUSBEventsV2(support::EventRecorder::newer); });
    };
    const auto closeEvents = [] { support::onOwnThread(KVO_HWS_closeUSBEvents); };
    for (const std::function<void()> &start : std::vector<std::function<void()>>{activate, activateV2}) {
        const ScriptedService service({support::acceptsAll()});
        collector.run("USB events", kMessagesOnly, [&] {
            const support::EventRecorder recorder;
            start();
            EXPECT_TRUE(recorder.waitFor(2));
            closeEvents();
            EXPECT_TRUE(recorder.waitFor(4));
            EXPECT_TRUE(support::eventually([] { return sendUSBEvent == nullptr && sendUSBEvent2 == nullptr; }));
            start();
            EXPECT_TRUE(recorder.waitFor(6));
            support::onOwnThread(KillUsbServer);
            // A server that listens but does not stop.
            const ScriptedService deaf({support::replies("ok")}, support::kUsbSocket);
            ServerPipeThreadSyncState = NOTIFY_RUNNING;
            start();
            sendUSBEvent = support::EventRecorder::older;
            ServerPipeThreadSyncState = NOTIFY_RUNNING;
            closeEvents();
        });
    }
    collector.run("USB events", kMessagesOnly, [&] {
        KVO_HWS_activateUSBEvents(nullptr);
        KVO_HWS_activateUSBEventsV2(nullptr);
        closeEvents();
        for (const char *line :
             {"newUSBdevice*\n", "ignoreUSBdevice*\n", "removeUSBdevice*\n", "changeStateUSBdevice*\n", "what\n", ""}) {
            serveLine(line);
            sendUSBEvent2 = support::EventRecorder::newer;
            serveLine(line);
            sendUSBEvent2 = nullptr;
        }
        support::onOwnThread([] {
            const support::NoDescriptors none;
            return win_kvo_hws_usb_server(nullptr);
        });
    });
}

TEST(LogTexts, of_the_usb_events_are_as_listed)
{
    Collector collector;
    collectUsbEvents(collector);
    collector.expectSeen("usb_events");
}

}  // namespace
