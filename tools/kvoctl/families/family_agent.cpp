// Subcommands about the agent, through which another station's service controls this station.
#include "kvoctl/agent/agent_check.h"
#include "kvoctl/agent/agent_session.h"
#include "kvoctl/families/families.h"

#include <cstdio>

namespace kvoctl {

namespace {

// ---- kvoctl agent run ----

Report run(const AgentOptions &options, const AgentAnswers &answers, const std::optional<std::string> &program,
           const CommandLine &commandLine)
{
    const StopSignals signals;
    AgentHost host{.answers = answers};
    if (program) {
        host.program.emplace(*program, kAgentVariablePrefix, signals.previousMask(), commandLine.prefix());
    }
    if (!runAgent(options, host, lineFormat(commandLine), signals)) {
        std::fprintf(stderr, "%s: the agent did not end in time; kvoctl ends without waiting for it\n",
                     commandLine.prefix().c_str());
    }
    return {};
}

CommandSetup setUpRun(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        const auto agent = AgentArguments::addTo(command);
        const auto remote = addAddress(command, "--remote", "The address of the remote service");
        const auto session = addSession(command, "The session, 0 to 9, on port 5850 plus N");
        remote.option->required();
        session.option->required();
        const auto answers = AgentAnswers::addTo(command);
        const auto program =
            addProgram(command, "Run PROGRAM to answer each command for the host. Its environment variables contain the "
                                "command. Exit status 0 means the answer 1, exit status 1 the answer 0, any other -1");
        program.option->excludes(command.get_option(kAnswerOption))->excludes(command.get_option(kAnswerAllOption));
        return [=, &commandLine] {
            AgentOptions options = agent.options();
            options.remoteAddress = *remote.value;
            options.session = *session.value;
            return run(options, *answers, program.valueIfGiven(), commandLine);
        };
    };
}

// ---- kvoctl agent check ----

Action setUpCheck(CLI::App &command)
{
    const auto agent = AgentArguments::addTo(command);
    const auto session = addSession(command, "The session, 0 to 9, whose port is used (default: the first with a free port)");
    const auto answers = AgentAnswers::addTo(command);
    auto *all = addFlag(command, "--all", "Also send commands that change a station");
    return [=] { return checkAgent({agent.options(), {.answers = *answers}, session.valueIfGiven(), all->count() > 0}); };
}

}  // namespace

void addAgentCommands(CommandLine &commandLine)
{
    Family agent(commandLine, kEmbeddedHeading, "agent",
                 "The agent: another station's service controls this station through it");
    agent.add("run", "Run the agent until Ctrl-C; show the commands for the host, and send lines of standard input as events",
              {"--focus 10.0.0.5 --remote 10.0.0.1 --session 3",
               "--focus-name \"Portal mill\" --remote 10.0.0.1 --session 3 --answer activate-me=busy --json",
               "--focus 10.0.0.5 --remote 10.0.0.1 --session 3 --exec ./on-command.sh"},
              {setUpRun(commandLine)});
    agent.add("check", "Run an agent and send it every command of a remote service, over the loopback interface",
              {"--focus 10.0.0.5", "--focus-name \"Portal mill\" --session 7 --all"}, setUpCheck);
}

}  // namespace kvoctl
