// What the channels log when they send and when they read.
#include "library/log_texts/collector.h"
#include "support/no_descriptors.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using log_texts::Collector;
using log_texts::kAll;
using log_texts::kMessagesOnly;
using support::ScriptedService;

void collectSenders(Collector &collector)
{
    const auto sendBoth = [](const std::string &text) {
        return [text] {
            support::onOwnThread([text] { return FuncSendCommand2DLL(strdup(text.c_str())); });
            support::onOwnThread([text] { return SendUsbMsg2DLL(text.c_str()); });
        };
    };
    for (const std::string &text : {std::string("suicide"), std::string("state"), std::string(1023, 'x')}) {
        collector.run("senders", kAll, sendBoth(text));
    }
    {
        const ScriptedService server({support::replies("ok")}, support::kUsbSocket);
        collector.run("senders", kAll, sendBoth("suicide"));
    }
    // More than a socket buffers, to a peer that never reads it.
    const ScriptedService gone({support::closesAtOnce()});
    collector.run("command socket", kMessagesOnly, [] {
        DynBuffer reply{};
        SendCommand2ServiceDyn(std::string(5'000'000, 'x').c_str(), &reply);
    });
    collector.run("senders", kAll, [] {
        support::onOwnThread([] {
            const support::NoDescriptors none;
            return FuncSendCommand2DLL(strdup("suicide"));
        });
        support::onOwnThread([] {
            const support::NoDescriptors none;
            return SendUsbMsg2DLL("suicide");
        });
    });
    collector.run("command socket", kMessagesOnly, [] {
        const support::NoDescriptors none;
        KVO_HWS_getDebugLevel();
    });
}

void collectReaders(Collector &collector)
{
    const auto readAll = [](int fd) {
        return [fd] {
            char line[1025];
            DynBuffer reply{};
            SocketCache cache{};
            ReadSocket(fd, line);
            ReadSocketDyn(fd, &reply);
            free(reply.pcData);
            ReadSocketCache(fd, line, &cache, 10);
        };
    };
    collector.run("readers", kAll, readAll(-1));
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[1], "a\nb\nc\n", 6), 6);
    collector.run("readers", kAll, readAll(ends[0]));
    collector.run("readers", kAll, readAll(ends[0]));  // silent
    close(ends[1]);
    collector.run("readers", kAll, readAll(ends[0]));
    close(ends[0]);
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "a\n", 2), 2);
    collector.run("readers", kAll, readAll(ends[0]));
    close(ends[0]);
    close(ends[1]);
    for (int reader = 0; reader < 3; ++reader) {
        // A peer that closes with unread bytes resets the connection; the reset is reported only once.
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_EQ(write(ends[0], "x", 1), 1);
        close(ends[1]);
        collector.run("readers", kAll, [reader, fd = ends[0]] {
            char line[1025];
            DynBuffer reply{};
            SocketCache cache{};
            if (reader == 0) {
                ReadSocket(fd, line);
            } else if (reader == 1) {
                ReadSocketDyn(fd, &reply);
            } else {
                ReadSocketCache(fd, line, &cache, 10);
            }
        });
        close(ends[0]);
    }
}

TEST(LogTexts, of_the_channels_are_as_listed)
{
    Collector collector;
    collector.run("debug mode", kAll, [] {
        KVO_HWS_activateDebugDLL();
        KVO_HWS_deactivateDebugDLL();
    });
    collectSenders(collector);
    collectReaders(collector);
    collector.expectSeen("channels");
}

}  // namespace
