// The host's answers to the agent's commands, from the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

namespace kvoctl {

/// A command to the host, split into its parts: "set-darken=1" is "set-darken" and "1".
struct HostCommand {
    explicit HostCommand(const std::string &text);

    std::string keyword;
    std::string argument{};
    bool hasArgument = false;
};

class AgentAnswers {
public:
    [[nodiscard]] int answerTo(const std::string &keyword) const;

    /// Declares the options --answer and --answer-all.
    static std::shared_ptr<const AgentAnswers> addTo(CLI::App &command);

private:
    std::map<std::string, int> byKeyword_;
    int others_ = 1;
};

inline constexpr const char *kAnswerOption = "--answer";
inline constexpr const char *kAnswerAllOption = "--answer-all";

}  // namespace kvoctl
