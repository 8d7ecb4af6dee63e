// One request of the library: how it is called, what goes over the wire, what each reply comes to, and its names elsewhere.
#pragma once

#include "catalogue/function.h"

#include <initializer_list>
#include <optional>
#include <set>

namespace catalogue {

/// What a call stores in one of its outputs: nothing, or bytes at its beginning.
struct Stored {
    // NOLINTBEGIN(*-explicit-*): a row lists what is stored as values
    template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
    Stored(Number value) : bytes(wordOf(static_cast<uint32_t>(value)))
    {
    }
    Stored(const char *text) : bytes(std::string(text) + '\0') {}
    Stored(const std::string &text) : Stored(text.c_str()) {}
    Stored(std::nullopt_t) {}
    // NOLINTEND(*-explicit-*)

    std::optional<std::string> bytes{};
};

using Values = std::vector<Stored>;

inline constexpr std::nullopt_t nothing = std::nullopt;

/// Bytes without a terminator.
inline Stored bytes(std::string value)
{
    Stored stored(nothing);
    stored.bytes = std::move(value);
    return stored;
}

template <class Record>
Stored records(const std::vector<Record> &values)
{
    return bytes({reinterpret_cast<const char *>(values.data()), values.size() * sizeof(Record)});
}

/// A call against a service that behaves in a certain way, and all that can be seen of it.
struct Exchange {
    enum class Service { answers, closes, absent };

    std::string name;
    Arguments arguments;
    std::vector<std::string> commands;  ///< what the service hears, without line feeds
    std::vector<std::string> replies;   ///< one for each command; of a service that is never asked, one all the same
    int32_t result;
    Values values{};                      ///< of the outputs in their order; none: nothing is stored
    std::vector<std::string> messages{};  ///< what is logged
    std::string printed{};                ///< what standard error gets
    Service service = Service::answers;
    bool usual = true;  ///< called with the arguments that the request's command is for
};

/// A request in the description of the protocol: its form, its replies, and what it means, in Markdown.
struct Wire {
    std::string form;
    std::string replies;
    std::string meaning;
};

/// What kvoctl shows of a reply.
struct Shown {
    std::string reply;
    std::string text;      ///< standard output
    std::string document;  ///< the same with --json
    int status = 0;
};

/// Replies that are a key and a number within bounds, in which strtoul leaves nothing unread.
struct NumberForm {
    std::string key;
    int base = 10;
    unsigned long lowest = 0;
    unsigned long highest = ~0UL;
};

/// Collects what a request is. What all requests have in common is there from the start: no service, a service that closes the
/// connection, the reply "failed", unknown replies, an empty one, and one with a trailing blank.
class Request {
public:
    /// @p label  with which its log messages begin; empty: it logs none
    Request(Function function, std::string label) : function_(std::move(function)), label_(std::move(label)) {}

    // ---- What is asked, before all that follows ----

    /// The command for @p arguments, which are also those of the replies that follow.
    Request &asks(std::vector<std::string> commands, Arguments arguments);
    Request &asks(const std::string &command, Arguments arguments)
    {
        return asks(std::vector<std::string>{command}, std::move(arguments));
    }
    /// Which of several requests of the same function this is.
    Request &variant(std::string name);
    /// A message that comes first whenever the service is asked.
    Request &alsoLogs(std::string message);

    // ---- What the replies come to ----

    /// A row: a reply, the result, what is stored in the outputs from the first on, and the reason that is logged, if any.
    Request &on(const std::string &reply, int32_t result, Values values, const std::string &reason = "");
    Request &on(const std::string &reply, int32_t result) { return on(reply, result, Values{}); }
    /// A template, so that values in braces are never taken for a reason.
    template <class Reason, std::enable_if_t<std::is_convertible_v<Reason, std::string>, int> = 0>
    Request &on(const std::string &reply, int32_t result, const Reason &reason)
    {
        return on(reply, result, Values{}, reason);
    }
    /// A reply to each of several commands. Fewer replies than commands: the rest is never asked.
    Request &on(std::vector<std::string> replies, int32_t result, Values values, const std::string &reason = "");
    /// Other arguments for the row before, and the commands that they make where these are others too.
    Request &given(Arguments arguments);
    Request &given(std::vector<std::string> commands, Arguments arguments);
    /// Another call and its command; the reply means the same as the first.
    Request &sends(const std::string &command, Arguments arguments);
    /// A further reply that the request does not know.
    Request &unknown(const std::string &reply);
    /// What an unknown reply comes to, where it is not the usual failure.
    Request &unknownIs(int32_t result, const std::string &reason);
    /// What "failed" comes to, likewise.
    Request &failedIs(int32_t result, const std::string &reason);
    /// Every reply that is not listed says something: there are no unknown ones, and "failed" is like any other.
    Request &takesAnyReply();
    /// The result without a service, where it is not -2.
    Request &withoutServiceIs(int32_t result);
    /// What is stored although no exchange comes about.
    Request &withoutServiceStores(Values values);
    /// One more message of the row before.
    Request &thenLogs(const std::string &reason);
    /// What the row before prints on standard error.
    Request &prints(std::string text);
    /// What follows the label in the log when no exchange takes place, " (count)".
    Request &exchangeCalled(std::string remark);

    /// A call that is refused before anything is sent. @p reason  empty: nothing is logged. @p label  where it speaks in
    /// another's name
    Request &refuses(Arguments arguments, int32_t result, const std::string &reason, const std::string &label = "");
    Request &nullPointer(Arguments arguments, const std::string &label = "");
    /// A call that needs no service.
    Request &alone(Arguments arguments, int32_t result, Values values, const std::string &reason = "");

    /// How the number in the replies is read.
    Request &reads(NumberForm form);

    // ---- Elsewhere ----

    /// The protocol's description of a command.
    Request &wire(std::string form, std::string replies, std::string meaning);
    /// What a soak run may see. Without it, the soak run does not make the request.
    Request &soak(std::initializer_list<int32_t> results);
    /// kvoctl's subcommand and its arguments for the command above.
    Request &kvoctl(std::string words, std::vector<std::string> arguments);
    /// What that shows of a reply that is an answer.
    Request &shows(std::string reply, std::string text, std::string document, int status = 0);
    /// The method of the Python module, "Panel.reboot".
    Request &python(std::string method);

    // ---- For readers ----

    [[nodiscard]] const Function &function() const { return function_; }
    /// The function's name, followed by the variant.
    [[nodiscard]] std::string name() const { return variant_.empty() ? function_.name() : function_.name() + " " + variant_; }
    [[nodiscard]] const std::string &label() const { return label_; }
    [[nodiscard]] const std::vector<std::string> &commands() const { return commands_; }
    [[nodiscard]] const Arguments &arguments() const { return arguments_; }
    /// The rows, and what all requests have in common.
    [[nodiscard]] std::vector<Exchange> allExchanges() const;
    /// The rows alone.
    [[nodiscard]] const std::vector<Exchange> &ownExchanges() const { return exchanges_; }
    [[nodiscard]] int32_t unknownResult() const { return unknown_.result; }
    [[nodiscard]] int32_t failedResult() const { return failed_.result; }
    [[nodiscard]] int32_t withoutService() const { return withoutService_; }
    [[nodiscard]] bool takesEverything() const { return takesAny_; }
    [[nodiscard]] const std::optional<NumberForm> &numberForm() const { return form_; }
    [[nodiscard]] const std::set<int32_t> &soakResults() const { return soak_; }
    [[nodiscard]] const std::string &kvoctlWords() const { return words_; }
    [[nodiscard]] const std::vector<std::string> &kvoctlArguments() const { return wordsArguments_; }
    [[nodiscard]] const std::vector<Wire> &wires() const { return wires_; }
    [[nodiscard]] const std::vector<Shown> &shown() const { return shown_; }
    [[nodiscard]] const std::string &pythonMethod() const { return python_; }
    /// Whether it stores something.
    [[nodiscard]] bool hasOutputs() const
    {
        return std::ranges::any_of(arguments_, [](const Argument &argument) { return argument.kind == Argument::Kind::room; });
    }

private:
    struct Answer {
        int32_t result;
        std::string reason;
    };

    /// The row before; throws where there is none.
    Exchange &last();
    Exchange &add(const std::string &kind, Arguments arguments, std::vector<std::string> commands,
                  std::vector<std::string> replies, int32_t result);
    [[nodiscard]] std::string message(const std::string &reason, const std::string &label = "") const;
    /// What an exchange logs that ends for @p reason.
    [[nodiscard]] std::vector<std::string> messages(const std::string &reason) const;

    Function function_;
    std::string label_;
    std::string variant_;
    std::vector<std::string> commands_;
    Arguments arguments_;
    std::vector<Exchange> exchanges_;
    std::vector<std::string> unknownReplies_{"", "ok ", "what is it"};
    Answer failed_{-1, "error sending request"};
    Answer unknown_{-1, "unknown error sending request"};
    bool takesAny_ = false;
    int32_t withoutService_ = -2;
    Values valuesWithoutService_;
    std::string exchange_;  ///< what follows the label where no exchange takes place
    std::string first_;     ///< a message before the others
    std::optional<NumberForm> form_;
    std::set<int32_t> soak_;
    std::string words_;  ///< kvoctl's
    std::vector<std::string> wordsArguments_;
    std::vector<Wire> wires_;
    std::vector<Shown> shown_;
    std::string python_;
};

/// The requests of several groups, in their order.
inline std::vector<Request> joined(const std::vector<std::vector<Request>> &groups)
{
    std::vector<Request> all;
    for (const auto &group : groups) {
        all.insert(all.end(), group.begin(), group.end());
    }
    return all;
}

}  // namespace catalogue

/// A request by its function, which is also its name.
#define CATALOGUE_REQUEST(function, label) catalogue::Request(catalogue::Function(#function, function), label)
