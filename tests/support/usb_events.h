// Helpers for USB events: a recording callback, a service that accepts them, and a client that sends texts as the daemon does.
#pragma once

#include "support/eventually.h"
#include "support/scripted_service.h"

#include <kvo_hws/usbevents.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace support {

/// One call of a callback.
struct RecordedEvent {
    int generation;  ///< 1: the older callback, 2: the newer one
    uint32_t code;
    uint32_t length;     ///< of the newer callback's record
    std::string record;  ///< the older callback's 264 bytes, or the newer one's payload; empty for a status

    bool operator==(const RecordedEvent &) const = default;
};

/// Records the callbacks' calls since its construction. Only one may exist at a time.
class EventRecorder {
public:
    /// called on the callbacks' threads; returns their result
    explicit EventRecorder(std::function<int32_t(const RecordedEvent &)> onEvent = {});
    EventRecorder(const EventRecorder &) = delete;
    EventRecorder &operator=(const EventRecorder &) = delete;
    ~EventRecorder();

    static int32_t older(uint32_t code, void *record);
    static int32_t newer(UsbEventV2 *event);

    [[nodiscard]] std::vector<RecordedEvent> events() const;
    [[nodiscard]] std::vector<uint32_t> codes() const;
    /// Waits for @p count calls. Returns false after 10 s.
    [[nodiscard]] bool waitFor(std::size_t count) const;
};

/// A service that has finished starting and accepts every request, except for the replies given.
Script acceptsAll(std::vector<std::pair<std::string, std::string>> replies = {});

/// Sends these bytes and returns all that the USB event server replies until it closes, with line feeds; "(no server)" if none
/// listens.
std::string usbServerReply(const std::string &bytes);

/// Like usbServerReply, but returns after the first line without waiting for the close, as the daemon does.
std::string usbServerReplyLine(const std::string &bytes);

/// The state word of the USB event server.
uint32_t serverState();
void setServerState(uint32_t state);

/// 1 if a "suicide" was served, else 0.
uint32_t suicideServed();

}  // namespace support
