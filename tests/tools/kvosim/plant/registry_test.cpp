// The registry files byte by byte, and their lock.
#include "kvosim/plant/registry.h"
#include "kvosim/plant_file/plant_file.h"
#include "tools/kvosim/support/running_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>

namespace {

using kvosim::Registry;
using kvosim_test::contentsOf;
using kvosim_test::kSmallPlant;
using testing::HasSubstr;
using testing::ThrowsMessage;

const std::string kSmallList = "\"Lathe 1\" 10.0.0.5 1x2:3\n"
                               "\"Fräse\" 10.0.0.6 -1x0:0\n"
                               "\"No attributes\" 192.168.0.7 0x0:0\n";

kvosim::Plant plantOf(std::string_view name)
{
    return kvosim::parsePlant("[[station]]\naddress = \"10.0.0.9\"\nname = \"" + std::string(name) + "\"\nattr1 = 1\n",
                              "plant");
}

class RegistryFiles : public testing::Test {
protected:
    void startOnce(const kvosim::Plant &plant) const { Registry(directory.path()).start(plant); }
    [[nodiscard]] std::string current() const { return contentsOf(directory / "kvo_hws/currkvos.reg"); }
    [[nodiscard]] std::string previous() const { return contentsOf(directory / "kvo_hws/prevkvos.reg"); }

    kvosim_test::TemporaryDirectory directory;
};

TEST_F(RegistryFiles, previous_list_of_the_first_start_comes_from_the_plant)
{
    startOnce(kvosim::parsePlant(kSmallPlant, "plant"));
    EXPECT_EQ(previous(), "\"Gone\" 10.0.0.4 4x0:0\n");
    EXPECT_EQ(current(), kSmallList);
}

TEST_F(RegistryFiles, first_start_without_previous_entries_has_an_empty_previous_list)
{
    startOnce(plantOf("A"));
    EXPECT_EQ(previous(), "");
}

TEST_F(RegistryFiles, current_list_becomes_the_previous_one_at_each_start)
{
    startOnce(plantOf("A"));
    startOnce(plantOf("B"));
    EXPECT_EQ(previous(), "\"A\" 10.0.0.9 1x0:0\n");
    EXPECT_EQ(current(), "\"B\" 10.0.0.9 1x0:0\n");
    startOnce(kvosim::parsePlant(kSmallPlant, "plant"));
    EXPECT_EQ(previous(), "\"B\" 10.0.0.9 1x0:0\n") << "the plant's previous entries are only for the first start";
    EXPECT_EQ(current(), kSmallList);
}

TEST_F(RegistryFiles, previous_list_is_kept_without_a_current_list)
{
    startOnce(plantOf("A"));
    startOnce(plantOf("B"));
    std::filesystem::remove(directory / "kvo_hws/currkvos.reg");
    startOnce(plantOf("C"));
    EXPECT_EQ(previous(), "\"A\" 10.0.0.9 1x0:0\n");
}

TEST_F(RegistryFiles, directory_contains_no_other_files)
{
    startOnce(plantOf("A"));
    startOnce(plantOf("B"));
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory.path())) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("kvo_hws", "currkvos.reg", "prevkvos.reg"));
}

TEST_F(RegistryFiles, current_list_is_not_rewritten_while_locked)
{
    Registry registry(directory.path());
    registry.start(plantOf("A"));
    ASSERT_TRUE(registry.lock());
    registry.writeCurrent(plantOf("B").stations());
    registry.writeCurrent(plantOf("C").stations());
    EXPECT_EQ(current(), "\"A\" 10.0.0.9 1x0:0\n");
    EXPECT_TRUE(registry.unlock());
    EXPECT_EQ(current(), "\"C\" 10.0.0.9 1x0:0\n");

    registry.writeCurrent(plantOf("D").stations());
    EXPECT_EQ(current(), "\"D\" 10.0.0.9 1x0:0\n");
}

TEST_F(RegistryFiles, rewritten_list_is_a_new_file)
{
    startOnce(plantOf("A"));
    std::ifstream reader(directory / "kvo_hws/currkvos.reg");
    startOnce(plantOf("B"));
    std::string line;
    std::getline(reader, line);
    EXPECT_EQ(line, "\"A\" 10.0.0.9 1x0:0") << "a program that has the old file open reads it to the end";
}

TEST_F(RegistryFiles, files_are_not_written_through_a_symbolic_link)
{
    std::filesystem::create_directory(directory / "kvo_hws");
    const auto precious = directory / "precious";
    std::ofstream(precious) << "precious";
    for (const char *name : {"kvo_hws/currkvos.reg", "kvo_hws/currkvos.reg.new", "kvo_hws/prevkvos.reg.new"}) {
        std::filesystem::create_symlink(precious, directory / name);
    }
    startOnce(plantOf("A"));
    startOnce(plantOf("B"));
    EXPECT_EQ(contentsOf(precious), "precious");
    EXPECT_EQ(current(), "\"B\" 10.0.0.9 1x0:0\n");
}

TEST_F(RegistryFiles, path_is_absolute_and_ends_with_a_slash)
{
    EXPECT_EQ(Registry(directory.path()).path(), directory.path().string() + '/');
    EXPECT_EQ(Registry(directory.path().string() + "/x/../").path(), directory.path().string() + '/');
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    EXPECT_EQ(Registry("here").path(), (directory / "here/").string());
    std::filesystem::current_path(before);
}

TEST_F(RegistryFiles, longest_path_is_accepted_and_one_byte_more_is_refused)
{
    std::string longest = directory.path().string();
    while (longest.size() < kvosim::kLongestRegistryPath - 1) {
        longest += '/' + std::string(std::min<std::size_t>(200, kvosim::kLongestRegistryPath - 2 - longest.size()), 'd');
    }
    EXPECT_EQ(Registry(longest).path().size(), kvosim::kLongestRegistryPath);
    EXPECT_THAT([&] { Registry registry(longest + 'd'); }, ThrowsMessage<std::runtime_error>(HasSubstr("is too long")));
}

TEST(TemporaryRegistry, is_removed_by_the_destructor)
{
    std::string path;
    {
        Registry registry(std::nullopt);
        registry.start(plantOf("A"));
        path = registry.path();
        EXPECT_TRUE(std::filesystem::exists(path + "kvo_hws/currkvos.reg"));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(RegistryLock, is_acquired_once_and_released_once)
{
    Registry registry(std::nullopt);
    EXPECT_FALSE(registry.unlock());
    EXPECT_TRUE(registry.lock());
    EXPECT_FALSE(registry.lock());
    EXPECT_TRUE(registry.unlock());
    EXPECT_FALSE(registry.unlock());
    EXPECT_TRUE(registry.lock());
}

}  // namespace
