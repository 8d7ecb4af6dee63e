// The result texts compared with the headers' comments: every result that a function's comment names has a suitable text.
#include "catalogue/catalogue.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <kvo_hws/result.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using testing::IsEmpty;

const std::string kUnexpected = "unexpected result";

using Codes = std::set<int32_t>;
using Texts = std::map<std::string, std::string>;

std::string contentOf(const std::filesystem::path &path)
{
    std::stringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

std::vector<std::smatch> matches(const std::string &text, const std::regex &pattern)
{
    return {std::sregex_iterator(text.begin(), text.end(), pattern), std::sregex_iterator()};
}

// ---- The headers' comments ----

/// The comment as one line, without the asterisks.
std::string oneLine(const std::string &comment)
{
    return std::regex_replace(std::regex_replace(comment, std::regex("\n \\*"), "\n"), std::regex("\\s+"), " ");
}

/// The comments of all functions of the library that return a number.
const Texts &comments()
{
    static const Texts all = [] {
        const std::regex declaration("\\*/\nKVO_HWS_API (?:int|int32_t) (\\w+)\\(");
        Texts found;
        for (const auto &header : std::filesystem::directory_iterator(KVO_HEADERS)) {
            if (header.path().filename() == "platform.h") {
                continue;  // declares what the library imports
            }
            const std::string text = contentOf(header.path());
            for (const std::smatch &match : matches(text, declaration)) {
                const auto end = static_cast<std::size_t>(match.position());
                const std::size_t begin = text.rfind("/**", end);
                found[match[1]] = text.substr(begin, end - begin);
            }
        }
        return found;
    }();
    return all;
}

/// The text after "@return", up to the end of its paragraph.
std::string returned(const std::string &comment)
{
    const std::size_t begin = comment.find("@return");
    if (begin == std::string::npos) {
        return "";
    }
    const std::size_t end = std::min(comment.find("\n *\n", begin), comment.find("\n *  @", begin));
    return oneLine(comment.substr(begin, end - begin));
}

/// The results that a text names: at its beginning, after a semicolon, and in an enumeration.
Codes namedIn(const std::string &text)
{
    static const std::regex named("(?:@return|[;:,]|missing|malformed) (-?\\d+)(?= [a-zA-Z@(]|[;,]| ?$)");
    Codes codes;
    for (const std::smatch &match : matches(text, named)) {
        codes.insert(std::stoi(match[1]));
    }
    return codes;
}

/// The results that a function's comment names. A reference to another function ("as ...") is followed.
Codes documented(const std::string &function)
{
    static const std::regex another("\\b(?:as|As) (?:of )?(\\w+)");
    const std::string &comment = comments().at(function);
    const std::string results = returned(comment);
    Codes codes = namedIn(results);
    const std::string text = results.empty() ? oneLine(comment) : results;
    for (const std::smatch &match : matches(text, another)) {
        if (match[1] != function && comments().count(match[1]) != 0) {
            codes.merge(documented(match[1]));
            break;
        }
    }
    return codes;
}

/// The numbers that several enumerators share: their meaning depends on the function.
const Codes &ambiguous()
{
    static const Codes all = [] {
        const std::string header = contentOf(std::filesystem::path(KVO_HEADERS) / "result.h");
        std::map<int32_t, int> names;
        for (const std::smatch &match : matches(header, std::regex("\n    KVO_HWS_\\w+ = (-?\\d+)"))) {
            ++names[std::stoi(match[1])];
        }
        Codes codes;
        for (const auto &[code, count] : names) {
            if (count > 1) {
                codes.insert(code);
            }
        }
        return codes;
    }();
    return all;
}

// ---- The rows ----

struct Row {
    std::string function;
    int32_t code;
    std::string text;
};

std::vector<Row> rows()
{
    const std::string header = contentOf(std::filesystem::path(KVO_HEADERS) / "result.h");
    std::vector<Row> found;
    for (const std::smatch &match :
         matches(header, std::regex("\n        \\{\"(\\w*)\", (-?\\d+), \"([^\"\\\\]+)\"\\},(?=\n)"))) {
        found.push_back({match[1], std::stoi(match[2]), match[3]});
    }
    return found;
}

std::string textOf(const std::string &function, int32_t code) { return kvo_hws_result_text(function.c_str(), code); }
std::string generalText(int32_t code) { return kvo_hws_result_text(nullptr, code); }

bool isRequest(const std::string &function) { return function.rfind("KVO_HWS_", 0) == 0; }

/// Whether the general text is not enough: the number has several meanings, or the text is about requests.
bool needsOwnText(const std::string &function, int32_t code)
{
    return ambiguous().count(code) != 0 || (!isRequest(function) && code != KVO_HWS_OK && code != KVO_HWS_NULL_POINTER);
}

TEST(ResultText, comments_are_parsed_correctly)
{
    EXPECT_GT(comments().size(), 130U);
    EXPECT_EQ(documented("KVO_HWS_setBacklightBrightnessV2"), (Codes{1, -1, -2, -3, -4, -5, -6}));
    EXPECT_EQ(documented("KVO_HWS_getIPbyKVOIndex"), (Codes{1, 0, -1, -2, -3, -7}));  // refers to another function with "as"
    EXPECT_EQ(documented("KVO_HWS_activateUSBEventsV2"), (Codes{1, -1, -3, -8}));
    EXPECT_EQ(documented("SendUsbMsg2DLL"), (Codes{1, 2, 3, 4, 5}));
    EXPECT_EQ(documented("KVO_HWS_getDebugLevel"), (Codes{0, 1, 2, -1, -2}));
    EXPECT_EQ(documented("ConvertCmd2USBDeviceCS"), (Codes{1, -1, -2, -3, -4, -5, -10}));
    EXPECT_EQ(documented("ConvertConArray2TextEx"), Codes{0});
    EXPECT_THAT(documented("format_servername"), IsEmpty());
    EXPECT_EQ(ambiguous(), (Codes{-3, -4, -5, -8, -9, -10}));
}

TEST(ResultText, every_documented_result_has_a_suitable_text)
{
    for (const auto &[function, comment] : comments()) {
        for (const int32_t code : documented(function)) {
            EXPECT_NE(textOf(function, code), kUnexpected) << function << " " << code;
            if (needsOwnText(function, code)) {
                EXPECT_NE(textOf(function, code), generalText(code)) << function << " " << code << " needs its own row";
            }
        }
    }
}

TEST(ResultText, rows_belong_to_documented_functions_and_results)
{
    const std::string exported = contentOf(KVO_EXPORTS);
    for (const auto &[function, code, text] : rows()) {
        if (function.empty()) {
            continue;
        }
        EXPECT_NE(exported.find("\n    " + function + ";\n"), std::string::npos) << function << " is not exported";
        ASSERT_EQ(comments().count(function), 1U) << function;
        EXPECT_EQ(documented(function).count(code), 1U) << function << " does not document " << code;
    }
}

TEST(ResultText, each_row_is_on_one_line_and_unique)
{
    const std::string header = contentOf(std::filesystem::path(KVO_HEADERS) / "result.h");
    EXPECT_EQ(rows().size(), matches(header, std::regex("\\{\"")).size());
    ASSERT_GT(rows().size(), 200U);
    std::set<std::tuple<std::string, int32_t>> seen;
    for (const auto &[function, code, text] : rows()) {
        EXPECT_TRUE(seen.insert({function, code}).second) << function << " " << code << " has two rows";
        EXPECT_EQ(kvo_hws_result_text(function.c_str(), code), text);
        EXPECT_TRUE(function.empty() || text != generalText(code)) << function << " " << code << " repeats the general text";
    }
}

TEST(ResultText, a_function_may_have_its_own_meaning_of_a_number)
{
    EXPECT_EQ(textOf("KVO_HWS_setBacklightBrightness", -3), "the level is not one of 0 to 100");
    EXPECT_EQ(textOf("KVO_HWS_getIPbyMCPAddress", -3), "several stations have this MCP address");
    EXPECT_EQ(textOf("KVO_HWS_getUsbLock", -2), "no service answers at /tmp/kvo_hws/cmd_sock");
}

TEST(ResultText, there_is_a_text_for_any_function_and_number)
{
    for (const char *function : {static_cast<const char *>(nullptr), "", "KVO_HWS_getUsbLock", "noSuchFunction"}) {
        EXPECT_STREQ(kvo_hws_result_text(function, -1), "the service refused or sent an unknown reply");
        for (const int32_t code : {2, -11, INT32_MAX, INT32_MIN}) {
            EXPECT_EQ(kvo_hws_result_text(function, code), kUnexpected) << code;
        }
        for (int32_t code = KVO_HWS_INVALID_HOST; code <= KVO_HWS_OK; ++code) {
            EXPECT_NE(kvo_hws_result_text(function, code), kUnexpected) << code;
        }
    }
}

TEST(ResultText, there_is_a_text_for_each_failure_of_the_catalogue)
{
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            for (const catalogue::Exchange &exchange : request.allExchanges()) {
                EXPECT_NE(textOf(request.function().name().c_str(), exchange.result), kUnexpected)
                    << request.name() << ": " << exchange.result;
            }
        }
    }
}

}  // namespace
