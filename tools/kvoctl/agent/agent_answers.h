// The host's answers to commands, as given on the command line.
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

    /// Adds the options --answer and --answer-all. The result has their values after the command line has been parsed.
    static std::shared_ptr<const AgentAnswers> addTo(CLI::App &command);

private:
    std::map<std::string, int> byKeyword_;
    int others_ = 1;  // the answer to all other commands: "done" or "yes"
};

inline constexpr const char *kAnswerOption = "--answer";
inline constexpr const char *kAnswerAllOption = "--answer-all";

}  // namespace kvoctl
