// Checks that no function of the library is left out: its exports, the imports of the program, and the function that each
// subcommand calls.
#include "tools/kvoctl/support/function_commands.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>

namespace kvoctl_test {

using kvosim_test::contentsOf;
using kvosim_test::TemporaryDirectory;
using Names = std::set<std::string>;

std::ostream &operator<<(std::ostream &out, const FunctionCommand &row) { return out << row.function << " by " << row.command; }

namespace {

/// Functions that no subcommand calls, and the reason.
const std::map<std::string, std::string> kExceptions{
    {"KVO_HWS_deactivateDebugDLL",
     "switches off the messages of the calling process; each kvoctl is a process, and --debug lasts until it ends"}};

constexpr const char *kPrefix = "KVO_HWS_";

Names exportedByTheList()
{
    Names names;
    std::istringstream lines(contentsOf(EXPORTS_MAP));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t begin = line.find_first_not_of(' ');
        if (begin != std::string::npos && line.compare(begin, std::strlen(kPrefix), kPrefix) == 0) {
            names.insert(line.substr(begin, line.find(';') - begin));
        }
    }
    return names;
}

/// The dynamic symbols of @p file that begin with the prefix, from the output of nm.
Names dynamicNames(const std::string &options, const std::string &file)
{
    const std::string command = NM_PROGRAM " -D " + options + " '" + file + "'";
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
    Names names;
    std::array<char, 512> line{};
    while (pipe && std::fgets(line.data(), line.size(), pipe.get()) != nullptr) {
        std::istringstream words(line.data());
        for (std::string word; words >> word;) {
            if (word.starts_with(kPrefix)) {
                names.insert(word.substr(0, word.find('@')));
            }
        }
    }
    return names;
}

Names withoutExceptions(Names names)
{
    for (const auto &[function, reason] : kExceptions) {
        std::printf("left out on purpose: %s: %s\n", function.c_str(), reason.c_str());
        EXPECT_EQ(names.erase(function), 1U) << function << " is an exception but not exported";
    }
    return names;
}

TEST(Functions, of_the_library_match_its_export_list)
{
    EXPECT_EQ(dynamicNames("--defined-only", LIBRARY_FILE), exportedByTheList());
    EXPECT_GT(exportedByTheList().size(), 70U);
}

TEST(Functions, are_all_imported_by_the_program)
{
    EXPECT_EQ(dynamicNames("--undefined-only", KVOCTL_PROGRAM), withoutExceptions(exportedByTheList()));
}

TEST(Functions, have_a_subcommand_each)
{
    Names called;
    for (const FunctionCommand &row : functionCommands()) {
        called.insert(row.function);
    }
    EXPECT_EQ(called, withoutExceptions(exportedByTheList()));
}

class FunctionCommands : public testing::TestWithParam<FunctionCommand> {};

/// Runs the subcommand with a library whose functions only record their names.
TEST_P(FunctionCommands, call_the_function)
{
    const TemporaryDirectory directory;
    const std::string calls = (directory / "calls").string();
    Arguments arguments;
    std::istringstream command(GetParam().command);
    for (std::string word; command >> word;) {
        arguments.push_back(word);
    }
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const std::string input = (directory / "input").string();
    std::ofstream(input) << GetParam().input;
    const Ended ended = kvoctl(arguments, {.environment = {"LC_ALL=C.UTF-8", "LD_PRELOAD=" RECORDING_LIBRARY,
                                                           "KVO_CALLS=" + calls, "ASAN_OPTIONS=verify_asan_link_order=0"},
                                           .inputFile = input.c_str()});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_THAT("\n" + contentsOf(calls), testing::HasSubstr("\n" + GetParam().function + "\n"));
}

std::string nameOf(const testing::TestParamInfo<FunctionCommand> &row)
{
    std::string name = row.param.name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(All, FunctionCommands, testing::ValuesIn(functionCommands()), nameOf);

}  // namespace

}  // namespace kvoctl_test
