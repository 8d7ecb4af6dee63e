// Subcommands about the agent by which the service of another station drives this one.
#include "kvoctl/agent/agent_check.h"
#include "kvoctl/agent/agent_session.h"
#include "kvoctl/families/families.h"

#include <cstdio>

namespace kvoctl {

namespace {

// ---- kvoctl agent run ----

Report run(const AgentPlan &plan, const AgentAnswers &answers, const std::optional<std::string> &program,
           const CommandLine &commandLine)
{
    const StopSignals signals;
    AgentHost host{.answers = answers};
    if (program) {
        host.program.emplace(*program, kAgentEnvironment, signals.before(), commandLine.prefix());
    }
    if (!runAgent(plan, host, lineFormat(commandLine), signals)) {
        std::fprintf(stderr, "%s: the agent has not ended in time; what it still waits for is left to itself\n",
                     commandLine.prefix().c_str());
    }
    return {};
}

SetUp running(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        const auto agent = AgentArguments::addTo(command);
        const auto remote = addAddress(command, "--remote", "The remote service, by its address");
        const auto session = addSession(command, "Its session, 0 to 9: port 5850 and up");
        remote.option->required();
        session.option->required();
        const auto answers = AgentAnswers::addTo(command);
        const auto program = addProgram(command, "Run PROGRAM to answer each command of the host, which is in its environment: "
                                                 "exit status 0 answers 1, 1 answers 0, all else -1");
        program.option->excludes(command.get_option(kAnswerOption))->excludes(command.get_option(kAnswerAllOption));
        return [=, &commandLine] {
            AgentPlan plan = agent.plan();
            plan.remoteAddress = *remote.value;
            plan.session = *session.value;
            return run(plan, *answers, program.given(), commandLine);
        };
    };
}

// ---- kvoctl agent check ----

Action setUpCheck(CLI::App &command)
{
    const auto agent = AgentArguments::addTo(command);
    const auto session = addSession(command, "The session, 0 to 9, whose port is used; else the first that is free");
    const auto answers = AgentAnswers::addTo(command);
    auto *all = addFlag(command, "--all", "Ask also what changes a station");
    return [=] { return checkAgent({agent.plan(), {.answers = *answers}, session.given(), all->count() > 0}); };
}

}  // namespace

void addAgentCommands(CommandLine &commandLine)
{
    Family agent(commandLine, kEmbedded, "agent", "The agent that lets another station's service drive this one");
    agent.add("run", "Run the agent until Ctrl-C: show what its host is asked for, and push lines of standard input",
              {"--focus 10.0.0.5 --remote 10.0.0.1 --session 3",
               "--focus-name \"Portal mill\" --remote 10.0.0.1 --session 3 --answer activate-me=busy --json",
               "--focus 10.0.0.5 --remote 10.0.0.1 --session 3 --exec ./on-command.sh"},
              {running(commandLine)});
    agent.add("check", "Ask the agent everything that a remote service can ask, over the loopback",
              {"--focus 10.0.0.5", "--focus-name \"Portal mill\" --session 7 --all"}, setUpCheck);
}

}  // namespace kvoctl
