// Stores records up to the limits of the log.
#include "kvosim/remote/remote_log.h"

#include "kvosim/base/exchange_log.h"

#include <utility>

namespace kvosim {

namespace {

std::size_t bytesOf(const RemoteRecord &record) { return record.text.size() + record.note.size(); }

}  // namespace

std::string_view nameOf(RemoteRecord::Kind kind)
{
    switch (kind) {
    case RemoteRecord::Kind::connected: return "connected";
    case RemoteRecord::Kind::closed: return "closed";
    case RemoteRecord::Kind::request: return "request";
    case RemoteRecord::Kind::reply: return "reply";
    case RemoteRecord::Kind::indication: break;
    }
    return "indication";
}

std::string lineOf(unsigned session, std::string_view kind, std::string_view text, std::string_view note)
{
    const std::string mark(kind == "request"      ? ">"
                           : kind == "reply"      ? "<"
                           : kind == "indication" ? "!"
                           : kind == "closed"     ? "closed:"
                                                  : kind);
    return "session " + std::to_string(session) + ' ' + mark + ' ' + printable(text) +
           (note.empty() ? "" : " (" + std::string(note) + ')');
}

void RemoteLog::add(RemoteRecord record)
{
    record.number = ++last_;
    record.time = std::chrono::system_clock::now();
    bytes_ += bytesOf(record);
    records_.push_back(std::move(record));
    while (records_.size() > kMaxRecords || (bytes_ > kMaxBytes && records_.size() > 1)) {
        bytes_ -= bytesOf(records_.front());
        records_.pop_front();
    }
    added_(records_.back());
}

}  // namespace kvosim
