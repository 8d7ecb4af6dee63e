// Prints the catalogue as JSON, an array of requests, for programs in other languages.
#include "catalogue/catalogue.h"

#include <iostream>
#include <kvo_hws/result.h>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

/// Replies may contain any bytes; bytes that are not UTF-8 are replaced.
std::string printed(const Json &json) { return json.dump(2, ' ', false, Json::error_handler_t::replace); }

/// {"station": ...}, a number, a text, null, or {"buffer": elements}.
Json jsonOf(const catalogue::Argument &argument)
{
    using Kind = catalogue::Argument::Kind;
    switch (argument.kind) {
    case Kind::station: return {{"station", catalogue::kHere}};
    case Kind::number: return argument.number;
    case Kind::text: return argument.text;
    case Kind::buffer: return {{"buffer", argument.number}};
    case Kind::null: break;
    }
    return nullptr;
}

/// The bytes as hexadecimal digits, or null if nothing is stored.
Json jsonOf(const catalogue::Stored &stored)
{
    if (!stored.bytes) {
        return nullptr;
    }
    constexpr const char *kDigits = "0123456789abcdef";
    std::string digits;
    for (const char byte : *stored.bytes) {
        const auto value = static_cast<unsigned char>(byte);
        digits += {kDigits[value / 16], kDigits[value % 16]};
    }
    return digits;
}

template <class Element>
Json arrayOf(const std::vector<Element> &elements)
{
    Json all = Json::array();
    for (const Element &element : elements) {
        all.push_back(jsonOf(element));
    }
    return all;
}

const char *nameOf(catalogue::Exchange::Service service)
{
    using Service = catalogue::Exchange::Service;
    return service == Service::absent ? "absent" : service == Service::closes ? "closes" : "answers";
}

Json jsonOf(const catalogue::Exchange &exchange)
{
    return {{"name", exchange.name},
            {"usual", exchange.usual},
            {"service", nameOf(exchange.service)},
            {"arguments", arrayOf(exchange.arguments)},
            {"values", arrayOf(exchange.values)},
            {"commands", exchange.commands},
            {"replies", exchange.replies},
            {"result", exchange.result},
            {"messages", exchange.messages}};
}

Json jsonOf(const catalogue::Family &family, const catalogue::Request &request)
{
    Json exchanges = Json::array();
    for (const catalogue::Exchange &exchange : request.allExchanges()) {
        exchanges.push_back(jsonOf(exchange));
    }
    Json shown = Json::array();
    for (const catalogue::Shown &row : request.shown()) {
        shown.push_back(row.reply);
    }
    Json meanings = Json::object();
    for (const catalogue::Exchange &exchange : request.allExchanges()) {
        meanings[std::to_string(exchange.result)] = kvo_hws_result_text(request.function().name().c_str(), exchange.result);
    }
    Json wires = Json::array();
    for (const catalogue::Wire &wire : request.wires()) {
        wires.push_back({wire.form, wire.replies, wire.meaning});
    }
    return {{"family", family.name},
            {"name", request.name()},
            {"function", request.function().name()},
            {"label", request.label()},
            {"commands", request.commands()},
            {"takes_any_reply", request.takesEverything()},
            {"exchanges", exchanges},
            {"shown", shown},
            {"meanings", meanings},
            {"wire", wires},
            {"kvoctl", {{"words", request.kvoctlWords()}, {"arguments", request.kvoctlArguments()}}},
            {"cpp", request.cppMethod()},
            {"python", request.pythonMethod()},
            {"soak", request.soakResults()}};
}

}  // namespace

int main()
{
    Json all = Json::array();
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            all.push_back(jsonOf(family, request));
        }
    }
    std::cout << printed(all) << '\n';
    return 0;
}
