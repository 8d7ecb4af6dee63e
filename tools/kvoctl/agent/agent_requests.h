// The requests of "kvoctl agent check": a harmless argument and the valid replies of each command.
#pragma once

#include <string>
#include <string_view>

namespace kvoctl {

struct AgentRequest {
    /// An extended regular expression that matches valid replies. Replies have no tag here, but a line end if they have one on
    /// the wire.
    std::string reply;
    std::string_view argument{};  ///< follows a keyword that ends in "="
    /// The command that returns the current value. If given, the current value is sent instead of @c argument.
    std::string_view getter{};
    /// Whether the command changes this or another station even with this argument.
    bool changes = false;
};

/// Null for an unknown keyword.
const AgentRequest *findAgentRequest(std::string_view keyword);

/// Whether the protocol allows @p reply to the command.
bool isValidReply(const AgentRequest &request, const std::string &reply);

}  // namespace kvoctl
