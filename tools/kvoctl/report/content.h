// What a part of a report consists of.
#pragma once

#include <string>
#include <vector>

namespace kvoctl::reporting {

/// How a file is anonymized.
enum class Form {
    text,           ///< a text for people
    configuration,  ///< lines of "key = value"
    log,            ///< lines of the system log
    plant,          ///< a plant file
    recording,
    json,  ///< a document
};

struct File {
    std::string name;  ///< its path in the report
    std::string content;
    Form form = Form::text;
};

struct Content {
    std::vector<File> files{};
    std::vector<std::string> notes{};  ///< what is missing in the files, and why
};

/// One text for both, to pass them from one process to another.
std::string encode(const Content &content);
std::string encodeFailure(const std::string &reason);
/// Throws std::runtime_error with the reason if @p text is from encodeFailure(), and Json::exception if it is incomplete.
Content decode(const std::string &text);

}  // namespace kvoctl::reporting
