// The acceptor, when no descriptors are left.
#include "common/acceptor.h"

#include "common/listening_socket.h"

#include "support/system_calls.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <optional>

using namespace std::chrono_literals;

namespace {

// A listening socket stays readable while the acceptor cannot accept.
TEST(Acceptor, pauses_while_descriptors_are_exhausted)
{
    const kvosim_test::TemporaryDirectory directory;
    const tools::ListeningSocket listener(directory / "socket");
    tools::EventLoop loop;
    bool taken = false;
    const tools::Acceptor acceptor(loop, listener.get(), [&](const tools::Descriptor &) {
        taken = true;
        loop.stop();
    });
    const kvosim_test::Client client(directory / "socket");
    std::atomic<int> tries = 0;
    std::optional<support::WithSystemCalls> without(std::in_place, support::SystemCalls{.accept4 = [&](int) {
                                                        ++tries;
                                                        errno = EMFILE;
                                                        return -1;
                                                    }});
    loop.after(500ms, [&] {
        EXPECT_FALSE(taken);
        without.reset();
    });
    loop.after(5s, [&] { loop.stop(); });
    loop.run();
    EXPECT_TRUE(taken) << "as soon as descriptors are available again";
    EXPECT_GE(tries, 1);
    EXPECT_LE(tries, 6);
}

}  // namespace
