#include "kvoctl/report/gathering.h"

#include "common/event_loop.h"
#include "common/json.h"
#include "common/signals.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

using namespace std::chrono_literals;
using tools::Descriptor;

/// A trace completes the requests in progress first.
constexpr auto kGrace = 10s;
constexpr auto kTick = 100ms;
constexpr std::size_t kLongestMessages = 1024UL * 1024;

Descriptor memory(const char *name) { return {memfd_create(name, MFD_CLOEXEC), "memfd_create"}; }

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = TEMP_FAILURE_RETRY(::write(descriptor, text.data(), text.size()));
        if (count <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string readFromStart(const Descriptor &file, std::size_t longest = std::string::npos)
{
    const off_t size = lseek(file.get(), 0, SEEK_END);
    std::string text(std::min<std::size_t>(size > 0 ? static_cast<std::size_t>(size) : 0, longest), '\0');
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count =
            TEMP_FAILURE_RETRY(pread(file.get(), text.data() + done, text.size() - done, static_cast<off_t>(done)));
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    text.resize(done);
    return text;
}

std::string make(const Part &part, const Circumstances &circumstances)
{
    try {
        return encode(part.make(circumstances));
    } catch (const std::exception &error) {
        return encodeFailure(error.what());
    }
}

}  // namespace

struct Gathering::Child {
    Descriptor result = memory("result");
    Descriptor messages = memory("messages");
    Descriptor progress{};
    Descriptor progressWriter{};
    pid_t id = -1;
    Descriptor process{};  ///< a pidfd

    void start(const Part &part, Circumstances circumstances, const sigset_t &mask)
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        progress = Descriptor(ends[0]);
        progressWriter = Descriptor(ends[1]);
        const pid_t parent = getpid();
        id = fork();
        if (id < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (id == 0) {
            run(part, circumstances, mask, parent);
        }
        setpgid(id, id);  // both processes do this, because one must be the first
        progressWriter = Descriptor();
        process = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0)), "pidfd_open");
    }

private:
    [[noreturn]] void run(const Part &part, Circumstances &circumstances, const sigset_t &mask, pid_t parent) const
    {
        setpgid(0, 0);  // the terminal's Ctrl-C reaches only the parent, which decides what happens
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) {
            _exit(1);
        }
        dup2(messages.get(), STDOUT_FILENO);
        dup2(messages.get(), STDERR_FILENO);
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
        circumstances.progress = [this](const std::string &text) {
            static_cast<void>(!writeAll(progressWriter.get(), text + '\n'));  // a full pipe loses only this text
        };
        const bool isWritten = writeAll(result.get(), make(part, circumstances));
        _exit(isWritten ? 0 : 1);  // not exit(): destructors of the parent's objects must not run here
    }
};

Gathering::Gathering(std::size_t count) : count_(count), line_(STDERR_FILENO)
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&ending, number);
    }
    pthread_sigmask(SIG_BLOCK, &ending, &mask_);
}

void Gathering::show(const Part &part, const std::string &progress)
{
    if (line_.isDue()) {
        line_.write(std::to_string(number_) + " of " + std::to_string(count_) + ": " + part.name +
                    (progress.empty() ? "" : ", " + progress));
    }
}

/// Returns when the child has ended.
void Gathering::attend(const Child &child, const Part &part, bool &isLate)
{
    tools::EventLoop loop;
    const auto kill = [&] {
        ::kill(-child.id, SIGTERM);  // and the programs that it has started
        loop.after(kGrace, [&] { ::kill(-child.id, SIGKILL); });
    };
    const tools::Signals signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&](const auto & /*signal*/) {
        ++orders_;
        kill();
    });
    loop.watch(child.process.get(), EPOLLIN, [&](uint32_t /*events*/) { loop.stop(); });
    std::string progress;
    loop.watch(child.progress.get(), EPOLLIN, [&](uint32_t /*events*/) {
        std::array<char, 4096> bytes{};
        const ssize_t count = read(child.progress.get(), bytes.data(), bytes.size());
        if (count <= 0) {
            loop.unwatch(child.progress.get());
            return;
        }
        const std::string_view lines(bytes.data(), static_cast<std::size_t>(count) - 1);
        progress = lines.substr(lines.rfind('\n') + 1);
    });
    const std::function<void()> tick = [&] {
        show(part, progress);
        loop.after(kTick, tick);
    };
    tick();
    loop.after(part.limit, [&] {
        isLate = true;
        kill();
    });
    loop.run();
    loop.unwatch(child.process.get());
}

Gathered Gathering::gather(const Part &part, Circumstances circumstances)
{
    ++number_;
    Gathered gathered{.made = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now())};
    if (isEnded()) {
        gathered.failure = "the report was ended before this part was made";
        return gathered;
    }
    std::optional<Child> child;
    try {
        child.emplace().start(part, std::move(circumstances), mask_);
    } catch (const std::system_error &error) {
        gathered.failure = std::string("no process could be started: ") + error.what();
        return gathered;
    }
    bool isLate = false;
    attend(*child, part, isLate);
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(child->id, &status, 0));
    if (orders_ > 1) {
        throw std::runtime_error("ended before the report was complete; no file was written");
    }
    gathered.messages = readFromStart(child->messages, kLongestMessages);
    try {
        gathered.content = decode(readFromStart(child->result));
        if (isEnded() || isLate) {
            gathered.content.notes.emplace_back("it was ended early");
        }
    } catch (const tools::Json::exception & /*error*/) {
        gathered.failure = isLate                ? "it was not done after " + std::to_string(part.limit.count()) + " s"
                           : isEnded()           ? "the report was ended while this part was made"
                           : WIFSIGNALED(status) ? std::string("kvoctl itself failed here: ") + strsignal(WTERMSIG(status))
                                                 : "kvoctl itself failed here: no memory";
    } catch (const std::runtime_error &error) {
        gathered.failure = error.what();
    }
    return gathered;
}

}  // namespace kvoctl::reporting
