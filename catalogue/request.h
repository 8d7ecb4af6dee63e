// One request of the library: its arguments, its commands, the result of each reply, and its names in the tools and documents.
#pragma once

#include "catalogue/function.h"

#include <initializer_list>
#include <optional>
#include <set>

namespace catalogue {

/// The value that a call stores in one of its outputs: nothing, or bytes at the beginning of the output.
struct Stored {
    // NOLINTBEGIN(*-explicit-*): a row lists the stored values
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

/// A call with a given behaviour of the service, and all observable effects of the call.
struct Exchange {
    enum class Service { answers, closes, absent };

    std::string name;
    Arguments arguments;
    std::vector<std::string> commands;  ///< the lines that the service receives, without line feeds
    std::vector<std::string> replies;   ///< one for each command; an unused one if no command is sent
    int32_t result;
    Values values{};                      ///< the stored values in the order of the outputs; empty: nothing is stored
    std::vector<std::string> messages{};  ///< the log messages
    std::string printed{};                ///< the text on standard error
    Service service = Service::answers;
    bool usual = true;  ///< the call has the arguments given to Request::asks
};

/// A request in the description of the protocol: its form, its replies and its meaning, in Markdown.
struct Wire {
    std::string form;
    std::string replies;
    std::string meaning;
};

/// The output of kvoctl for a reply.
struct Shown {
    std::string reply;
    std::string text;      ///< standard output
    std::string document;  ///< the same with --json
    int status = 0;
};

/// Replies that consist of a key and a number within bounds, which strtoul reads completely.
struct NumberForm {
    std::string key;
    int base = 10;
    unsigned long lowest = 0;
    unsigned long highest = ~0UL;
};

/// Describes a request. The cases that all requests have in common are always included: no service, a service that closes the
/// connection, the reply "failed", unknown replies, an empty reply, and a reply with a trailing blank.
class Request {
public:
    /// @p label  the beginning of its log messages; empty: it logs nothing
    Request(Function function, std::string label) : function_(std::move(function)), label_(std::move(label)) {}

    // ---- The commands; these steps come first ----

    /// The command for @p arguments. The following replies have the same arguments.
    Request &asks(std::vector<std::string> commands, Arguments arguments);
    Request &asks(const std::string &command, Arguments arguments)
    {
        return asks(std::vector<std::string>{command}, std::move(arguments));
    }
    /// The name of this request if the function has several requests.
    Request &variant(std::string name);
    /// A message that is logged first whenever a reply arrives.
    Request &alsoLogs(std::string message);

    // ---- The results of the replies ----

    /// A row: a reply, the result, the values that are stored, beginning with the first output, and the logged reason, if any.
    Request &on(const std::string &reply, int32_t result, Values values, const std::string &reason = "");
    Request &on(const std::string &reply, int32_t result) { return on(reply, result, Values{}); }
    /// A template, so that values in braces never match the parameter for the reason.
    template <class Reason, std::enable_if_t<std::is_convertible_v<Reason, std::string>, int> = 0>
    Request &on(const std::string &reply, int32_t result, const Reason &reason)
    {
        return on(reply, result, Values{}, reason);
    }
    /// One reply for each of several commands. With fewer replies than commands, the other commands are not sent.
    Request &on(std::vector<std::string> replies, int32_t result, Values values, const std::string &reason = "");
    /// Other arguments for the previous row, and the commands for them if they differ too.
    Request &given(Arguments arguments);
    Request &given(std::vector<std::string> commands, Arguments arguments);
    /// Another call and its command, with the reply and the result of the first row.
    Request &sends(const std::string &command, Arguments arguments);
    /// Another reply that the request does not know.
    Request &unknown(const std::string &reply);
    /// The result and reason of an unknown reply if they differ from the default.
    Request &unknownIs(int32_t result, const std::string &reason);
    /// The result and reason of "failed" if they differ from the default.
    Request &failedIs(int32_t result, const std::string &reason);
    /// Any reply has a meaning: no reply is unknown, and "failed" has no special meaning unless a row lists it.
    Request &takesAnyReply();
    /// The result without a service if it is not -2.
    Request &withoutServiceIs(int32_t result);
    /// The values that are stored even if no exchange takes place.
    Request &withoutServiceStores(Values values);
    /// Another message of the previous row.
    Request &thenLogs(const std::string &reason);
    /// The text that the previous row prints on standard error.
    Request &prints(std::string text);
    /// The end of the message "can not send request", such as " (count)".
    Request &exchangeCalled(std::string remark);

    /// A call that is rejected before anything is sent. @p reason  empty: nothing is logged. @p label  the label of the message
    /// if it differs from the request's label
    Request &refuses(Arguments arguments, int32_t result, const std::string &reason, const std::string &label = "");
    Request &nullPointer(Arguments arguments, const std::string &label = "");
    /// A call that sends no request.
    Request &alone(Arguments arguments, int32_t result, Values values, const std::string &reason = "");

    /// The form of the number in the replies.
    Request &reads(NumberForm form);

    // ---- In documents, tools and other tests ----

    /// The description of a command in the protocol.
    Request &wire(std::string form, std::string replies, std::string meaning);
    /// The results that a soak run accepts. Without this step, the soak run does not send the request.
    Request &soak(std::initializer_list<int32_t> results);
    /// kvoctl's subcommand and its arguments for the command above.
    Request &kvoctl(std::string words, std::vector<std::string> arguments);
    /// The output of kvoctl for a reply.
    Request &shows(std::string reply, std::string text, std::string document, int status = 0);
    /// The method or function of the C++ interface, such as "Station::reboot".
    Request &cpp(std::string method);
    /// The method of the Python module, such as "Panel.reboot".
    Request &python(std::string method);

    // ---- Access ----

    [[nodiscard]] const Function &function() const { return function_; }
    /// The function's name, followed by the variant.
    [[nodiscard]] std::string name() const { return variant_.empty() ? function_.name() : function_.name() + " " + variant_; }
    [[nodiscard]] const std::string &label() const { return label_; }
    [[nodiscard]] const std::vector<std::string> &commands() const { return commands_; }
    [[nodiscard]] const Arguments &arguments() const { return arguments_; }
    /// The rows, and the cases that all requests have in common.
    [[nodiscard]] std::vector<Exchange> allExchanges() const;
    /// Only the rows.
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
    [[nodiscard]] const std::string &cppMethod() const { return cpp_; }
    [[nodiscard]] const std::string &pythonMethod() const { return python_; }
    /// True if the function has outputs.
    [[nodiscard]] bool hasOutputs() const
    {
        return std::ranges::any_of(arguments_,
                                   [](const Argument &argument) { return argument.kind == Argument::Kind::buffer; });
    }

private:
    struct Answer {
        int32_t result;
        std::string reason;
    };

    /// The previous row; throws if there is none.
    Exchange &last();
    Exchange &add(const std::string &kind, Arguments arguments, std::vector<std::string> commands,
                  std::vector<std::string> replies, int32_t result);
    [[nodiscard]] std::string message(const std::string &reason, const std::string &label = "") const;
    /// The messages of an exchange that ends with @p reason.
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
    std::string exchange_;  ///< the end of the message "can not send request"
    std::string first_;     ///< a message before the others
    std::optional<NumberForm> form_;
    std::set<int32_t> soak_;
    std::string words_;  ///< kvoctl's subcommand
    std::vector<std::string> wordsArguments_;
    std::vector<Wire> wires_;
    std::vector<Shown> shown_;
    std::string cpp_;
    std::string python_;
};

/// The requests of several groups, in the order of the groups.
inline std::vector<Request> joined(const std::vector<std::vector<Request>> &groups)
{
    std::vector<Request> all;
    for (const auto &group : groups) {
        all.insert(all.end(), group.begin(), group.end());
    }
    return all;
}

}  // namespace catalogue

/// A request with a function of the library; the name is that of the function.
#define CATALOGUE_REQUEST(function, label) catalogue::Request(catalogue::Function(#function, function), label)
