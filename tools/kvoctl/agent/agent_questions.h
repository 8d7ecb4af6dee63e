// What "kvoctl agent check" asks an agent: with which argument each command is harmless, and how it may be answered.
#pragma once

#include <string>
#include <string_view>

namespace kvoctl {

struct AgentQuestion {
    /// Of what is answered without its tag, with its line end, where it has one; an extended regular expression.
    std::string reply;
    std::string_view argument{};  ///< behind a keyword that ends in "="
    /// The command that tells the present value, which is then the argument instead.
    std::string_view getter{};
    /// Whether it changes the station, or others, even so.
    bool changes = false;
};

/// Null for a keyword that is not known here.
const AgentQuestion *agentQuestion(std::string_view keyword);

/// Whether @p reply is one that the protocol has for the command.
bool isInForm(const AgentQuestion &question, const std::string &reply);

}  // namespace kvoctl
