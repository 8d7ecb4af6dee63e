// What a recording contains for a replay: the requests in the order in which they were asked, and the events with what they
// follow. Only places in the recording are stored, so that a large recording takes little more memory.
#pragma once

#include "common/recording/recording.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

using tools::recording::Exchange;
using tools::recording::Microseconds;
using tools::recording::Recording;

/// A place in a recording: the index of a line.
using LineIndex = uint32_t;

/// A recorded request may be longer than those that the simulated service accepts.
inline constexpr std::size_t kLongestRecordedRequest = std::size_t{1024} * 1024;

/// A request as the service reads it: the first line without its line end. Nothing if the line end is missing
/// or comes too late.
std::optional<std::string> requestLineOf(const Exchange &exchange);

/// Requests with the same text have the same hash.
uint64_t hashOf(std::string_view request);

struct RecordedRequest {
    Microseconds completed;  ///< when its line end came
    uint64_t hash;
    LineIndex line;
};

struct RecordedEvent {
    Microseconds offset;  ///< from the beginning of its group
    LineIndex line;
};

/// Events that follow one moment, such as an activation, in the order of their offsets.
using EventGroup = std::vector<RecordedEvent>;

struct Contents {
    std::vector<RecordedRequest> requests;  ///< in the order in which they were complete
    std::size_t withoutLineEnd = 0;         ///< requests that no replay can answer
    /// The group of each activation of the USB events. Events before the first activation belong to its group, and count from the
    /// start of the recording. Without an activation, one group has all events.
    std::vector<EventGroup> usbEvents;
    /// The group of each program that connected to the event socket.
    std::vector<EventGroup> listenerEvents;
    /// Embedded events without a program that is known to have connected. They count from the start of the recording.
    EventGroup sharedEvents;

    [[nodiscard]] std::size_t usbEventCount() const;
    [[nodiscard]] std::size_t embeddedEventCount() const;
};

Contents contentsOf(const Recording &recording);

}  // namespace kvosim
