// Manages the sessions and the readers of the log.
#include "kvosim/remote/remote_side.h"

#include "common/dotted_address.h"
#include "common/join.h"
#include "common/refused.h"
#include "kvosim/base/arguments.h"

#include <algorithm>
#include <stdexcept>

namespace kvosim {

namespace {

constexpr std::chrono::milliseconds kSweepInterval{20};

uint32_t addressOf(const std::string &text)
{
    const auto address = tools::parseDotted(text);
    if (!address) {
        throw std::runtime_error('"' + text +
                                 "\" is not an IPv4 address for agents; write one such as \"127.0.0.1\", or \"0.0.0.0\" for "
                                 "all addresses of this machine");
    }
    return *address;
}

}  // namespace

std::vector<unsigned> parseSessions(const std::string &text)
{
    std::vector<unsigned> sessions;
    for (std::string_view rest = text;;) {
        const auto number = decimal(rest.substr(0, rest.find(',')), 0, kHighestSession);
        if (!number || std::find(sessions.begin(), sessions.end(), *number) != sessions.end()) {
            throw std::invalid_argument('"' + text + "\" is not a list of sessions; write " + kSessionsForm);
        }
        sessions.push_back(*number);
        if (rest.find(',') == std::string_view::npos) {
            return sessions;
        }
        rest = split(rest, ',').second;
    }
}

RemoteSide::RemoteSide(tools::EventLoop &loop, const RemoteOptions &options, std::function<void(std::string_view line)> report)
    : loop_(loop), report_(std::move(report)), address_(options.address),
      log_([this](const auto &record) { onRecordAdded(record); })
{
    for (const unsigned number : options.sessions) {
        sessions_.emplace_back(loop_, log_, number, addressOf(address_), [this] { sweepSoon(); });
    }
}

RemoteSession &RemoteSide::session(unsigned number)
{
    const auto found =
        std::find_if(sessions_.begin(), sessions_.end(), [number](const auto &session) { return session.number() == number; });
    if (found != sessions_.end()) {
        return *found;
    }
    std::string wanted = tools::join(sessions_, ",", [](const auto &session) { return std::to_string(session.number()); });
    tools::appendTo(wanted, ",", std::to_string(number));
    throw tools::CouldNot("session " + std::to_string(number) + " is not served; start the simulator with --remote " + wanted);
}

void RemoteSide::awaitLog(const LogQuery &query, OnPage onPage)
{
    readers_.push_back({query, tools::Clock::now() + query.wait, std::move(onPage)});
    sweepSoon();
}

RemoteSide::LogPage RemoteSide::readLog(const LogQuery &query) const
{
    LogPage page{.next = std::min(query.after, log_.last())};
    const auto &records = log_.records();
    if (records.empty()) {
        return page;
    }
    const uint64_t first = records.front().number;
    page.lost = first > page.next + 1 ? first - page.next - 1 : 0;
    const auto known = static_cast<std::ptrdiff_t>(page.next + 1 > first ? page.next + 1 - first : 0);
    for (auto record = records.begin() + known; record != records.end() && page.records.size() < kMaxRecordsPerPage; ++record) {
        if (!query.session || *query.session == record->session) {
            page.records.push_back(*record);
        }
        page.next = record->number;
    }
    return page;
}

void RemoteSide::onRecordAdded(const RemoteRecord &record)
{
    report_(lineOf(record.session, nameOf(record.kind), record.text, record.note));
    answerReaders([&record](const Reader &reader) {
        return (!reader.query.session || *reader.query.session == record.session) && record.number > reader.query.after;
    });
}

void RemoteSide::answerReaders(const std::function<bool(const Reader &reader)> &which)
{
    for (auto reader = readers_.begin(); reader != readers_.end();) {
        if (which(*reader)) {
            reader->onPage(readLog(reader->query));
            reader = readers_.erase(reader);
        } else {
            ++reader;
        }
    }
}

void RemoteSide::sweepSoon()
{
    if (sweeping_) {
        return;
    }
    sweeping_ = true;
    loop_.after(kSweepInterval, [this, alive = std::weak_ptr(alive_)] {
        if (alive.expired()) {
            return;
        }
        sweeping_ = false;
        const auto now = tools::Clock::now();
        for (RemoteSession &session : sessions_) {
            session.sweep(now);
        }
        answerReaders([now](const Reader &reader) { return reader.until <= now; });
        const bool needsSweep = std::any_of(sessions_.begin(), sessions_.end(), [](const auto &s) { return s.needsSweep(); });
        if (needsSweep || !readers_.empty()) {
            sweepSoon();
        }
    });
}

void RemoteSide::end()
{
    for (RemoteSession &session : sessions_) {
        if (session.peer()) {
            session.close(RemoteSession::CloseMode::orderly);
        }
    }
    sessions_.clear();
    answerReaders([](const Reader &) { return true; });
}

}  // namespace kvosim
