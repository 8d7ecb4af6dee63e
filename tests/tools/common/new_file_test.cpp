// A new file is complete from the moment it appears, and replaces another one only if this is wanted.
#include "tools/kvosim/support/temporary_directory.h"

#include "common/new_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using kvosim_test::contentsOf;
using testing::HasSubstr;
using tools::NewFile;

class NewFileIn : public testing::Test {
protected:
    [[nodiscard]] std::string path(const char *name = "new") const { return folder_ / name; }
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
    static void write(const NewFile &file, const std::string &text)
    {
        ASSERT_EQ(::write(file.descriptor(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    [[nodiscard]] static std::string refusal(const std::string &path, bool force)
    {
        try {
            const NewFile file(path, force);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "(none)";
    }

    kvosim_test::TemporaryDirectory folder_;
};

TEST_F(NewFileIn, appears_complete_and_only_for_its_owner)
{
    NewFile file(path(), false);
    write(file, "text");
    EXPECT_FALSE(std::filesystem::exists(path()));
    file.keep();
    EXPECT_EQ(contentsOf(path()), "text");
    EXPECT_THAT(names(), testing::ElementsAre("new"));
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(NewFileIn, leaves_nothing_unless_it_is_kept)
{
    std::ofstream(path("old")) << "old";
    write(NewFile(path(), false), "text");
    write(NewFile(path("old"), true), "text");
    EXPECT_THAT(names(), testing::ElementsAre("old"));
    EXPECT_EQ(contentsOf(path("old")), "old");
}

TEST_F(NewFileIn, replaces_another_file_only_with_force)
{
    std::ofstream(path("old")) << "old";
    EXPECT_EQ(refusal(path("old"), false), "\"" + path("old") + "\" exists; choose another name, or replace it with --force");
    NewFile file(path("old"), true);
    write(file, "text");
    file.keep();
    EXPECT_EQ(contentsOf(path("old")), "text");
}

TEST_F(NewFileIn, does_not_replace_a_file_that_has_appeared_meanwhile)
{
    NewFile file(path(), false);
    std::ofstream(path()) << "other";
    EXPECT_THROW(file.keep(), std::runtime_error);
    EXPECT_EQ(contentsOf(path()), "other");
}

TEST_F(NewFileIn, is_never_a_link_or_a_folder)
{
    std::filesystem::create_symlink("nowhere", path("link"));
    std::filesystem::create_directory(path("folder"));
    EXPECT_THAT(refusal(path("link"), false), HasSubstr("exists"));
    EXPECT_THAT(refusal(path("link"), true), HasSubstr("is a link, which is not followed; name the file itself"));
    EXPECT_THAT(refusal(path("folder"), true), HasSubstr("is not a file; name a file"));
    EXPECT_THAT(refusal("/dev/full", true), HasSubstr("is not a file; name a file"));
}

TEST_F(NewFileIn, is_refused_at_once_if_no_file_can_have_its_name)
{
    EXPECT_EQ(refusal(path("none/new"), false), "cannot create \"" + path("none/new") + "\": No such file or directory");
    EXPECT_THAT(refusal(path(std::string(300, 'x').c_str()), false), HasSubstr("File name too long"));
    EXPECT_THAT(refusal("", false), HasSubstr("cannot create \"\": No such file or directory"));
    EXPECT_THAT(refusal(path("none/"), false), HasSubstr("No such file or directory"));
    EXPECT_THAT(names(), testing::IsEmpty());
}

}  // namespace
