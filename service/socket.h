// Sockets of the local services: addresses, connects and writes that can neither hang nor raise a signal.
#pragma once

#include <array>
#include <chrono>
#include <string_view>

#include "runtime/owners.h"

namespace kvo_hws {

inline constexpr std::string_view kCommandSocket = "/tmp/kvo_hws/cmd_sock";
inline constexpr std::string_view kUsbSocket = "/tmp/kvo_hws/usb_sock";

/// The longest silence of a peer: while it accepts a connection, takes a request or sends a reply.
inline constexpr std::chrono::seconds kPeerTimeout{4};

/// A Unix stream socket whose connect and writes are bounded by kPeerTimeout; invalid, with errno, where there is none.
Descriptor openLocalSocket() noexcept;

/// How long an address says it is: services see whether a client passes the path alone or the whole record.
enum class AddressLength { path, whole };

/// One connect, continued where a signal interrupted it. False with errno; EAGAIN when the peer's queue stayed full.
bool connectLocal(const Descriptor &socket, std::string_view path, AddressLength length = AddressLength::path) noexcept;

/// Takes @p path's place in the file system, whatever stood there. False with errno.
bool bindLocal(const Descriptor &socket, std::string_view path) noexcept;

/// A text with its line feed, ready to be written before anybody is bothered with a connection.
class OutgoingLine {
public:
    explicit OutgoingLine(std::string_view text) noexcept;

    /// False when there was no memory for a text of unusual length.
    [[nodiscard]] bool valid() const noexcept { return line_ != nullptr; }

    /// Writes it with one write. False, with errno, when not all of it went out.
    [[nodiscard]] bool write(const Descriptor &socket) const noexcept;

private:
    static constexpr std::size_t kUsual = 1028;  // every command and event text fits; only a caller's own may be longer

    std::size_t length_;
    std::array<char, kUsual> usual_;
    HeapText unusual_;
    char *line_;
};

/// Waits until @p fd can be read. 1 readable, 0 time-out, -1 failed with errno. An interrupted wait starts anew.
int waitReadable(int fd, std::chrono::milliseconds timeout) noexcept;

/// As waitReadable, but an interrupted wait is a failure with EINTR, for callers who have something to look at then.
int pollReadable(int fd, std::chrono::milliseconds timeout) noexcept;

}  // namespace kvo_hws
