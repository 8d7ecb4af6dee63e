// The hardware service as the remote side of agents: its sessions, and the log of what goes over them.
#pragma once

#include "kvosim/remote/remote_session.h"

#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// Where and for which sessions agents are served.
struct RemoteOptions {
    std::vector<unsigned> sessions{};
    std::string address = "127.0.0.1";
};

/// "3" or "0,3,9". Throws std::invalid_argument, with what would be right.
std::vector<unsigned> parseSessions(const std::string &text);
inline constexpr const char *kSessionsForm = "session numbers of 0 to 9, each once, with commas between, such as \"0,3\"";

class RemoteSide {
public:
    /// Which records somebody wants, and until when to wait for the first.
    struct LogQuery {
        uint64_t after = 0;  ///< the number of the last record that is known
        std::optional<unsigned> session{};
        std::chrono::milliseconds wait{0};
    };
    struct LogPage {
        std::vector<RemoteRecord> records{};
        uint64_t next = 0;  ///< to ask on after
        uint64_t lost = 0;  ///< records, of any session, that are not kept any more
    };
    using Read = std::function<void(const LogPage &page)>;
    static constexpr std::size_t kMaxRecordsPerPage = 200;

    /// @p report is told each record as a line. Throws std::runtime_error where a port can not be had.
    RemoteSide(EventLoop &loop, const RemoteOptions &options, std::function<void(std::string_view line)> report);
    RemoteSide(const RemoteSide &) = delete;
    RemoteSide &operator=(const RemoteSide &) = delete;

    [[nodiscard]] const std::string &address() const noexcept { return address_; }
    [[nodiscard]] const std::list<RemoteSession> &sessions() const noexcept { return sessions_; }
    /// Throws CouldNot where the session is not served.
    RemoteSession &session(unsigned number);
    [[nodiscard]] uint64_t lastRecord() const noexcept { return log_.last(); }
    /// What there is.
    [[nodiscard]] LogPage readLog(const LogQuery &query) const;
    /// Calls @p read once, later: as soon as there is a record, or with an empty page when the wait is over.
    void awaitLog(const LogQuery &query, Read read);
    /// Closes all connections and ports, and answers whoever waits.
    void end();

private:
    struct Reader {
        LogQuery query;
        Clock::time_point until;
        Read read;
    };

    void added(const RemoteRecord &record);
    void answerReaders(const std::function<bool(const Reader &reader)> &which);
    void sweepSoon();

    EventLoop &loop_;
    std::function<void(std::string_view line)> report_;
    std::string address_;
    RemoteLog log_;
    std::list<RemoteSession> sessions_;
    std::list<Reader> readers_;
    bool sweeping_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
