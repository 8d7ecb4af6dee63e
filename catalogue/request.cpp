// The cases that all requests have in common, and the steps that add rows.
#include "catalogue/request.h"

#include <cctype>
#include <stdexcept>

namespace catalogue {

Request &Request::asks(std::vector<std::string> commands, Arguments arguments)
{
    commands_ = std::move(commands);
    arguments_ = std::move(arguments);
    return *this;
}

Request &Request::variant(std::string name)
{
    variant_ = std::move(name);
    return *this;
}

Request &Request::alsoLogs(std::string message)
{
    first_ = std::move(message);
    return *this;
}

namespace {

/// A name made from a text: letters, digits and underscores.
std::string nameOf(const std::string &text)
{
    constexpr std::size_t kLongest = 40;
    std::string name;
    for (const char character : text.substr(0, kLongest)) {
        const bool fits = std::isalnum(static_cast<unsigned char>(character)) != 0;
        if (fits || (!name.empty() && name.back() != '_')) {
            name += fits ? character : '_';
        }
    }
    return name.empty() ? "nothing" : name;
}

}  // namespace

Exchange &Request::last()
{
    if (exchanges_.empty()) {
        throw std::logic_error(name() + ": this step needs a row before it");
    }
    return exchanges_.back();
}

Exchange &Request::add(const std::string &kind, Arguments arguments, std::vector<std::string> commands,
                       std::vector<std::string> replies, int32_t result)
{
    if (arguments.size() != function_.parameters()) {
        throw std::logic_error(name() + ": " + std::to_string(arguments.size()) + " arguments for " +
                               std::to_string(function_.parameters()) + " parameters");
    }
    if (kind == "reply" && commands_.empty()) {
        throw std::logic_error(name() + ": a reply needs a command; asks() is missing");
    }
    const bool shows = kind == "reply" && !replies.empty();
    const std::string base = shows ? kind + "_" + nameOf(replies.back()) : kind;
    const auto same = std::ranges::count_if(exchanges_, [&](const Exchange &other) { return other.name.starts_with(base); });
    exchanges_.push_back({.name = same == 0 ? base : base + "_" + std::to_string(same + 1),
                          .arguments = std::move(arguments),
                          .commands = std::move(commands),
                          .replies = std::move(replies),
                          .result = result});
    return exchanges_.back();
}

Request &Request::on(std::vector<std::string> replies, int32_t result, Values values, const std::string &reason)
{
    // The service receives one command for each reply.
    std::vector<std::string> commands(
        commands_.begin(), commands_.begin() + static_cast<std::ptrdiff_t>(std::min(commands_.size(), replies.size())));
    Exchange &exchange = add("reply", arguments_, std::move(commands), std::move(replies), result);
    exchange.values = std::move(values);
    exchange.messages = messages(reason);
    return *this;
}

Request &Request::on(const std::string &reply, int32_t result, Values values, const std::string &reason)
{
    return on(std::vector<std::string>{reply}, result, std::move(values), reason);
}

Request &Request::given(Arguments arguments)
{
    last().arguments = std::move(arguments);
    last().usual = false;
    return *this;
}

Request &Request::given(std::vector<std::string> commands, Arguments arguments)
{
    last().commands = std::move(commands);
    return given(std::move(arguments));
}

Request &Request::sends(const std::string &command, Arguments arguments)
{
    last();  // throws without a row
    const Exchange first = exchanges_.front();
    Exchange &exchange = add("sends", std::move(arguments), {command}, first.replies, first.result);
    exchange.usual = false;
    exchange.values = first.values;
    exchange.messages = first.messages;
    return *this;
}

Request &Request::unknown(const std::string &reply)
{
    unknownReplies_.push_back(reply);
    return *this;
}

Request &Request::unknownIs(int32_t result, const std::string &reason)
{
    unknown_ = {result, reason};
    return *this;
}

Request &Request::failedIs(int32_t result, const std::string &reason)
{
    failed_ = {result, reason};
    return *this;
}

Request &Request::takesAnyReply()
{
    takesAny_ = true;
    return *this;
}

Request &Request::withoutServiceIs(int32_t result)
{
    withoutService_ = result;
    return *this;
}

Request &Request::withoutServiceStores(Values values)
{
    valuesWithoutService_ = std::move(values);
    return *this;
}

Request &Request::thenLogs(const std::string &reason)
{
    last().messages.push_back(message(reason));
    return *this;
}

Request &Request::prints(std::string text)
{
    last().printed = std::move(text);
    return *this;
}

Request &Request::exchangeCalled(std::string remark)
{
    exchange_ = std::move(remark);
    return *this;
}

Request &Request::refuses(Arguments arguments, int32_t result, const std::string &reason, const std::string &label)
{
    Exchange &exchange = add("refused", std::move(arguments), {}, {"asked"}, result);
    exchange.usual = false;
    if (!reason.empty() && !label_.empty()) {
        exchange.messages = {message(reason, label)};
    }
    return *this;
}

Request &Request::nullPointer(Arguments arguments, const std::string &label)
{
    Exchange &exchange = add("null_pointer", std::move(arguments), {}, {"asked"}, -7);
    exchange.usual = false;
    exchange.messages = {message("null pointer received", label)};
    return *this;
}

Request &Request::alone(Arguments arguments, int32_t result, Values values, const std::string &reason)
{
    Exchange &exchange = add("alone", std::move(arguments), {}, {"asked"}, result);
    exchange.values = std::move(values);
    exchange.messages = messages(reason);
    exchange.usual = false;
    return *this;
}

Request &Request::reads(NumberForm form)
{
    form_ = std::move(form);
    return *this;
}

Request &Request::soak(std::initializer_list<int32_t> results)
{
    soak_ = results;
    return *this;
}

Request &Request::kvoctl(std::string words, std::vector<std::string> arguments)
{
    words_ = std::move(words);
    wordsArguments_ = std::move(arguments);
    return *this;
}

Request &Request::wire(std::string form, std::string replies, std::string meaning)
{
    wires_.push_back({std::move(form), std::move(replies), std::move(meaning)});
    return *this;
}

Request &Request::shows(std::string reply, std::string text, std::string document, int status)
{
    shown_.push_back({std::move(reply), std::move(text), std::move(document), status});
    return *this;
}

Request &Request::cpp(std::string method)
{
    cpp_ = std::move(method);
    return *this;
}

Request &Request::python(std::string method)
{
    python_ = std::move(method);
    return *this;
}

std::vector<Exchange> Request::allExchanges() const
{
    std::vector<Exchange> all = exchanges_;
    if (commands_.empty()) {
        return all;
    }
    const std::vector<std::string> first = {commands_.front()};
    const auto noExchange = [this](const std::string &channel) {
        std::vector<std::string> texts = {"command socket - " + channel};
        if (!label_.empty()) {
            texts.push_back(message("can not send request" + exchange_));
        }
        return texts;
    };
    if (!takesAny_) {
        all.push_back({"failed", arguments_, first, {"failed"}, failed_.result, {}, messages(failed_.reason)});
        for (std::size_t i = 0; i < unknownReplies_.size(); ++i) {
            all.push_back({"unknown_" + std::to_string(i + 1),
                           arguments_,
                           first,
                           {unknownReplies_[i]},
                           unknown_.result,
                           {},
                           messages(unknown_.reason)});
        }
    }
    all.push_back({.name = "no_service",
                   .arguments = arguments_,
                   .commands = {},
                   .replies = {},
                   .result = withoutService_,
                   .values = valuesWithoutService_,
                   .messages = noExchange("can not connect to socket"),
                   .service = Exchange::Service::absent});
    all.push_back({.name = "peer_closes",
                   .arguments = arguments_,
                   .commands = first,
                   .replies = {},
                   .result = -1,
                   .values = valuesWithoutService_,
                   .messages = noExchange("can not read from socket"),
                   .service = Exchange::Service::closes});
    return all;
}

std::string Request::message(const std::string &reason, const std::string &label) const
{
    return (label.empty() ? label_ : label) + " - " + reason;
}

std::vector<std::string> Request::messages(const std::string &reason) const
{
    std::vector<std::string> all;
    if (!first_.empty()) {
        all.push_back(first_);
    }
    if (!reason.empty() && !label_.empty()) {
        all.push_back(message(reason));
    }
    return all;
}

}  // namespace catalogue
