// USB events as a test sees them: a callback that records, a service that takes part, and a daemon that brings event texts.
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
struct ToldEvent {
    int generation;  ///< 1 the older callback, 2 the newer one
    uint32_t code;
    uint32_t length;     ///< of the newer callback's record
    std::string record;  ///< the older callback's 264 bytes, or the newer one's payload; empty for a status

    bool operator==(const ToldEvent &) const = default;
};

/// The calls since it was made; one at a time.
class EventRecorder {
public:
    /// @param onEvent  what the callbacks return, and whatever else a test does on their threads
    explicit EventRecorder(std::function<int32_t(const ToldEvent &)> onEvent = {});
    EventRecorder(const EventRecorder &) = delete;
    EventRecorder &operator=(const EventRecorder &) = delete;
    ~EventRecorder();

    static int32_t older(uint32_t code, void *record);
    static int32_t newer(UsbEventV2 *event);

    [[nodiscard]] std::vector<ToldEvent> events() const;
    [[nodiscard]] std::vector<uint32_t> codes() const;
    /// Waits until so many calls have come; false after 10 s.
    [[nodiscard]] bool waitFor(std::size_t count) const;
};

/// A service that has finished starting and agrees with everything, but for the replies given.
Script agrees(std::vector<std::pair<std::string, std::string>> replies = {});

/// What the USB event server answers to these bytes, line feed and all, until it closes; "(nobody)" where none listens.
std::string answerOfUsbServer(const std::string &bytes);

/// As answerOfUsbServer, but without waiting for the end: the daemon has what it wants when the line has come.
std::string lineOfUsbServer(const std::string &bytes);

/// The state word of the USB event server.
uint32_t serverState();
void setServerState(uint32_t state);

/// Whether a "suicide" was served: 1, else 0.
uint32_t suicideServed();

}  // namespace support
