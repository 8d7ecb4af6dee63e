// Prints the catalogue as JSON, for readers in other languages: an array of requests.
#include "catalogue/catalogue.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

/// Replies may hold any bytes; what is no UTF-8 is replaced.
std::string printed(const Json &json) { return json.dump(2, ' ', false, Json::error_handler_t::replace); }

Json jsonOf(const catalogue::Exchange &exchange)
{
    return {{"commands", exchange.commands},
            {"replies", exchange.replies},
            {"result", exchange.result},
            {"messages", exchange.messages}};
}

Json jsonOf(const catalogue::Family &family, const catalogue::Request &request)
{
    Json exchanges = Json::array();
    for (const catalogue::Exchange &exchange : request.exchanges()) {
        exchanges.push_back(jsonOf(exchange));
    }
    return {{"family", family.name},
            {"name", request.name()},
            {"function", request.function().name()},
            {"label", request.label()},
            {"commands", request.commands()},
            {"takes_any_reply", request.takesEverything()},
            {"exchanges", exchanges},
            {"kvoctl", {{"words", request.kvoctlWords()}, {"arguments", request.kvoctlArguments()}}},
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
