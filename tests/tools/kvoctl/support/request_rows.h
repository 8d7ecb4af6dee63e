// Builds the test cases of one subcommand from the replies of the service.
#pragma once

#include "tools/kvoctl/support/request_case.h"

#include "catalogue/catalogue.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
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
        return add("shows", {reply}, {request_}, status, out, document);
    }

    /// A reply that means success without output.
    CommandRows &isDone(const std::string &reply = "ok")
    {
        return add("succeeds", {reply}, {request_}, 0, "", R"({"done": true})");
    }

    /// A reply that leads to this result and message.
    CommandRows &fails(const std::string &reply, int result, const std::string &meaning)
    {
        const std::string document = Json{{"error", {{"code", result}, {"meaning", meaning}}}}.dump();
        return add("fails_with_" + std::string(result < 0 ? "minus_" : "") + std::to_string(std::abs(result)), {reply},
                   {request_}, result == 0 ? 1 : 4, "", document, meaning + " (result " + std::to_string(result) + ")\n");
    }

    /// Without a service.
    CommandRows &missesTheService() { return add("fails_without_a_service", {}, {}, 3, "", kMissingDocument, kMissing); }

    /// Returns all rows. Call it last.
    [[nodiscard]] std::vector<Case> rows() { return std::move(rows_); }

private:
    /// The name of a row is the command line and the outcome, with a number if several rows have this outcome.
    CommandRows &add(const std::string &outcome, const std::vector<std::string> &replies,
                     const std::vector<std::string> &requests, int status, const std::string &out, const std::string &document,
                     const std::string &err = "")
    {
        std::string name;
        for (const std::string &argument : arguments_) {
            name += argument + "_";
        }
        name += outcome;
        std::replace_if(
            name.begin(), name.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
        const int before = names_[name]++;
        rows_.push_back({.name = before == 0 ? name : name + "_" + std::to_string(before + 1),
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
    std::map<std::string, int> names_;  ///< how many rows have the name
    std::vector<Case> rows_;
};

/// Appends @p rows to @p all.
inline void append(std::vector<Case> &all, const std::vector<Case> &rows) { all.insert(all.end(), rows.begin(), rows.end()); }

}  // namespace kvoctl_test
