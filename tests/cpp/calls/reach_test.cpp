// The C++ interface reaches every exported KVO_HWS_ function: the catalogue names a method for each of them, and the method sends
// the requests of that function.
#include "catalogue/catalogue.h"

#include "cpp/calls/methods.h"
#include "support/catalogue_service.h"

#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string contentsOf(const std::string &file)
{
    std::ifstream stream(KVO_SOURCE_DIR "/" + file);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::set<std::string> matches(const std::string &text, const char *pattern)
{
    const std::regex expression(pattern);
    std::set<std::string> all;
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
        all.insert((*at)[1]);
    }
    return all;
}

std::vector<catalogue::Request> requests()
{
    std::vector<std::vector<catalogue::Request>> all;
    for (const catalogue::Family &family : catalogue::families()) {
        all.push_back(family.requests);
    }
    return catalogue::joined(all);
}

/// Events and the agent are objects; their own tests use them.
bool isObject(const std::string &method)
{
    return method.starts_with("UsbEvents::") || method.starts_with("EmbeddedEvents::") || method.starts_with("Agent::");
}

TEST(CppInterface, has_a_method_for_every_exported_function)
{
    std::set<std::string> reached;
    for (const catalogue::Request &request : requests()) {
        const std::string &method = request.cppMethod();
        EXPECT_TRUE(isObject(method) || calls::methods().contains(method)) << request.name() << ": \"" << method << '"';
        reached.insert(request.function().name());
    }
    const std::set<std::string> exported = matches(contentsOf("library/exports.map"), "(KVO_HWS_[A-Za-z0-9]+);");
    EXPECT_GT(exported.size(), 80U);
    EXPECT_EQ(reached, exported);
}

TEST(CppInterface, has_no_method_that_the_catalogue_does_not_name)
{
    std::set<std::string> named{"Service::set_usb_lock_everywhere"};  // the second form of set_usb_lock
    for (const catalogue::Request &request : requests()) {
        named.insert(request.cppMethod());
    }
    for (const auto &[type, file] : {std::pair{"Station", "station.hpp"}, std::pair{"Service", "service.hpp"}}) {
        const std::string header = contentsOf(std::string("include/kvo_hws/") + file);
        const std::string methods = header.substr(header.find(std::string("\nclass Basic") + type));
        const std::set<std::string> names = matches(methods, R"((?:Result<[^;{}()]*>|void)\s+(\w+)\()");
        EXPECT_GT(names.size(), 20U);
        for (const std::string &name : names) {
            EXPECT_TRUE(named.contains(name) || named.contains(type + ("::" + name))) << name;
        }
    }
}

/// Calls a method as the catalogue calls the function of C, with the first reply that the catalogue has for these arguments.
TEST(CppInterface, sends_the_requests_of_the_function_of_c)
{
    std::size_t called = 0;
    for (const catalogue::Request &request : requests()) {
        if (request.commands().empty()) {
            continue;  // the list on disk, the USB lock and the functions without a request have their own tests
        }
        const catalogue::Exchange &exchange = request.ownExchanges().front();
        const support::CatalogueService service(exchange);
        calls::methods().at(request.cppMethod())(calls::Inputs(exchange.arguments));
        std::vector<std::string> commands = exchange.commands;
        for (std::string &command : commands) {
            command = std::regex_replace(command, std::regex("^(getDL(_Ex)?V2) .*"), "$1 64");
        }
        EXPECT_EQ(service.commands(), commands) << request.cppMethod();
        ++called;
    }
    EXPECT_GT(called, 70U);
}

TEST(CppInterface, switches_the_debug_messages)
{
    kvo::activate_debug();
    EXPECT_EQ(uiDebugMessageSysLogActive, 1U);
    EXPECT_EQ(iDebugLevel, 2);
    kvo::deactivate_debug();
    EXPECT_EQ(uiDebugMessageSysLogActive, 0U);
    EXPECT_EQ(iDebugLevel, 0);
}

}  // namespace
