// "kvosim remote": its arguments, requests and output.
#include "kvosim/program/control_commands.h"

#include "common/completions/completion.h"
#include "kvosim/base/exchange_log.h"
#include "kvosim/program/completion_candidates.h"
#include "kvosim/remote/remote_log.h"
#include "kvosim/remote/remote_script_run.h"

#include <iostream>

namespace kvosim {

namespace {

using namespace std::chrono_literals;

constexpr const char *kRemoteExamples =
    R"(The simulator acts as the remote hardware service of agents, for the sessions that --remote of "kvosim serve" or
"kvosim run" names. Exit status 1: the session is not served, no agent is connected, the agent did not reply in time, or the
connection was lost.

Examples:
  kvosim remote list
  kvosim remote ask 3 get-kvoindex
  kvosim remote ask 3 set-kvoindex=7 --tag 042
  kvosim remote run agent.script
  kvosim remote log --session 3 --follow
)";

constexpr const char *kAskExamples =
    R"(The request is sent with "\r\n". The simulator adds a tag, which identifies the reply, and prints the reply without
this tag. If the request already has a tag, the reply is printed with it. A request of more than 250 bytes is sent without a
tag.

Examples:
  kvosim remote ask 3 ping
  kvosim remote ask 3 042:get-t2m2n
  kvosim remote ask 3 get-softkey-type --untagged --timeout 20
)";

constexpr const char *kLogExamples = R"(Each line shows the time, the session, and what happened:

  > request    < reply    ! indication    connected    closed

The simulator keeps the last 2000 records, at most 1 MiB.

Examples:
  kvosim remote log
  kvosim remote log --session 3 --follow --json
)";

constexpr const char *kRunExamples =
    R"(Each line of a script is a step to carry out, or a line that is expected from an agent (see docs/remote-side.md):

  session 3              # the following lines are for this session
  wait-connected 15
  > get-kvoindex
  < kvoindex=1
  <~ vncserver=.*:3
  ! screen changed
  close

Exit status 1: the agent did not send what the script expects; the first difference is printed, with its line number. Exit
status 2: a line of the script is invalid.

Examples:
  kvosim remote run agent.script
)";

constexpr auto kFollowWait = 10s;
constexpr unsigned kLongestTimeout = 600;  // seconds

struct RemoteArguments {
    unsigned session = 0;
    std::optional<unsigned> logSession;
    std::string request;
    std::optional<std::string> tag;
    bool untagged = false;
    bool reset = false;
    std::optional<unsigned> away;  // seconds
    bool follow = false;
    unsigned timeout = 10;  // seconds; an agent may wait for its own service twice, 4 s each
    std::string script;
};

std::string stateOf(const tools::Json &session)
{
    if (session.at("away").get<bool>()) {
        return "temporarily closed";
    }
    return session.at("agent").is_null() ? "no agent" : "agent at " + session.at("agent").get<std::string>();
}

void printSessions(const tools::Json &reply)
{
    if (reply["sessions"].empty()) {
        std::cout << "no sessions are served; start the simulator with --remote\n";
    }
    for (const tools::Json &session : reply["sessions"]) {
        std::cout << "session " << session.at("session") << ", " << session.at("address").get<std::string>() << ':'
                  << session.at("port") << ", " << stateOf(session) << '\n';
    }
}

void ask(const ControlCommands &commands, const RemoteArguments &options)
{
    tools::Json request{{"do", "remote.ask"},
                        {"session", options.session},
                        {"request", options.request},
                        {"untagged", options.untagged},
                        {"patience_ms", options.timeout * 1000}};
    if (options.tag) {
        request["tag"] = *options.tag;
    }
    // The simulator reports the timeout itself, so this waits longer.
    commands.ask(
        request, [](const tools::Json &reply) { std::cout << reply.at("reply").get<std::string>() << '\n'; },
        std::chrono::seconds(options.timeout) + *tools::kDefaultTimeout);
}

void printRecords(const tools::Json &page, bool json)
{
    if (const auto lost = page.at("lost").get<uint64_t>(); lost > 0) {
        std::cerr << "kvosim: " << lost << " earlier records are no longer available\n";
    }
    for (const tools::Json &record : page.at("records")) {
        if (json) {
            std::cout << record.dump() << '\n';
            continue;
        }
        const std::chrono::milliseconds time(record.at("time_ms").get<int64_t>());
        std::cout << clockText(std::chrono::system_clock::time_point(time)) << ' '
                  << lineOf(record.at("session").get<unsigned>(), record.at("kind").get<std::string>(),
                            record.at("text").get<std::string>(), record.at("note").get<std::string>())
                  << '\n';
    }
    std::cout.flush();
}

void printLog(const ControlCommands &commands, const RemoteArguments &options)
{
    tools::Json request{{"do", "remote.log"}, {"after", 0}, {"wait_ms", 0}};
    if (options.logSession) {
        request["session"] = *options.logSession;
    }
    for (;;) {
        const tools::Json page = tools::askSimulator(request, tools::kControlSocket, kFollowWait + *tools::kDefaultTimeout);
        printRecords(page, commands.json());
        const bool atEnd = page.at("next") == request["after"];
        if (atEnd && !options.follow) {
            return;
        }
        request["after"] = page.at("next");
        if (options.follow) {
            request["wait_ms"] = std::chrono::milliseconds(kFollowWait).count();
        }
    }
}

void runScript(const ControlCommands &commands, const std::string &file)
{
    const auto steps = loadScript(file);
    const ScriptResult result = runScript(steps, file, [](const tools::Json &request) {
        return tools::askSimulator(request, tools::kControlSocket, kFollowWait + *tools::kDefaultTimeout);
    });
    if (commands.json()) {
        std::cout << tools::Json{{"steps", result.steps},
                                 {"replies", result.replies},
                                 {"indications", result.indications},
                                 {"unread", result.unread}}
                  << '\n';
        return;
    }
    std::cout << file << ": " << result.steps << " steps done, " << result.replies << " replies and " << result.indications
              << " indications as expected";
    if (result.unread > 0) {
        std::cout << ", " << result.unread << " more not checked";
    }
    std::cout << '\n';
}

CLI::App *addSession(CLI::App *command, RemoteArguments &options)
{
    completeSessions(command->add_option("SESSION", options.session, "Number of the session, 0 to 9")->required());
    return command;
}

void addAsk(ControlCommands &commands, CLI::App &remote, const std::shared_ptr<RemoteArguments> &options)
{
    CLI::App *asking = addSession(commands.add(remote, "ask", "Send a request to the agent of a session, and print its reply",
                                               [&commands, options] { ask(commands, *options); }),
                                  *options);
    asking->add_option("REQUEST", options->request, "One line, such as get-kvoindex")->required();
    CLI::Option *tag = asking->add_option("--tag", options->tag, "Tag of the request, three digits");
    asking->add_flag("--untagged", options->untagged, "Send the request unchanged, without adding a tag")->excludes(tag);
    asking->add_option("--timeout", options->timeout, "Seconds to wait for the reply, 1 to 600 (default: 10)")
        ->check(CLI::Range(1U, kLongestTimeout));
    asking->footer(kAskExamples);
}

void closeSession(const ControlCommands &commands, const RemoteArguments &options)
{
    tools::Json request{{"do", "remote.close"}, {"session", options.session}, {"reset", options.reset}};
    if (options.away) {
        request["away_ms"] = *options.away * 1000;
    }
    commands.ask(request, [](const tools::Json & /*reply*/) { std::cout << "closed\n"; });
}

void addClose(ControlCommands &commands, CLI::App &remote, const std::shared_ptr<RemoteArguments> &options)
{
    CLI::App *closing =
        addSession(commands.add(remote, "close", "Close the connection of a session's agent; the agent connects again",
                                [&commands, options] { closeSession(commands, *options); }),
                   *options);
    closing->add_flag("--reset", options->reset, "Reset the connection, as if the remote machine had crashed");
    closing
        ->add_option("--for", options->away,
                     "Also close the port for 1 to 600 seconds, even if no agent is connected, as if the remote side restarted")
        ->check(CLI::Range(1U, kLongestTimeout));
}

void addLog(ControlCommands &commands, CLI::App &remote, const std::shared_ptr<RemoteArguments> &options)
{
    CLI::App *log =
        commands.add(remote, "log", "Show the traffic of the sessions", [&commands, options] { printLog(commands, *options); });
    completeSessions(log->add_option("--session", options->logSession, "Show only this session"));
    log->add_flag("--follow", options->follow, "Keep showing new records until this command is ended");
    log->footer(kLogExamples);
}

}  // namespace

void addRemoteCommands(ControlCommands &commands, CLI::App &app)
{
    const auto options = std::make_shared<RemoteArguments>();
    CLI::App *remote = app.add_subcommand("remote", "Act as the remote hardware service of agents");
    remote->require_subcommand(1);
    remote->footer(kRemoteExamples);
    commands.add(*remote, "list", "List the sessions and the connected agents", [&commands] {
        commands.ask({{"do", "remote.list"}}, printSessions);
    });
    addAsk(commands, *remote, options);
    addClose(commands, *remote, options);
    addLog(commands, *remote, options);
    CLI::App *running = commands.add(*remote, "run", "Run a script that sends requests to agents and checks their replies",
                                     [&commands, options] { runScript(commands, options->script); });
    tools::completions::completeFiles(running->add_option("SCRIPT", options->script, "File of the script")->required());
    running->footer(kRunExamples);
}

}  // namespace kvosim
