// Goes through the library's own table of commands, so that none is left out.
#include "kvoctl/agent/agent_check.h"

#include "kvoctl/agent/agent_questions.h"
#include "kvoctl/agent/remote_side.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include <array>
#include <chrono>
#include <cstdio>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

/// For the agent's questions about the station in focus, and its connect.
constexpr auto kAgentPatience = 20s;
/// The agent asks the service at most once for a reply; that ends after 4 s without an answer.
constexpr auto kAnswerPatience = 10s;

constexpr std::string_view kLineEnd = "\r\n";

struct Row {
    std::string keyword;
    std::string sent{};                  ///< empty where it was not asked
    std::optional<std::string> reply{};  ///< without its tag and line end
    std::string note{};                  ///< why it was not asked, or what is wrong
    bool isFault = false;
};

std::string withoutLineEnd(const std::string &reply)
{
    return reply.ends_with(kLineEnd) ? reply.substr(0, reply.size() - kLineEnd.size()) : reply;
}

class Check {
public:
    Check(RemoteSide &remote, bool asksAll) : remote_(remote), asksAll_(asksAll) {}

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
        const AgentQuestion *const question = agentQuestion(keyword);
        if (question == nullptr) {
            return fault(row, "kvoctl does not know this command");
        }
        if (question->changes && !asksAll_) {
            row.note = "skipped: changes a station (--all asks it)";
            return row;
        }
        const std::optional<std::string> argument = argumentOf(*question);
        if (!argument) {
            row.note =
                "skipped: the present value can not be read (--all asks it with " + std::string(question->argument) + ")";
            return row;
        }
        return asked(row, *question, *argument);
    }

    /// Nothing where a setter would change the station.
    std::optional<std::string> argumentOf(const AgentQuestion &question)
    {
        const std::string otherwise(question.argument);
        if (question.getter.empty()) {
            return otherwise;
        }
        const std::optional<std::string> reply = ask(std::string(question.getter));
        const std::size_t equals = reply ? reply->find('=') : std::string::npos;
        if (equals != std::string::npos) {
            return withoutLineEnd(reply->substr(equals + 1));
        }
        return asksAll_ ? std::optional(otherwise) : std::nullopt;
    }

    Row asked(Row row, const AgentQuestion &question, const std::string &argument)
    {
        const std::optional<std::string> reply = ask(row.keyword + argument);
        row.sent = sent_;
        if (!reply) {
            return fault(row, "NO ANSWER");
        }
        row.reply = withoutLineEnd(*reply);
        return isInForm(question, *reply) ? row : fault(row, "NOT IN FORM");
    }

    static Row fault(Row row, const std::string &note)
    {
        row.note = note;
        row.isFault = true;
        return row;
    }

    /// The reply without its tag; nothing where there is none, and from then on.
    std::optional<std::string> ask(const std::string &command)
    {
        std::array<char, sizeof "000:"> tag{};
        std::snprintf(tag.data(), tag.size(), "%03u:", number_++ % 999U);
        sent_ = tag.data() + command;
        const auto answer = isLost_ ? std::nullopt : remote_.ask(sent_, kAnswerPatience);
        isLost_ = !answer;
        // An answer without the tag is wrong, and is told as it is.
        return answer && answer->starts_with(tag.data()) ? answer->substr(tag.size() - 1) : answer;
    }

    RemoteSide &remote_;
    bool asksAll_;
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
    std::size_t asked = 0;
    std::size_t faults = 0;
    for (const Row &row : rows) {
        report.document["commands"].push_back(documentOf(row));
        report.table->add({row.keyword, row.sent, row.reply.value_or(""), row.note});
        asked += row.sent.empty() ? 0 : 1;
        faults += row.isFault ? 1 : 0;
    }
    report.document["in_form"] = faults == 0;
    report.line = std::to_string(rows.size()) + " commands, " + std::to_string(asked) + " asked, " + std::to_string(faults) +
                  " not answered in form";
    report.exit = faults == 0 ? Exit::done : Exit::failed;
    return report;
}

}  // namespace

Report checkAgent(CheckPlan plan)
{
    RemoteSide remote(plan.session);
    plan.agent.remoteAddress = "127.0.0.1";
    plan.agent.session = remote.session();
    Agent agent(plan.agent, plan.host);
    if (!remote.accept(kAgentPatience, Agent::hasEnded)) {
        if (Agent::hasEnded()) {
            agent.explainEnd();
        }
        throw Failure(KVO_HWS_FAILED, "the agent has not connected within " + std::to_string(kAgentPatience.count()) + " s");
    }
    return reportOf(Check(remote, plan.asksAll).run());
}

}  // namespace kvoctl
