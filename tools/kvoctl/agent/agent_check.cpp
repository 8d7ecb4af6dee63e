// Sends each command of the library's own table, so that none is missing.
#include "kvoctl/agent/agent_check.h"

#include "kvoctl/agent/agent_requests.h"
#include "kvoctl/agent/remote_side.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include <array>
#include <chrono>
#include <cstdio>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

/// Covers the agent's requests about the station in focus and its connection attempt.
constexpr auto kConnectTimeout = 20s;
/// For a reply the agent sends at most one request to the service, which times out after 4 s.
constexpr auto kReplyTimeout = 10s;

constexpr std::string_view kLineEnd = "\r\n";

struct Row {
    std::string keyword;
    std::string sent{};                  ///< empty if the command was skipped
    std::optional<std::string> reply{};  ///< without its tag and line end
    std::string note{};                  ///< why the command was skipped, or what is wrong
    bool isFault = false;
};

std::string withoutLineEnd(const std::string &reply)
{
    return reply.ends_with(kLineEnd) ? reply.substr(0, reply.size() - kLineEnd.size()) : reply;
}

class Check {
public:
    Check(RemoteSide &remote, bool sendsAll) : remote_(remote), sendsAll_(sendsAll) {}

    std::vector<Row> run()
    {
        std::vector<Row> rows;
        for (const HwsCommand &command : cmds) {
            rows.push_back(row(command.keyword));
        }
        return rows;
    }

private:
    Row row(const std::string &keyword)
    {
        Row row{.keyword = keyword};
        const AgentRequest *const request = findAgentRequest(keyword);
        if (request == nullptr) {
            return fault(row, "kvoctl does not know this command");
        }
        if (request->changes && !sendsAll_) {
            row.note = "skipped: changes a station (--all sends it)";
            return row;
        }
        const std::optional<std::string> argument = argumentOf(*request);
        if (!argument) {
            row.note = "skipped: cannot read the current value (--all sends " + std::string(request->argument) + ")";
            return row;
        }
        return sent(row, *request, *argument);
    }

    /// Nothing if a setter would change the station.
    std::optional<std::string> argumentOf(const AgentRequest &request)
    {
        const std::string otherwise(request.argument);
        if (request.getter.empty()) {
            return otherwise;
        }
        const std::optional<std::string> reply = send(std::string(request.getter));
        const std::size_t equals = reply ? reply->find('=') : std::string::npos;
        if (equals != std::string::npos) {
            return withoutLineEnd(reply->substr(equals + 1));
        }
        return sendsAll_ ? std::optional(otherwise) : std::nullopt;
    }

    Row sent(Row row, const AgentRequest &request, const std::string &argument)
    {
        const std::optional<std::string> reply = send(row.keyword + argument);
        row.sent = sent_;
        if (!reply) {
            return fault(row, "NO ANSWER");
        }
        row.reply = withoutLineEnd(*reply);
        return isValidReply(request, *reply) ? row : fault(row, "NOT IN FORM");
    }

    static Row fault(Row row, const std::string &note)
    {
        row.note = note;
        row.isFault = true;
        return row;
    }

    /// Returns the reply without its tag, or nothing if none came. After a missing reply it sends no further command.
    std::optional<std::string> send(const std::string &command)
    {
        std::array<char, sizeof "000:"> tag{};
        std::snprintf(tag.data(), tag.size(), "%03u:", number_++ % 999U);
        sent_ = tag.data() + command;
        const auto answer = isLost_ ? std::nullopt : remote_.ask(sent_, kReplyTimeout);
        isLost_ = !answer;
        // An answer without the tag is wrong, and is reported unchanged.
        return answer && answer->starts_with(tag.data()) ? answer->substr(tag.size() - 1) : answer;
    }

    RemoteSide &remote_;
    bool sendsAll_;
    unsigned number_ = 1;
    std::string sent_{};
    bool isLost_ = false;
};

Document documentOf(const Row &row)
{
    return {{"command", row.keyword},
            {"sent", row.sent.empty() ? Document(nullptr) : Document(row.sent)},
            {"reply", row.reply ? Document(*row.reply) : Document(nullptr)},
            {"in_form", row.reply ? Document(!row.isFault) : Document(nullptr)},
            {"note", row.note.empty() ? Document(nullptr) : Document(row.note)}};
}

Report reportOf(const std::vector<Row> &rows)
{
    using Column = Table::Column;
    Report report{.document = {{"in_form", true}, {"commands", Document::array()}},
                  .table =
                      Table({Column::text, Column::text, Column::text, Column::text}, {"COMMAND", "SENT", "REPLY", "NOTE"})};
    std::size_t sent = 0;
    std::size_t faults = 0;
    for (const Row &row : rows) {
        report.document["commands"].push_back(documentOf(row));
        report.table->add({row.keyword, row.sent, row.reply.value_or(""), row.note});
        sent += row.sent.empty() ? 0 : 1;
        faults += row.isFault ? 1 : 0;
    }
    report.document["in_form"] = faults == 0;
    report.line = std::to_string(rows.size()) + " commands, " + std::to_string(sent) + " sent, " + std::to_string(faults) +
                  " without a valid reply";
    report.exit = faults == 0 ? Exit::done : Exit::failed;
    return report;
}

}  // namespace

Report checkAgent(CheckOptions options)
{
    RemoteSide remote(options.session);
    options.agent.remoteAddress = "127.0.0.1";
    options.agent.session = remote.session();
    Agent agent(options.agent, options.host);
    if (!remote.accept(kConnectTimeout, Agent::hasEnded)) {
        if (Agent::hasEnded()) {
            agent.explainEnd();
        }
        throw Failure(KVO_HWS_FAILED, "the agent did not connect within " + std::to_string(kConnectTimeout.count()) + " s");
    }
    return reportOf(Check(remote, options.sendsAll).run());
}

}  // namespace kvoctl
