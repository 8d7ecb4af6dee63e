// The remote hardware service that agents connect to: its sessions and the log of their traffic.
#pragma once

#include "kvosim/remote/remote_session.h"

#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// The sessions of agents that are served, and the address at which they connect.
struct RemoteOptions {
    std::vector<unsigned> sessions{};
    std::string address = "127.0.0.1";
};

/// Parses "3" or "0,3,9". Throws std::invalid_argument with the valid form.
std::vector<unsigned> parseSessions(const std::string &text);
inline constexpr const char *kSessionsForm = "session numbers from 0 to 9, each once, separated by commas, such as \"0,3\"";

class RemoteSide {
public:
    /// Selects records of the log.
    struct LogQuery {
        uint64_t after = 0;                 ///< the number of the last record that the reader has
        std::optional<unsigned> session{};  ///< without a value: all sessions
        std::chrono::milliseconds wait{0};  ///< how long to wait for the first record
    };
    struct LogPage {
        std::vector<RemoteRecord> records{};
        uint64_t next = 0;  ///< the value of "after" for the next page
        uint64_t lost = 0;  ///< number of records, of any session, that the log has already dropped
    };
    using OnPage = std::function<void(const LogPage &page)>;
    static constexpr std::size_t kMaxRecordsPerPage = 200;

    /// @p report is called with each record as a line. Throws std::runtime_error if a port cannot be opened.
    RemoteSide(tools::EventLoop &loop, const RemoteOptions &options, std::function<void(std::string_view line)> report);
    RemoteSide(const RemoteSide &) = delete;
    RemoteSide &operator=(const RemoteSide &) = delete;

    [[nodiscard]] const std::string &address() const noexcept { return address_; }
    [[nodiscard]] const std::list<RemoteSession> &sessions() const noexcept { return sessions_; }
    /// Throws CouldNot if the session is not served.
    RemoteSession &session(unsigned number);
    [[nodiscard]] uint64_t lastRecord() const noexcept { return log_.last(); }
    /// The records that exist now.
    [[nodiscard]] LogPage readLog(const LogQuery &query) const;
    /// Calls @p onPage once, later: as soon as a record exists, or with an empty page after the waiting time.
    void awaitLog(const LogQuery &query, OnPage onPage);
    /// Closes all connections and ports, and answers all waiting readers.
    void end();

private:
    struct Reader {
        LogQuery query;
        tools::Clock::time_point until;
        OnPage onPage;
    };

    void onRecordAdded(const RemoteRecord &record);
    void answerReaders(const std::function<bool(const Reader &reader)> &which);
    void sweepSoon();

    tools::EventLoop &loop_;
    std::function<void(std::string_view line)> report_;
    std::string address_;
    RemoteLog log_;
    std::list<RemoteSession> sessions_;
    std::list<Reader> readers_;
    bool sweeping_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
