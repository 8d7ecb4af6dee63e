// Scripts for the remote side: what is sent to agents and what is expected of them, a line each (docs/remote-side.md).
#pragma once

#include <chrono>
#include <cstddef>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

struct ScriptStep {
    enum class Kind { send, raw, reply, indication, waitConnected, waitClosed, close, reset, away, pause };

    Kind kind = Kind::send;
    std::size_t line = 0;  ///< in the script, from 1
    unsigned session = 0;
    std::string text{};  ///< what is sent, or expected
    bool isPattern = false;
    std::regex pattern{};               ///< of the whole text, where it is one
    std::chrono::milliseconds time{0};  ///< for how long it waits at most; of a pause or an absence, for how long
};

/// Throws Refused, which begins with the file's name and the line, where a line is not understood.
std::vector<ScriptStep> parseScript(std::string_view text, const std::string &fileName);
std::vector<ScriptStep> loadScript(const std::string &fileName);

}  // namespace kvosim
