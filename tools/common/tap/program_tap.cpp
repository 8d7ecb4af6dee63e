// A tap for one program: the program's folder of sockets is one of the tap's, and leads to the service outside.
#include "common/acceptor.h"
#include "common/command_socket.h"
#include "common/private_namespace.h"
#include "common/refused.h"
#include "common/tap/activation.h"
#include "common/tap/ending.h"
#include "common/tap/folder_watch.h"
#include "common/tap/links.h"
#include "common/tap/listening.h"
#include "common/tap/server_watch.h"
#include "common/tap/tap.h"
#include "common/tap/tap_guardian.h"
#include "common/tap/unix_address.h"

#include <array>
#include <optional>
#include <sys/stat.h>
#include <system_error>

namespace tools::tap {

namespace {

constexpr int kWaitingConnections = 1024;
constexpr const char *kUsbName = "usb_sock";
/// A program may take longer to remove a socket and to listen at its own; it would have to be stopped meanwhile.
constexpr std::chrono::seconds kLongestStart{1};
constexpr mode_t kPermissions = 07777;

/// A listening socket at @p path. Removes a socket that has been left there.
Descriptor listenAt(const std::filesystem::path &path)
{
    const sockaddr_un address = unixAddress(path);
    unlink(path.c_str());
    Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    if (bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), kWaitingConnections) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot listen at " + path.string());
    }
    return listener;
}

/// A folder that only this user can enter, and in it the folder that the program sees.
std::filesystem::path makeFolder()
{
    std::string outer = (std::filesystem::temp_directory_path() / "kvo_trace.XXXXXX").string();
    if (mkdtemp(outer.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot create " + outer);
    }
    std::filesystem::create_directory(std::filesystem::path(outer) / "kvo_hws");
    return std::filesystem::path(outer) / "kvo_hws";
}

/// A socket of the private folder that leads to the socket of the same name outside. It exists while something listens outside, so
/// that the program finds no service when there is none.
class Mirror {
public:
    using OnConnection = std::function<void(Descriptor connection)>;

    Mirror(EventLoop &loop, std::filesystem::path inside, std::filesystem::path outside, OnConnection onConnection)
        : loop_(loop), inside_(std::move(inside)), outside_(std::move(outside)), onConnection_(std::move(onConnection))
    {
        look();
    }

    /// Leaves a socket of the program alone while the program listens there.
    void look()
    {
        struct stat rights {};
        if (lstat(outside_.c_str(), &rights) != 0 || !S_ISSOCK(rights.st_mode) ||
            !isServedOutside({rights.st_dev, rights.st_ino})) {
            close();
        } else if (own_ == FileId{} || fileAt(inside_) != own_) {
            forget();
            if (isLeft()) {
                tryToOpen(rights);
            }
        }
    }
    /// The program cannot connect any more.
    void close()
    {
        if (own_ != FileId{} && fileAt(inside_) == own_) {
            unlink(inside_.c_str());
        }
        forget();
    }

private:
    /// A server that the kernel does not list may be in another network namespace. It is asked only once.
    bool isServedOutside(const FileId &file)
    {
        if (file != elsewhere_ && listeningAt(file) != Listening::yes && isServed(outside_)) {
            elsewhere_ = file;
        }
        return file == elsewhere_ || listeningAt(file) == Listening::yes;
    }
    /// The program may have put something else at the path, or the system may have no descriptors left.
    void tryToOpen(const struct stat &rights)
    {
        try {
            open(rights);
        } catch (const std::exception &) {
            forget();
        }
    }
    void open(const struct stat &rights)
    {
        listener_ = listenAt(inside_);
        own_ = fileAt(inside_);
        // Only this user's programs reach the folder. A program that changes its user is treated as it is outside.
        if (lchown(inside_.c_str(), rights.st_uid, rights.st_gid) == 0 || geteuid() != 0) {
            const bool mayConnect = access(outside_.c_str(), W_OK) == 0;
            chmod(inside_.c_str(), mayConnect ? rights.st_mode & kPermissions : 0);
        }
        acceptor_.emplace(loop_, listener_.get(), onConnection_);
    }
    /// Whether the program has no socket at the path, and is not about to listen at one.
    bool isLeft()
    {
        const FileId there = fileAt(inside_);
        if (there != seen_ || (there != FileId{} && listeningAt(there) != Listening::no)) {
            seen_ = there;
            seenSince_ = Clock::now();
        }
        return Clock::now() - seenSince_ >= kLongestStart;
    }
    void forget()
    {
        if (own_ != FileId{}) {
            seen_ = fileAt(inside_);
            seenSince_ = Clock::now();
        }
        acceptor_.reset();
        listener_ = Descriptor();
        own_ = {};
    }

    EventLoop &loop_;
    std::filesystem::path inside_;
    std::filesystem::path outside_;
    OnConnection onConnection_;
    Descriptor listener_;
    FileId own_;
    FileId elsewhere_;
    FileId seen_;  // of the program, since seenSince_
    Clock::time_point seenSince_{};
    std::optional<Acceptor> acceptor_;
};

class PrivateTap : public Tap {
public:
    PrivateTap(EventLoop &loop, Observer &observer, Clock::time_point start)
        : loop_(loop), observer_(observer), start_(start), folder_(makeFolder()), links_(loop, observer, start),
          guardian_(loop, [outer = folder_.parent_path()] { removeFolder(outer); }),
          commands_(loop, folder_ / "cmd_sock", kCommandSocket,
                    [this](Descriptor connection) { addCommand(std::move(connection)); }),
          events_(loop, folder_ / "event_sock", kEventSocket,
                  [this](Descriptor connection) { addEvents(std::move(connection)); }),
          usbMirror_(loop, folder_ / kUsbName, kUsbEventSocket,
                     [this](Descriptor connection) { addUsbEvent(std::move(connection), kUsbEventSocket); }),
          watch_(loop, kSocketDirectory, [this] { look(); })
    {
        lookLater();
    }
    ~PrivateTap() override
    {
        closeUsbEvents();
        removeFolder(folder_.parent_path());
    }

    [[nodiscard]] const std::filesystem::path &folder() const noexcept { return folder_; }

    /// The program has ended, so nothing waits to be accepted.
    void end(std::function<void()> ended) override
    {
        ending_.emplace(
            loop_, links_, std::chrono::milliseconds(0),
            [this] {
                closeUsbEvents();
                usbMirror_.close();
                commands_.close();
                events_.close();
            },
            std::move(ended));
    }

private:
    static void removeFolder(const std::filesystem::path &folder)
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    void addCommand(Descriptor connection)
    {
        links_.add(std::move(connection), recording::Kind::ask,
                   {.server = [] { return kCommandSocket; },
                    .onNoServer = [] {},
                    .onRequest = [this](std::string_view request) { examine(request); },
                    .onReply = {},
                    .onEnd = {}});
    }

    void addEvents(Descriptor connection)
    {
        links_.addEvents(std::move(connection), {.server = [] { return kEventSocket; },
                                                 .onNoServer = [] {},
                                                 .onRequest = [](std::string_view) {},
                                                 .onReply = {},
                                                 .onEnd = {}});
    }

    /// @p server  the program, for an event; the receiver outside, for the program's "suicide"
    void addUsbEvent(Descriptor connection, const std::filesystem::path &server)
    {
        links_.add(std::move(connection), recording::Kind::usb,
                   {.server = [server] { return server; },
                    .onNoServer = [] {},
                    .onRequest = [](std::string_view) {},
                    .onReply = {},
                    .onEnd = {}});
    }

    void examine(std::string_view request)
    {
        if (activatesUsbEvents(request)) {
            takeUsbEvents();
        }
    }

    /// The program is about to receive the USB events: from now on the service must find it. The program outside that received them
    /// before ends because of the program's "suicide", which the mirror has passed on.
    void takeUsbEvents()
    {
        if (usbAcceptor_ && fileAt(kUsbEventSocket) == usbSocket_) {
            return;
        }
        usbMirror_.close();
        closeUsbEvents();
        try {
            usbListener_ = listenAt(kUsbEventSocket);
            usbSocket_ = fileAt(kUsbEventSocket);
            usbAcceptor_.emplace(loop_, usbListener_.get(),
                                 [this](Descriptor connection) { addUsbEvent(std::move(connection), folder_ / kUsbName); });
        } catch (const std::exception &error) {
            note(std::string("The program cannot receive USB events: ") + error.what() + ".");
        }
    }

    void closeUsbEvents()
    {
        usbAcceptor_.reset();
        if (usbListener_.valid() && fileAt(kUsbEventSocket) == usbSocket_) {
            unlink(kUsbEventSocket);
        }
        usbListener_ = Descriptor();
    }

    void look()
    {
        commands_.look();
        events_.look();
        // The program has closed the events, or another program has taken them over.
        if (usbAcceptor_ &&
            (fileAt(kUsbEventSocket) != usbSocket_ || listeningAt(fileAt(folder_ / kUsbName)) == Listening::no)) {
            closeUsbEvents();
        }
        if (!usbAcceptor_) {
            usbMirror_.look();
        }
    }

    /// A server that ends leaves its file as it is.
    void lookLater()
    {
        loop_.after(ServerWatch::kPeriod, [this, alive = std::weak_ptr(alive_)] {
            if (!alive.expired()) {
                look();
                lookLater();
            }
        });
    }

    void note(const std::string &text)
    {
        observer_.onNote(std::chrono::duration_cast<recording::Microseconds>(Clock::now() - start_), text);
    }

    EventLoop &loop_;
    Observer &observer_;
    Clock::time_point start_;
    std::filesystem::path folder_;
    Links links_;
    TapGuardian guardian_;
    Mirror commands_;
    Mirror events_;
    Mirror usbMirror_;
    Descriptor usbListener_;
    FileId usbSocket_;
    std::optional<Acceptor> usbAcceptor_;
    FolderWatch watch_;
    std::optional<Ending> ending_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace

ProgramTap tapOfProgram(EventLoop &loop, Observer &observer, Clock::time_point start)
{
    auto tap = std::make_unique<PrivateTap>(loop, observer, start);
    const std::filesystem::path folder = tap->folder();
    return {.tap = std::move(tap), .enter = [folder] {
                // Keeps the place of the mount until the program ends; executing the program does not end it.
                static std::optional<PrivateNamespace> place;
                place.emplace(folder);
            }};
}

}  // namespace tools::tap
