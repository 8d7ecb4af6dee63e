// Sockets of the local services. Connecting and writing can neither block forever nor raise a signal.
#pragma once

#include <array>
#include <chrono>
#include <string_view>

#include "runtime/owners.h"

namespace kvo_hws {

inline constexpr std::string_view kCommandSocket = "/tmp/kvo_hws/cmd_sock";
inline constexpr std::string_view kUsbSocket = "/tmp/kvo_hws/usb_sock";

/// The timeout for a peer that does not accept a connection, does not read a request, or sends no byte of a reply.
inline constexpr std::chrono::seconds kPeerTimeout{4};

/// A Unix stream socket whose connect and writes have the timeout kPeerTimeout; on failure invalid, with errno.
Descriptor openLocalSocket() noexcept;

/// The length of an address: only the path, or the whole record. Services can see the difference.
enum class AddressLength { path, whole };

/// One connect, continued after an interruption by a signal. Returns false with errno; EAGAIN if the peer's queue stayed full.
bool connectLocal(const Descriptor &socket, std::string_view path, AddressLength length = AddressLength::path) noexcept;

/// Binds the socket to @p path and first removes an existing file there. Returns false with errno.
bool bindLocal(const Descriptor &socket, std::string_view path) noexcept;

/// A text with its line feed. It is prepared before the connect, so that no peer sees a connection if memory runs out.
class OutgoingLine {
public:
    explicit OutgoingLine(std::string_view text) noexcept;

    /// False if memory for a long text ran out.
    [[nodiscard]] bool valid() const noexcept { return line_ != nullptr; }

    /// Writes the line with one write. Returns false, with errno, if not all bytes were written.
    [[nodiscard]] bool write(const Descriptor &socket) const noexcept;

private:
    static constexpr std::size_t kBufferSize = 1028;  // fits the library's own texts; a caller's text may be longer

    std::size_t length_;
    std::array<char, kBufferSize> buffer_;
    HeapText allocated_;
    char *line_;
};

/// Waits until @p fd is readable. Returns 1 readable, 0 timeout, -1 failed with errno. An interrupted wait starts again.
int waitReadable(int fd, std::chrono::milliseconds timeout) noexcept;

/// As waitReadable, but an interrupted wait fails with EINTR, for callers that check a state after a signal.
int pollReadable(int fd, std::chrono::milliseconds timeout) noexcept;

}  // namespace kvo_hws
