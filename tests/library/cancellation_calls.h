// Calls of the exported functions by name. A pending cancellation could take effect in each of them.
#pragma once

#include <kvo_hws/runtime.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <type_traits>
#include <unistd.h>

namespace cancellation {

using Call = std::function<void()>;
using Calls = std::map<std::string, Call>;

/// The requests of the catalogue.
Calls requestCalls();
/// The functions of runtime.h, service.h, codecs.h and config.h, and the requests that the catalogue does not call.
Calls otherCalls();
/// The functions of usbevents.h, and those of agent.h except the handlers.
Calls eventCalls();

/// Runs the call under test with cancellation enabled. Before and after it cancellation is disabled, so that the test's own
/// code completes.
template <class Work>
void exposed(Work work)
{
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    work();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

/// The target of pointer arguments: zeros, so that sizes are 0, texts are empty and records are clear.
using Area = std::array<std::max_align_t, 512>;

inline Call exposing(void (*work)())
{
    return [work] { exposed(work); };
}

template <class Argument>
Argument blank(std::deque<Area> &areas)
{
    if constexpr (std::is_pointer_v<Argument>) {
        return reinterpret_cast<Argument>(areas.emplace_back().data());
    } else {
        return Argument{1};
    }
}

/// A call for which any arguments will do.
template <class Result, class... Arguments>
Call blankly(Result (*function)(Arguments...))
{
    return [function] {
        std::deque<Area> areas;
        exposed([&] { function(blank<Arguments>(areas)...); });
    };
}

#define BLANKLY(name)                                                                                                          \
    {                                                                                                                          \
#name, blankly(name)                                                                                                   \
    }

/// One end of a connection on which a line can be read.
class Connected {
public:
    explicit Connected(const std::string &line = "line\n")
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()), 0);
        EXPECT_EQ(write(ends_[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }
    Connected(const Connected &) = delete;
    Connected &operator=(const Connected &) = delete;
    ~Connected()
    {
        if (!given_) {
            close(ends_[0]);
        }
        close(ends_[1]);
    }

    [[nodiscard]] int fd() const { return ends_[0]; }
    void *give()
    {
        given_ = true;
        return reinterpret_cast<void *>(static_cast<std::intptr_t>(ends_[0]));
    }

private:
    std::array<int, 2> ends_{};
    bool given_ = false;
};

inline Notify *newNotify()
{
    Notify *record = nullptr;
    CreateNotify(&record);
    return record;
}

/// A host's callback that is a cancellation point.
template <class... Arguments>
int32_t testsForCancellation(Arguments... /*arguments*/)
{
    pthread_testcancel();
    return 1;
}

}  // namespace cancellation
