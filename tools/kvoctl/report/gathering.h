// Makes parts of a report in processes of their own: a part that fails, crashes or hangs costs only itself.
#pragma once

#include "common/command_line/progress_line.h"
#include "common/recording/line.h"
#include "kvoctl/report/part.h"

#include <csignal>
#include <string>

namespace kvoctl::reporting {

struct Gathered {
    Content content{};
    std::string failure{};   ///< why the part is missing; empty if it is not
    std::string messages{};  ///< of the library, while the part was made
    tools::recording::StartTime made{};
};

class Gathering {
public:
    /// From now on, SIGINT, SIGTERM and SIGHUP end the gathering early instead of the process.
    /// @p count  of the parts, for the progress
    explicit Gathering(std::size_t count);

    /// Returns within the part's limit and 10 s more. Throws std::runtime_error if the user has ended the gathering twice.
    Gathered gather(const Part &part, Circumstances circumstances);

    /// Whether the user has ended it. No other part is then made.
    [[nodiscard]] bool isEnded() const noexcept { return orders_ > 0; }

private:
    struct Child;
    void attend(const Child &child, const Part &part, bool &isLate);
    void show(const Part &part, const std::string &progress);

    sigset_t mask_{};
    std::size_t count_;
    std::size_t number_ = 0;
    int orders_ = 0;
    tools::command_line::ProgressLine line_;
};

}  // namespace kvoctl::reporting
