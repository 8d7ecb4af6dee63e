// Exchanges as a tap reports them.
#pragma once

#include "kvoctl/trace/entry.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace kvoctl_test {

using namespace std::chrono_literals;
using kvoctl::Entry;
using kvoctl::entryOf;
using kvoctl::Exchange;
using kvoctl::Kind;
using kvoctl::Microseconds;
using kvoctl::Peer;
using tools::recording::End;
using tools::recording::Piece;

inline const Peer kPanel{4711, "panel"};

inline Exchange inPieces(std::vector<Piece> request, std::vector<Piece> reply, End end = End::closed,
                         Microseconds endPause = {})
{
    Exchange made;
    made.request = std::move(request);
    made.reply = std::move(reply);
    made.end = end;
    made.endPause = endPause;
    return made;
}

/// A request and a reply after 400 µs. Without a reply, the connection ends after 4 s.
inline Exchange exchange(const std::string &request, const std::string &reply, End end = End::closed, Kind kind = Kind::ask)
{
    Exchange made = inPieces({}, {}, end, reply.empty() ? Microseconds(4s) : Microseconds(50us));
    made.at = 1500ms;
    made.kind = kind;
    if (!request.empty()) {
        made.request.push_back({0us, request});
    }
    if (!reply.empty()) {
        made.reply.push_back({400us, reply});
    }
    return made;
}

inline Entry entry(const std::string &request, const std::string &reply, End end = End::closed, Kind kind = Kind::ask)
{
    return entryOf(kPanel, exchange(request, reply, end, kind));
}

}  // namespace kvoctl_test
