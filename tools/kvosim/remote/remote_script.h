// Scripts for the remote side: each line sends something to an agent or expects something from it (docs/remote-side.md).
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
    std::size_t line = 0;  ///< line number in the script, from 1
    unsigned session = 0;
    std::string text{};  ///< the text to send or to expect
    bool isPattern = false;
    std::regex pattern{};               ///< if isPattern: must match the whole text
    std::chrono::milliseconds time{0};  ///< the timeout of the step; for "pause" and "away", the duration
};

/// Throws Refused if a line is invalid. The text begins with the file's name and the line number.
std::vector<ScriptStep> parseScript(std::string_view text, const std::string &fileName);
std::vector<ScriptStep> loadScript(const std::string &fileName);

}  // namespace kvosim
