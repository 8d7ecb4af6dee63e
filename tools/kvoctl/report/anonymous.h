// Replaces what says something about the plant in all parts of a report, and in the same way in all of them.
#pragma once

#include "common/recording/anonymizer.h"
#include "kvoctl/report/content.h"

namespace kvoctl::reporting {

class Anonymous {
public:
    /// Knows the names of this machine and of its users.
    Anonymous();

    /// Replaces names and addresses in the files. First the files from which names are learned: all files of a report must be given
    /// together.
    void replaceIn(const std::vector<Content *> &contents);
    /// A reason or a message.
    std::string text(const std::string &original) { return anonymizer_.anonymizeText(original); }

    [[nodiscard]] std::size_t addresses() const noexcept { return anonymizer_.addresses(); }
    [[nodiscard]] std::size_t texts() const noexcept { return anonymizer_.texts(); }

private:
    void replaceIn(Content &content, Form form);
    std::string replaced(const File &file);
    std::string json(const std::string &original);
    std::string configuration(const std::string &original);
    std::string log(const std::string &original);
    std::string logLine(const std::string &original);
    std::string recording(const std::string &original);

    tools::recording::Anonymizer anonymizer_;
};

}  // namespace kvoctl::reporting
