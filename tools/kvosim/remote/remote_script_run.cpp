// Runs scripts. It reads what agents send from the simulator's log.
#include "kvosim/remote/remote_script_run.h"

#include "common/refused.h"
#include "kvosim/base/exchange_log.h"
#include "kvosim/remote/agent_lines.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <map>
#include <thread>

namespace kvosim {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLongestRead = 5s;

std::string hexadecimal(std::string_view bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        std::array<char, 3> two{};
        std::snprintf(two.data(), two.size(), "%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        digits += two.data();
    }
    return digits;
}

std::string inQuotes(std::string_view text) { return '"' + printable(text) + '"'; }

/// The state of a session according to the log records processed so far.
struct SessionState {
    bool connected = false;
    std::size_t endings = 0;
    std::string ending = "no agent has connected";
    std::deque<std::string> replies{};
    std::deque<std::string> indications{};
};

class Run {
public:
    explicit Run(const AskSimulator &ask) : ask_(ask)
    {
        const tools::Json list = ask_({{"do", "remote.list"}});
        for (const tools::Json &session : list.at("sessions")) {
            sessions_[session.at("session").get<unsigned>()].connected = !session.at("agent").is_null();
        }
        lastRecord_ = list.at("last").get<uint64_t>();
    }

    void carryOut(const ScriptStep &step)
    {
        SessionState &session = sessionOf(step);
        switch (step.kind) {
        case ScriptStep::Kind::send: ask_({{"do", "remote.send"}, {"session", step.session}, {"request", step.text}}); break;
        case ScriptStep::Kind::raw:
            ask_({{"do", "remote.raw"}, {"session", step.session}, {"bytes", hexadecimal(step.text)}});
            break;
        case ScriptStep::Kind::reply:
            expect(step, "the reply ", session, session.replies);
            ++result_.replies;
            break;
        case ScriptStep::Kind::indication:
            expect(step, "the indication ", session, session.indications);
            ++result_.indications;
            break;
        case ScriptStep::Kind::waitConnected:
            waitFor(step, "expected an agent to connect", [&] { return session.connected; });
            break;
        case ScriptStep::Kind::waitClosed:
            waitFor(step, "expected the connection to be closed", [&] { return !session.connected; });
            break;
        case ScriptStep::Kind::close: closeSession(step, session, false); break;
        case ScriptStep::Kind::reset: closeSession(step, session, true); break;
        case ScriptStep::Kind::away:
            ask_({{"do", "remote.close"}, {"session", step.session}, {"away_ms", step.time.count()}});
            processAll();  // also the end of this connection; no agent can connect now
            break;
        case ScriptStep::Kind::pause: std::this_thread::sleep_for(step.time); break;
        }
        ++result_.steps;
    }

    ScriptResult finish()
    {
        processAll();
        for (const auto &[number, session] : sessions_) {
            result_.unread += session.replies.size() + session.indications.size();
        }
        return result_;
    }

private:
    SessionState &sessionOf(const ScriptStep &step)
    {
        const auto found = sessions_.find(step.session);
        if (found == sessions_.end()) {
            throw tools::CouldNot("session " + std::to_string(step.session) +
                                  " is not served; start the simulator with --remote " + std::to_string(step.session));
        }
        return found->second;
    }

    /// Processes all records up to the end of this connection, so the next steps apply to the next connection.
    void closeSession(const ScriptStep &step, const SessionState &session, bool reset)
    {
        processAll();
        const std::size_t endings = session.endings;
        ask_({{"do", "remote.close"}, {"session", step.session}, {"reset", reset}});
        waitFor(step, "expected the connection to be closed", [&] { return session.endings != endings; });
    }

    /// Processes records in their order, and no more than necessary, until @p condition is true. Returns false after the step's
    /// timeout.
    template <class Condition>
    bool wait(const ScriptStep &step, Condition condition)
    {
        const auto until = Clock::now() + step.time;
        while (!condition()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
            if (!processNext(std::clamp(left, std::chrono::milliseconds(0), kLongestRead)) && left <= 0ms) {
                return false;
            }
        }
        return true;
    }

    void expect(const ScriptStep &step, const char *what, const SessionState &session, std::deque<std::string> &lines)
    {
        const auto expected = std::string("expected ") + what + (step.isPattern ? "that matches " : "") + inQuotes(step.text);
        if (!wait(step, [&] { return !lines.empty() || !session.connected; })) {
            throw tools::CouldNot(expected + ", got none within " + std::to_string(step.time.count() / 1000) + " s");
        }
        if (lines.empty()) {
            throw tools::CouldNot(expected + ", got the end of the connection (" + session.ending + ')');
        }
        const std::string line = lines.front();
        lines.pop_front();
        if (!matches(step, line)) {
            throw tools::CouldNot(expected + ", got " + inQuotes(line));
        }
    }

    /// If the script gives no number for an indication, the comparison ignores the number.
    static bool matches(const ScriptStep &step, const std::string &line)
    {
        const bool numbered = step.kind != ScriptStep::Kind::indication || !indicationOf(step.text).empty();
        const std::string text = numbered ? line : line.substr(indicationOf(line).size());
        return step.isPattern ? std::regex_match(text, step.pattern) : text == step.text;
    }

    template <class Condition>
    void waitFor(const ScriptStep &step, const char *what, Condition condition)
    {
        if (!wait(step, condition)) {
            throw tools::CouldNot(std::string(what) + "; this did not happen within " +
                                  std::to_string(step.time.count() / 1000) + " s");
        }
    }

    /// Processes the next record of the log. Returns false if no record comes in time.
    bool processNext(std::chrono::milliseconds timeout)
    {
        if (unprocessed_.empty()) {
            read(timeout);
        }
        if (unprocessed_.empty()) {
            return false;
        }
        process(unprocessed_.front());
        unprocessed_.pop_front();
        return true;
    }

    /// Processes all records that the log has now.
    void processAll()
    {
        while (processNext(0ms)) {
        }
    }

    void read(std::chrono::milliseconds timeout)
    {
        const tools::Json page = ask_({{"do", "remote.log"}, {"after", lastRecord_}, {"wait_ms", timeout.count()}});
        if (page.at("lost") != 0) {
            throw tools::CouldNot("the simulator's log dropped " + page.at("lost").dump() + " records before they were read");
        }
        lastRecord_ = page.at("next").get<uint64_t>();
        for (const tools::Json &record : page.at("records")) {
            unprocessed_.push_back(record);
        }
    }

    void process(const tools::Json &record)
    {
        SessionState &session = sessions_[record.at("session").get<unsigned>()];
        const std::string kind = record.at("kind").get<std::string>();
        const std::string text = record.at("text").get<std::string>();
        if (kind == "reply") {
            session.replies.push_back(text);
        } else if (kind == "indication") {
            session.indications.push_back(text);
        } else if (kind == "connected" || kind == "closed") {
            session.connected = kind == "connected";
            session.endings += session.connected ? 0 : 1;
            session.ending = text;
        }
    }

    const AskSimulator &ask_;
    std::map<unsigned, SessionState> sessions_;
    uint64_t lastRecord_ = 0;
    std::deque<tools::Json> unprocessed_;
    ScriptResult result_;
};

}  // namespace

ScriptResult runScript(std::span<const ScriptStep> steps, const std::string &fileName, const AskSimulator &ask)
{
    Run run(ask);
    for (const ScriptStep &step : steps) {
        try {
            run.carryOut(step);
        } catch (const tools::CouldNot &error) {
            throw tools::CouldNot(fileName + ':' + std::to_string(step.line) + ": " + error.what());
        }
    }
    return run.finish();
}

}  // namespace kvosim
