// The lines of a recording: what they mean, how they are written and read. docs/recording.md describes the format for people.
#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tools::recording {

inline constexpr unsigned kVersion = 1;

using Microseconds = std::chrono::microseconds;
using StartTime = std::chrono::sys_time<Microseconds>;

/// The first line of a file.
struct Version {
    unsigned number = kVersion;
    bool operator==(const Version &) const = default;
};

/// The moment that all offsets count from, in UTC.
struct Start {
    StartTime time{};
    bool operator==(const Start &) const = default;
};

/// A program that took part, named once and then referred to by its number.
struct Process {
    unsigned number = 0;
    int64_t pid = 0;  ///< 0 if it runs in a PID namespace that cannot be seen from here
    std::string name;
    bool operator==(const Process &) const = default;
};

/// One line of a plant file. All such lines of a recording, in their order, are the plant when the recording began.
struct PlantLine {
    std::string text;  ///< without its line end
    bool operator==(const PlantLine &) const = default;
};

/// Bytes that arrived together, after a pause.
struct Piece {
    Microseconds pause{};
    std::string bytes;
    bool operator==(const Piece &) const = default;
};

enum class Kind : uint8_t {
    ask,  ///< a program asked the service on the command socket
    usb,  ///< the service sent a USB event to a program
    /// the service sent an embedded event; it has no reply. Without an event: a program connected, and listens from now on
    event,
};

enum class End : uint8_t {
    closed,  ///< the side that replies closed the connection
    left,    ///< the side that asks closed the connection first
    reset,   ///< the connection was reset
    open,    ///< the recording ended before the connection
};

/// One connection from its first byte to its end.
struct Exchange {
    Microseconds at{};
    Kind kind = Kind::ask;
    unsigned process = 0;  ///< the number of the program's Process, 0 if it is unknown
    std::vector<Piece> request;
    bool requestEnded = false;  ///< the side that asks shut down its direction after the request
    std::vector<Piece> reply;
    End end = End::closed;
    Microseconds endPause{};  ///< after the last byte
    bool operator==(const Exchange &) const = default;
};

/// Something that happened to the recording itself, such as a service that ended.
struct Note {
    Microseconds at{};
    std::string text;
    bool operator==(const Note &) const = default;
};

/// An empty line or a comment, which begins with "#".
struct Nothing {
    bool operator==(const Nothing &) const = default;
};

using Line = std::variant<Nothing, Version, Start, Process, PlantLine, Exchange, Note>;

/// A line that is not valid. The text says what was found and what would be valid.
class LineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The line as text, without the line feed.
std::string format(const Line &line);

/// Reads a line without its line feed; a carriage return at its end is ignored. Throws LineError.
Line parse(std::string_view text);

/// The bytes of all pieces.
std::string joined(const std::vector<Piece> &pieces);

}  // namespace tools::recording
