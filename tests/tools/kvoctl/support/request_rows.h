// Collects the rows of one subcommand. A refusal, an unknown answer and a missing service are there from the start.
#pragma once

#include "tools/kvoctl/support/request_case.h"

#include <algorithm>

namespace kvoctl_test {

class CommandRows {
public:
    /// @p words    the subcommand, "viewer start"
    /// @p request  what the service hears
    CommandRows(const std::string &words, const Arguments &arguments, std::string request)
        : words_(words), request_(std::move(request))
    {
        std::string word;
        for (const char character : words + " ") {
            if (character == ' ') {
                arguments_.push_back(std::move(word));
                word.clear();
            } else {
                word += character;
            }
        }
        arguments_.insert(arguments_.end(), arguments.begin(), arguments.end());
    }

    /// A reply that is shown.
    CommandRows &shows(const std::string &reply, const std::string &out, const std::string &document, int status = 0)
    {
        return add({reply}, {request_}, status, out, document);
    }

    /// A reply that means that it was done.
    CommandRows &isDone(const std::string &reply = "ok") { return shows(reply, "", R"({"done": true})"); }

    /// A reply that ends with a result and these words.
    CommandRows &fails(const std::string &reply, int result, const std::string &meaning)
    {
        const std::string document = Json{{"error", {{"code", result}, {"meaning", meaning}}}}.dump();
        return add({reply}, {request_}, result == 0 ? 1 : 4, "", document,
                   meaning + " (result " + std::to_string(result) + ")\n");
    }

    /// What "failed" and an unknown answer come to where it is not the usual refusal.
    CommandRows &noRefusal()
    {
        refuses_ = false;
        return *this;
    }

    /// All of them, to be called last.
    [[nodiscard]] std::vector<Case> rows()
    {
        if (refuses_) {
            add({"failed"}, {request_}, 4, "", kRefusalDocument, kRefusal);
            add({"hm"}, {request_}, 4, "", kRefusalDocument, kRefusal);
        }
        add({}, {}, 3, "", kMissingDocument, kMissing);
        return std::move(rows_);
    }

private:
    CommandRows &add(const std::vector<std::string> &replies, const std::vector<std::string> &requests, int status,
                     const std::string &out, const std::string &document, const std::string &err = "")
    {
        std::string name;
        for (const std::string &argument : arguments_) {
            name += argument + "_";
        }
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
    bool refuses_ = true;
    std::vector<Case> rows_;
};

/// Appends @p rows to @p all.
inline void append(std::vector<Case> &all, const std::vector<Case> &rows) { all.insert(all.end(), rows.begin(), rows.end()); }

}  // namespace kvoctl_test
