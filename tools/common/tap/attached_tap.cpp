// A tap between all programs of this machine and the service.
#include "common/command_socket.h"
#include "common/refused.h"
#include "common/tap/activation.h"
#include "common/tap/ending.h"
#include "common/tap/event_listener.h"
#include "common/tap/folder_watch.h"
#include "common/tap/links.h"
#include "common/tap/tap.h"
#include "common/tap/tap_guardian.h"
#include "common/tap/tapped_socket.h"

#include <exception>
#include <string_view>

namespace tools::tap {

namespace {

const std::filesystem::path kCommands = kCommandSocket;
const std::filesystem::path kUsbEvents = kUsbEventSocket;

class AttachedTap : public Tap {
public:
    AttachedTap(EventLoop &loop, Observer &observer, Clock::time_point start)
        : loop_(loop), observer_(observer), start_(start), guardian_(loop, [] { repairQuietly(); }),
          links_(loop, observer, start),
          commands_(loop, kCommands, TappedSocket::Server::service,
                    {.onConnection = [this](Descriptor connection) { addCommand(std::move(connection)); },
                     .onNote = [this](const std::string &text) { note(text); },
                     .onGivenUp = [this](const std::string &reason) { giveUp(reason); }}),
          usbEvents_(loop, kUsbEvents, TappedSocket::Server::usbEvents,
                     {.onConnection = [this](Descriptor connection) { addUsbEvent(std::move(connection)); },
                      .onNote = [this](const std::string &text) { note(text); },
                      .onGivenUp = {}})
    {
        commands_.take();
        usbEvents_.takeAgain();
        events_.emplace(loop, kEventSocket, observer, start);
        lookForEvents();
        folder_.emplace(loop, kSocketDirectory, [this] { look(); });
    }

    void end(std::function<void()> ended) override
    {
        folder_.reset();
        usbEvents_.giveBack();
        commands_.giveBack();
        ending_.emplace(
            loop_, links_, Ending::kAcceptingTime,
            [this] {
                usbEvents_.close();
                commands_.close();
            },
            std::move(ended));
    }

private:
    static void repairQuietly()
    {
        try {
            repair();
        } catch (const std::exception &) {
            // Another tap has begun, and has put things right itself; or the user must use "kvoctl trace --repair".
        }
    }

    void addCommand(Descriptor connection)
    {
        links_.add(std::move(connection), recording::Kind::ask,
                   {.server = [this] { return commands_.serverSocket(); },
                    .onNoServer = [this] { later(commands_); },
                    .onRequest = [this](std::string_view request) { examine(request); },
                    .onReply = {},
                    .onEnd = {}});
    }

    void addUsbEvent(Descriptor connection)
    {
        links_.add(std::move(connection), recording::Kind::usb,
                   {.server = [this] { return usbEvents_.serverSocket(); },
                    .onNoServer = [this] { later(usbEvents_); },
                    .onRequest = [](std::string_view) {},
                    .onReply = {},
                    .onEnd = {}});
    }

    /// The service may send the first event at once when it has this request.
    void examine(std::string_view request)
    {
        if (activatesUsbEvents(request)) {
            usbEvents_.takeAgain();
        }
    }

    /// A connection that is being accepted cannot end its own acceptor.
    void later(TappedSocket &socket)
    {
        loop_.after(std::chrono::milliseconds(0), [&socket, alive = std::weak_ptr(alive_)] {
            if (!alive.expired()) {
                socket.serverEnded();
            }
        });
    }

    void look()
    {
        commands_.look();
        usbEvents_.look();
        lookForEvents();
    }

    void lookForEvents()
    {
        const bool listensNow = events_->look();
        if (listensNow && !std::exchange(listens_, true)) {
            note("The trace listens for embedded events itself.");
        }
    }

    void note(const std::string &text)
    {
        observer_.onNote(std::chrono::duration_cast<recording::Microseconds>(Clock::now() - start_), text);
    }

    void giveUp(const std::string &reason)
    {
        usbEvents_.giveBack();
        observer_.onGivenUp(reason);
    }

    EventLoop &loop_;
    Observer &observer_;
    Clock::time_point start_;
    TapGuardian guardian_;  // before the sockets, so that its end finds nothing to clean up
    Links links_;
    TappedSocket commands_;
    TappedSocket usbEvents_;
    std::optional<EventListener> events_;
    bool listens_ = false;
    std::optional<FolderWatch> folder_;
    std::optional<Ending> ending_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace

std::unique_ptr<Tap> attach(EventLoop &loop, Observer &observer, Clock::time_point start)
{
    return std::make_unique<AttachedTap>(loop, observer, start);
}

std::vector<std::filesystem::path> repair()
{
    std::vector<std::filesystem::path> repaired;
    std::exception_ptr failure;
    for (const std::filesystem::path &path : {kCommands, kUsbEvents}) {
        try {
            if (repair(path)) {
                repaired.push_back(path);
            }
        } catch (const Refused &) {
            failure = std::current_exception();  // the other socket may still be repaired
        }
    }
    if (failure && repaired.empty()) {
        std::rethrow_exception(failure);
    }
    return repaired;
}

bool needsRepair() { return needsRepair(kCommands) || needsRepair(kUsbEvents); }

bool isAttached() { return isTapped(kCommands); }

}  // namespace tools::tap
