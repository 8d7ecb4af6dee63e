// The list of exported names compared with the headers and the binary; the binary's name and dependencies.
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;

using Names = std::set<std::string>;

std::string outputOf(const std::string &command)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> piece;
    while (pipe != nullptr && std::fgets(piece.data(), piece.size(), pipe.get()) != nullptr) {
        output += piece.data();
    }
    return output;
}

std::string contentOf(const std::filesystem::path &path)
{
    std::stringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

Names matches(const std::string &text, const std::regex &pattern)
{
    Names names;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
        names.insert((*match)[1]);
    }
    return names;
}

Names listedNames() { return matches(contentOf(KVO_EXPORTS), std::regex("^\\s+([A-Za-z_0-9]+);$", std::regex::multiline)); }

Names binaryNames()
{
    return matches(outputOf("nm -D --defined-only " KVO_LIBRARY), std::regex("^\\S+ [A-Z] ([^@\\s]+)", std::regex::multiline));
}

/// The names that the headers declare for this library; platform.h declares what the library imports.
Names declaredNames()
{
    const std::regex declaration("KVO_HWS_API[^;(]*?\\b([A-Za-z_0-9]+)\\s*(?:\\(|;|\\[)");
    Names names;
    for (const auto &header : std::filesystem::directory_iterator(KVO_HEADERS)) {
        const auto name = header.path().filename();
        if (name != "platform.h" && name != "export.h") {
            names.merge(matches(contentOf(header.path()), declaration));
        }
    }
    return names;
}

TEST(Interface, the_binary_exports_exactly_what_is_listed)
{
    ASSERT_GT(listedNames().size(), 50U);
    EXPECT_EQ(binaryNames(), listedNames());
}

TEST(Interface, the_headers_declare_exactly_what_is_listed) { EXPECT_EQ(declaredNames(), listedNames()); }

/// A variable that is missing in dynamic.list would exist twice: once in the library and once in the program.
TEST(Interface, lists_all_variables_that_it_shares_with_programs)
{
    const Names variables =
        matches(outputOf("nm -D --defined-only " KVO_LIBRARY), std::regex("^\\S+ [BDR] ([^@\\s]+)", std::regex::multiline));
    ASSERT_GT(variables.size(), 20U);
    const std::string list = contentOf(KVO_DYNAMIC);
    EXPECT_EQ(matches(list, std::regex("^\\s+([A-Za-z_0-9]+);$", std::regex::multiline)), variables);
    EXPECT_THAT(list, HasSubstr("\n  handle_*;\n"));
}

TEST(Interface, has_its_soname_and_links_the_libraries_of_the_panel)
{
    const std::string dynamic = outputOf("readelf -dW " KVO_LIBRARY);
    EXPECT_THAT(dynamic, HasSubstr("Library soname: [libkvo_hws.so.0]"));
    EXPECT_THAT(dynamic, HasSubstr("Shared library: [libdrak.so]"));
    EXPECT_THAT(dynamic, HasSubstr("Shared library: [libpavo.so.1]"));
}

TEST(Interface, cannot_be_unloaded_and_is_bound_at_load_time)
{
    const std::string dynamic = outputOf("readelf -dW " KVO_LIBRARY);
    EXPECT_THAT(dynamic, HasSubstr("NODELETE"));
    EXPECT_THAT(dynamic, HasSubstr("NOW"));
    EXPECT_THAT(outputOf("readelf -lW " KVO_LIBRARY), HasSubstr("GNU_RELRO"));
}

TEST(Interface, needs_only_libraries_of_the_panel_the_language_and_the_system)
{
    const Names needed = matches(outputOf("readelf -dW " KVO_LIBRARY), std::regex("Shared library: \\[([^\\]]+)\\]"));
    const std::regex allowed("lib(drak|pavo|stdc\\+\\+|m|gcc_s|c|pthread|asan|ubsan|tsan)\\.so(\\.\\d+)?|ld-linux.*");
    for (const std::string &name : needed) {
        EXPECT_TRUE(std::regex_match(name, allowed)) << name;
    }
}

/// Network, overlay and large file systems have inode numbers beyond 32 bits; the 32-bit "fstat" refuses such files.
TEST(Interface, reads_files_with_large_inode_numbers)
{
    const Names called =
        matches(outputOf("nm -D --undefined-only " KVO_LIBRARY), std::regex("U ([a-z0-9]+)(?:@|$)", std::regex::multiline));
    for (const std::string call : {"open", "fstat", "fopen", "readdir"}) {
        const bool narrow = sizeof(long) == 4;
        EXPECT_THAT(called, Contains(narrow ? call + "64" : call));
        EXPECT_EQ(called.count(call), narrow ? 0U : 1U) << call;
    }
}

}  // namespace
