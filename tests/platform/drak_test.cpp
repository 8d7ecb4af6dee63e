// The stand-in for the panel's configuration reader.
#include <kvo_hws/platform.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

/// The settings that the table below fills.
struct Settings {
    char *interface = nullptr;
    char *name = nullptr;
    uint16_t port = 0;
};

/// Copies returned by the readers; a later line does not free an earlier copy, which belongs to the caller.
std::vector<std::unique_ptr<char, decltype(&std::free)>> copies;

template <int (*Read)(const char *, void *)>
int readAndKeep(const char *value, void *destination)
{
    const int accepted = Read(value, destination);
    copies.emplace_back(*static_cast<char **>(destination), std::free);
    return accepted;
}

class Configuration : public testing::Test {
protected:
    void SetUp() override { keywords = table_; }
    void TearDown() override
    {
        keywords = nullptr;
        copies.clear();
        std::filesystem::remove(file_);
    }

    int read(const std::string &text)
    {
        std::ofstream(file_) << text;
        return readFile(file_);
    }
    static int readFile(const std::string &name)
    {
        std::string path = name;
        void *block[4] = {path.data(), nullptr, nullptr, nullptr};
        return read_conf(block);
    }

    Settings settings_;
    std::string file_ = "/tmp/kvo_configuration_test." + std::to_string(getpid());
    HwsKeyword table_[6] = {{"interface", readAndKeep<read_int>, &settings_.interface, "eth0", 0x2F, 0},
                            {"name", readAndKeep<read_str>, &settings_.name, "", 0x1F, 0},
                            {"port", read_u16, &settings_.port, "5850", 0x1F, 0},
                            {"jdl_name", readAndKeep<read_str>, &settings_.name, nullptr, 0x1F, 0},
                            {"", nullptr, nullptr, "", 0x1F, 0}};
};

TEST_F(Configuration, defaults_apply_to_missing_keys)
{
    EXPECT_EQ(read(""), 0);
    EXPECT_STREQ(settings_.interface, "eth0");
    EXPECT_EQ(settings_.name, nullptr) << "an empty or absent default is not applied";
    EXPECT_EQ(settings_.port, 5850);
}

TEST_F(Configuration, defaults_apply_without_a_file_too)
{
    EXPECT_NE(readFile("/nowhere/at/all.conf"), 0);
    EXPECT_EQ(settings_.port, 5850);
    void *nothing[4] = {};
    EXPECT_NE(read_conf(nothing), 0);
}

TEST_F(Configuration, reads_keys_values_blanks_and_comments)
{
    EXPECT_EQ(
        read(
            "# a comment\n\n  port =  5852  \r\n#port = 1\n\tname = press line 4\ninterface=lo\nunknown = 1\nno equals sign\n"),
        0);
    EXPECT_EQ(settings_.port, 5852);
    EXPECT_STREQ(settings_.name, "press line 4");
    EXPECT_STREQ(settings_.interface, "lo");
}

TEST_F(Configuration, a_comment_may_follow_a_value_after_a_blank)
{
    EXPECT_EQ(read("port = 5852 # the second session\nname = line#4\t# comment\n"), 0);
    EXPECT_EQ(settings_.port, 5852);
    EXPECT_STREQ(settings_.name, "line#4");
}

TEST_F(Configuration, the_last_line_that_sets_a_member_wins)
{
    EXPECT_EQ(read("name = first\njdl_name = second\nname = third\n"), 0);
    EXPECT_STREQ(settings_.name, "third");
}

TEST_F(Configuration, a_value_may_contain_an_equals_sign_and_need_no_line_feed_at_the_end)
{
    EXPECT_EQ(read("name = a=b"), 0);
    EXPECT_STREQ(settings_.name, "a=b");
}

TEST_F(Configuration, an_invalid_number_leaves_the_previous_value)
{
    EXPECT_EQ(read("port = 70000\n"), 0);
    EXPECT_EQ(settings_.port, 5850);
    EXPECT_EQ(read("port = 58x\n"), 0);
    EXPECT_EQ(settings_.port, 5850);
}

TEST_F(Configuration, without_a_table_nothing_is_read)
{
    keywords = nullptr;
    EXPECT_NE(read("port = 1\n"), 0);
}

TEST(Readers, of_numbers_accept_only_0_to_65535)
{
    uint16_t port = 7;
    EXPECT_EQ(read_u16("65535", &port), 1);
    EXPECT_EQ(port, 65535);
    EXPECT_EQ(read_u16("0", &port), 1);
    EXPECT_EQ(port, 0);
    for (const char *text : {"65536", "-1", "", " 5", "5 ", "0x10", "five"}) {
        EXPECT_EQ(read_u16(text, &port), 0) << text;
    }
    EXPECT_EQ(port, 0);
}

TEST(Readers, of_texts_return_a_copy)
{
    std::string value = "text";
    char *copy = nullptr;
    EXPECT_EQ(read_str(value.c_str(), &copy), 1);
    value = "gone";
    EXPECT_STREQ(copy, "text");
    std::free(copy);
    EXPECT_EQ(read_int("eth1", &copy), 1);
    EXPECT_STREQ(copy, "eth1");
    std::free(copy);
}

}  // namespace
