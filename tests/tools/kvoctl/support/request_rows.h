// Builds the test cases of one subcommand from the replies of the service.
#pragma once

#include "tools/kvoctl/support/request_case.h"

#include "catalogue/catalogue.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace kvoctl_test {

/// The words of a subcommand and its arguments, as a list.
inline Arguments commandLine(const std::string &words, const Arguments &arguments)
{
    std::istringstream input(words);
    Arguments all(std::istream_iterator<std::string>(input), {});
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

class CommandRows {
public:
    /// The subcommand of a request in the catalogue, by the request's name.
    explicit CommandRows(const std::string &name) : CommandRows(catalogue::requestOf(name)) {}
    explicit CommandRows(const catalogue::Request &request)
        : CommandRows(request.kvoctlWords(), request.kvoctlArguments(), request.commands().front())
    {
    }
    /// @p words    the subcommand, "viewer start"
    /// @p request  the request that the service receives
    CommandRows(const std::string &words, const Arguments &arguments, std::string request)
        : words_(words), request_(std::move(request)), arguments_(commandLine(words, arguments))
    {
    }

    /// A reply with output.
    CommandRows &shows(const std::string &reply, const std::string &out, const std::string &document, int status = 0)
    {
        return add({reply}, {request_}, status, out, document);
    }

    /// A reply that means success without output.
    CommandRows &isDone(const std::string &reply = "ok") { return shows(reply, "", R"({"done": true})"); }

    /// A reply that leads to this result and message.
    CommandRows &fails(const std::string &reply, int result, const std::string &meaning)
    {
        const std::string document = Json{{"error", {{"code", result}, {"meaning", meaning}}}}.dump();
        return add({reply}, {request_}, result == 0 ? 1 : 4, "", document,
                   meaning + " (result " + std::to_string(result) + ")\n");
    }

    /// Adds @p kind to the names of the rows, to distinguish them from other rows of the same subcommand.
    CommandRows &named(std::string kind)
    {
        kind_ = std::move(kind);
        return *this;
    }

    /// Without a service.
    CommandRows &missesTheService() { return add({}, {}, 3, "", kMissingDocument, kMissing); }

    /// Returns all rows. Call it last.
    [[nodiscard]] std::vector<Case> rows() { return std::move(rows_); }

private:
    CommandRows &add(const std::vector<std::string> &replies, const std::vector<std::string> &requests, int status,
                     const std::string &out, const std::string &document, const std::string &err = "")
    {
        std::string name;
        for (const std::string &argument : arguments_) {
            name += argument + "_";
        }
        name += kind_;
        std::replace_if(
            name.begin(), name.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
        rows_.push_back({.name = name + std::to_string(rows_.size() + 1),
                         .arguments = arguments_,
                         .replies = replies,
                         .requests = requests,
                         .status = status,
                         .out = out,
                         .document = document,
                         .err = err.empty() ? "" : "kvoctl: " + words_ + ": " + err});
        return *this;
    }

    std::string words_;
    std::string request_;
    Arguments arguments_;
    std::string kind_;
    std::vector<Case> rows_;
};

/// Appends @p rows to @p all.
inline void append(std::vector<Case> &all, const std::vector<Case> &rows) { all.insert(all.end(), rows.begin(), rows.end()); }

}  // namespace kvoctl_test
