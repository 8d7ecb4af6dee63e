// A tap on a thread of its own, which keeps everything that it reports.
#pragma once

#include "common/tap/tap.h"

#include "support/eventually.h"

#include <functional>
#include <mutex>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tap_test {

using tools::recording::Exchange;
using tools::tap::Peer;

struct Reported {
    Peer peer;
    Exchange exchange;
};

class Reports : public tools::tap::Observer {
public:
    void onExchange(const Peer &peer, Exchange exchange) override
    {
        const std::lock_guard lock(mutex_);
        exchanges_.push_back({peer, std::move(exchange)});
    }
    void onNote(tools::recording::Microseconds /*at*/, const std::string &text) override
    {
        const std::lock_guard lock(mutex_);
        notes_.push_back(text);
    }
    void onGivenUp(const std::string &reason) override
    {
        const std::lock_guard lock(mutex_);
        givenUp_ = reason;
    }

    [[nodiscard]] std::vector<Reported> exchanges() const
    {
        const std::lock_guard lock(mutex_);
        return exchanges_;
    }
    [[nodiscard]] std::vector<std::string> notes() const
    {
        const std::lock_guard lock(mutex_);
        return notes_;
    }
    [[nodiscard]] std::string givenUp() const
    {
        const std::lock_guard lock(mutex_);
        return givenUp_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Reported> exchanges_;
    std::vector<std::string> notes_;
    std::string givenUp_;
};

/// "REQUEST -> REPLY END" of an exchange.
inline std::string shown(const Exchange &exchange)
{
    static const char *const kEnds[] = {"closed", "left", "reset", "open"};
    return tools::recording::joined(exchange.request) + (exchange.requestEnded ? "|" : "") + "-> " +
           tools::recording::joined(exchange.reply) + kEnds[static_cast<int>(exchange.end)];
}

/// The exchanges of a kind so far, as "REQUEST -> REPLY END".
inline std::vector<std::string> shownOf(const Reports &reports, tools::recording::Kind kind)
{
    std::vector<std::string> lines;
    for (const Reported &one : reports.exchanges()) {
        if (one.exchange.kind == kind) {
            lines.push_back(shown(one.exchange));
        }
    }
    return lines;
}

class RunningTap {
public:
    enum class Of { allPrograms, oneProgram };

    explicit RunningTap(Of programs = Of::allPrograms)
    {
        if (programs == Of::allPrograms) {
            tap_ = tools::tap::attach(loop_, reports_, tools::Clock::now());
        } else {
            tools::tap::ProgramTap made = tools::tap::tapOfProgram(loop_, reports_, tools::Clock::now());
            tap_ = std::move(made.tap);
            enter_ = std::move(made.enter);
        }
        loop_.watch(ending_.get(), EPOLLIN, [this](uint32_t) {
            loop_.unwatch(ending_.get());
            tap_->end([this] { loop_.stop(); });
        });
        thread_ = std::thread([this] { loop_.run(); });
    }
    RunningTap(const RunningTap &) = delete;
    RunningTap &operator=(const RunningTap &) = delete;
    ~RunningTap() { stop(); }

    /// Ends as after the first Ctrl-C.
    void end()
    {
        eventfd_write(ending_.get(), 1);
        join();
        tap_.reset();
    }
    /// Ends as after the second one.
    void stop()
    {
        loop_.stop();
        join();
        tap_.reset();
    }

    /// Starts a shell command in the private place of Of::oneProgram. @p output  the file of its standard output
    pid_t start(const std::string &command, const std::string &output) const
    {
        const pid_t child = fork();
        if (child == 0) {
            enter_();
            execl("/bin/sh", "sh", "-c", ("exec > " + output + " 2>&1; " + command).c_str(), nullptr);
            _exit(127);
        }
        return child;
    }
    [[nodiscard]] const Reports &reports() const { return reports_; }
    /// Waits until @p count exchanges have been reported, and returns them.
    std::vector<Reported> exchanges(std::size_t count)
    {
        support::eventually([&] { return reports_.exchanges().size() >= count; });
        return reports_.exchanges();
    }

private:
    void join()
    {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    Reports reports_;
    tools::EventLoop loop_;
    tools::Descriptor ending_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::unique_ptr<tools::tap::Tap> tap_;
    std::function<void()> enter_;
    std::thread thread_;
};

}  // namespace tap_test
