// Reading the configuration file: its keywords, what they set, and what is logged.
#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include "config/read.h"
#include "support/failing_allocations.h"
#include "support/syslog_capture.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <vector>

namespace {

using config_test::Read;
using support::LogLine;
using support::SyslogCapture;
using testing::ElementsAre;

/// The arguments of the last call of the platform's reader.
struct ReaderCall {
    std::vector<void *> block;
    std::string fileName;
    HwsKeyword *table;
} readerCall;

}  // namespace

/// Replaces the platform's function and calls it.
extern "C" int read_conf(void *block[4]) noexcept
{
    readerCall.block.assign(block, block + 4);
    readerCall.fileName = static_cast<const char *>(block[0]);
    readerCall.table = keywords;
    return reinterpret_cast<int (*)(void **)>(dlsym(RTLD_NEXT, "read_conf"))(block);
}

namespace {

std::string hostName()
{
    char name[4096] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

// ---- The table ----

struct Row {
    const char *key;
    void *destination;
    const char *defaultText;
    uintptr_t flags;
};

TEST(Keywords, are_in_the_expected_order)
{
    const std::vector<Row> rows = {{"InternalInterface", &sConfData.interface, "eth0", 0x2F},
                                   {"Hostname", &sConfData.name, "", 0x2F},
                                   {"interface", &sConfData.interface, nullptr, 0x1F},
                                   {"port", &sConfData.port, "5850", 0x1F},
                                   {"rhz_name", &sConfData.name, nullptr, 0x1F},
                                   {"jdl_name", &sConfData.name, nullptr, 0x1F},
                                   {"name", &sConfData.name, nullptr, 0x1F},
                                   {"hostname", &sConfData.name, nullptr, 0x1F},
                                   {"backlight", &sConfData.backlight, "visible", 0x1F},
                                   {"brightness", &sConfData.brightness, "visible", 0x1F},
                                   {"backlight_brightness", &sConfData.backlightBrightness, "visible", 0x1F},
                                   {"registry_path", sConfData.registryPath, "/user/common/", 0x1F},
                                   {"", nullptr, "", 0x1F}};
    ASSERT_EQ(std::size(hws_keywords), rows.size());
    for (std::size_t row = 0; row < rows.size(); ++row) {
        EXPECT_STREQ(hws_keywords[row].key, rows[row].key);
        EXPECT_EQ(hws_keywords[row].destination, rows[row].destination) << rows[row].key;
        EXPECT_STREQ(hws_keywords[row].defaultText, rows[row].defaultText) << rows[row].key;
        EXPECT_EQ(hws_keywords[row].flags, rows[row].flags) << rows[row].key;
        EXPECT_EQ(hws_keywords[row].zero, 0U) << rows[row].key;
    }
    EXPECT_EQ(hws_keywords[0].reader, read_int);
    EXPECT_EQ(hws_keywords[1].reader, read_str);
    EXPECT_EQ(hws_keywords[2].reader, read_int);
    EXPECT_EQ(hws_keywords[3].reader, read_u16);
    for (const std::size_t name : {4U, 5U, 6U, 7U}) {
        EXPECT_EQ(hws_keywords[name].reader, read_str) << hws_keywords[name].key;
    }
    EXPECT_EQ(hws_keywords[8].reader, hws_keywords[9].reader);
    EXPECT_EQ(hws_keywords[8].reader, hws_keywords[10].reader);
    EXPECT_EQ(hws_keywords[12].reader, nullptr);
}

TEST(Keywords, may_be_changed_by_the_program)
{
    HwsKeyword &port = hws_keywords[3];
    port.defaultText = "5857";
    const Read file("");
    port.defaultText = "5850";
    EXPECT_EQ(sConfData.port, 5857);
}

// ---- Reading ----

TEST(ReadConfFile, uses_the_defaults_for_missing_keys)
{
    const Read file("");
    EXPECT_EQ(sConfData.dataSet, 1U);
    EXPECT_STREQ(sConfData.interface, "eth0");
    EXPECT_EQ(sConfData.port, 5850);
    EXPECT_EQ(sConfData.name, hostName());
    EXPECT_EQ(sConfData.backlight, 1U);
    EXPECT_EQ(sConfData.brightness, 1U);
    EXPECT_EQ(sConfData.backlightBrightness, 1U);
    EXPECT_STREQ(sConfData.registryPath, "/user/common/");
}

TEST(ReadConfFile, uses_the_defaults_without_a_file)
{
    setenv("KVO_PLATFORM_CONFIG", "/nowhere/kvo_hws.conf", 1);
    ReadConfFile();
    EXPECT_EQ(sConfData.dataSet, 1U);
    EXPECT_EQ(sConfData.port, 5850);
    EXPECT_EQ(sConfData.name, hostName());
    unsetenv("KVO_PLATFORM_CONFIG");
    std::free(sConfData.name);
    std::free(sConfData.interface);
    sConfData = {};
}

TEST(ReadConfFile, uses_the_values_of_the_file)
{
    const Read file("interface = lo\nport = 5853\nname = Milling centre 1\nbacklight = all\nbrightness = none\n"
                    "backlight_brightness = visible\nregistry_path = /data/reg\n");
    EXPECT_STREQ(sConfData.interface, "lo");
    EXPECT_STREQ(sConfData.ipString, "127.0.0.1");
    EXPECT_EQ(sConfData.ipValue, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(sConfData.port, 5853);
    EXPECT_STREQ(sConfData.name, "Milling centre 1");
    EXPECT_EQ(sConfData.backlight, 0U);
    EXPECT_EQ(sConfData.brightness, 2U);
    EXPECT_EQ(sConfData.backlightBrightness, 1U);
    EXPECT_STREQ(sConfData.registryPath, "/data/reg/");
}

TEST(ReadConfFile, passes_the_file_and_the_table_to_the_platform)
{
    keywords = nullptr;
    const Read file("");
    EXPECT_THAT(readerCall.fileName, testing::EndsWith(".conf"));
    EXPECT_EQ(readerCall.table, hws_keywords);
    EXPECT_THAT(readerCall.block, ElementsAre(testing::NotNull(), nullptr, nullptr, nullptr))
        << "the reader uses the rest itself";
}

TEST(ReadConfFile, clears_the_previous_values)
{
    const Read first("");
    std::free(sConfData.interface);
    std::free(sConfData.name);
    std::memset(static_cast<void *>(&sConfData), 0xAA, sizeof sConfData);
    ReadConfFile();
    EXPECT_EQ(sConfData.backlight, 1U) << "the whole word, although one byte of it is stored";
    EXPECT_EQ(std::string(sConfData.registryPath + 14, 246), std::string(246, '\0'));
}

class NameKeys : public testing::TestWithParam<const char *> {};

TEST_P(NameKeys, name_the_station)
{
    const Read file(std::string(GetParam()) + " = Lathe 3\n");
    EXPECT_STREQ(sConfData.name, "Lathe 3");
}

INSTANTIATE_TEST_SUITE_P(Of, NameKeys, testing::Values("Hostname", "rhz_name", "jdl_name", "name", "hostname"),
                         [](const auto &row) { return std::string(row.param); });

TEST(ReadConfFile, knows_two_keys_for_the_interface)
{
    {
        const Read file("InternalInterface = lo\n");
        EXPECT_STREQ(sConfData.interface, "lo");
    }
    const Read file("interface = eth7\n");
    EXPECT_STREQ(sConfData.interface, "eth7");
    EXPECT_STREQ(sConfData.ipString, "") << "there is no such interface";
    EXPECT_EQ(sConfData.ipValue, 0U);
}

struct Mode {
    const char *word;
    uint32_t mode;
};

class Modes : public testing::TestWithParam<Mode> {};

TEST_P(Modes, have_their_number_in_each_key)
{
    for (const char *const key : {"backlight", "brightness", "backlight_brightness"}) {
        const Read file(std::string(key) + " = " + GetParam().word + "\n");
        EXPECT_EQ(sConfData.backlight, key == std::string("backlight") ? GetParam().mode : 1U);
        EXPECT_EQ(sConfData.brightness, key == std::string("brightness") ? GetParam().mode : 1U);
        EXPECT_EQ(sConfData.backlightBrightness, key == std::string("backlight_brightness") ? GetParam().mode : 1U);
    }
}

const std::vector<Mode> kModes = {{"all", 0},  {"ALL", 0},   {"visible", 1}, {"Visible", 1}, {"none", 2},
                                  {"NONE", 2}, {"dim", 255}, {"nones", 255}, {"al", 255},    {"0", 255}};

INSTANTIATE_TEST_SUITE_P(Of, Modes, testing::ValuesIn(kModes),
                         [](const auto &row) { return std::string(row.param.word) + "_is_" + std::to_string(row.param.mode); });

TEST(ModeReader, reports_whether_it_accepts_a_word)
{
    uint32_t mode = 0;
    EXPECT_EQ(hws_keywords[8].reader("none", &mode), 1);
    EXPECT_EQ(mode, 2U);
    EXPECT_EQ(hws_keywords[8].reader("dim", &mode), 0);
    EXPECT_EQ(mode, 255U);
    mode = 0x11223344;
    EXPECT_EQ(hws_keywords[8].reader("all", &mode), 1);
    EXPECT_EQ(mode, 0x11223300U) << "only one byte is stored";
}

// ---- The registry folder ----

std::string pathOf(const std::string &value)
{
    char path[300];
    std::memset(path, '#', sizeof path);
    EXPECT_EQ(hws_keywords[11].reader(value.c_str(), path), 1);
    EXPECT_EQ(std::string(path + 260, 40), std::string(40, '#'));
    return path;
}

TEST(RegistryPath, ends_with_a_separator)
{
    EXPECT_EQ(pathOf("/data/reg"), "/data/reg/");
    EXPECT_EQ(pathOf("/data/reg/"), "/data/reg/");
    EXPECT_EQ(pathOf("C:\\reg\\"), "C:\\reg\\");
    EXPECT_EQ(pathOf(""), "");
}

TEST(RegistryPath, is_truncated_to_its_buffer)
{
    const std::string longest(258, 'x');
    EXPECT_EQ(pathOf(longest), longest + "/");
    EXPECT_EQ(pathOf(longest + "/"), longest + "/");
    EXPECT_EQ(pathOf(longest + "y"), longest + "/");
    EXPECT_EQ(pathOf(longest + "yy"), longest + "/");
    EXPECT_EQ(pathOf(std::string(5000, 'x')), longest + "/");
    EXPECT_EQ(pathOf(std::string(257, 'x') + "/yyy"), std::string(257, 'x') + "/");
}

TEST(RegistryPath, is_unchanged_without_memory)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    char path[] = "/as/it/was/";
    int result = 1;
    {
        const support::FailingAllocations none;
        result = hws_keywords[11].reader("/data", path);
    }
    EXPECT_EQ(result, 0) << "the result of the reader of texts";
    EXPECT_STREQ(path, "/as/it/was/");
}

TEST(RegistryPath, that_is_shorter_replaces_the_whole_default)
{
    const Read file("registry_path = /r\n");
    EXPECT_STREQ(sConfData.registryPath, "/r/");
}

// ---- What is logged ----

TEST(ReadConfFile, logs_what_it_read)
{
    SetDebugLevel(1);
    const SyslogCapture capture;
    const Read file("interface = lo\nport = 5853\nname = Lathe 3\nbacklight = dim\n");
    SetDebugLevel(0);
    const auto texts = capture.texts();
    ASSERT_EQ(texts.size(), 11U);
    EXPECT_THAT(texts[0], testing::MatchesRegex("veltrop configuration file name: /.*\\.conf"));
    EXPECT_THAT(std::vector<std::string>(texts.begin() + 1, texts.end()),
                ElementsAre("configuration data:", "   data set:             0", "   IP string:            127.0.0.1",
                            "   IP value:             0x0100007F", "   port value:           5853",
                            "   name:                 Lathe 3", "   backlight:            255", "   brightness:           1",
                            "   backlight brightness: 1", "   registry path:        /user/common/"));
    for (const LogLine &line : capture.lines()) {
        EXPECT_EQ(line.priority, LOG_DEBUG);
    }
}

TEST(ReadConfFile, reads_the_usual_file_if_the_platform_names_none)
{
    unsetenv("KVO_PLATFORM_CONFIG");
    SetDebugLevel(1);
    const SyslogCapture capture;
    ReadConfFile();
    SetDebugLevel(0);
    EXPECT_EQ(capture.texts().front(), "veltrop configuration file name: /etc/kvo_hws.conf");
    std::free(sConfData.name);
    std::free(sConfData.interface);
    sConfData = {};
}

TEST(ReadConfFile, truncates_a_file_name_at_its_4100_bytes)
{
    setenv("KVO_PLATFORM_CONFIG", std::string(5000, 'x').c_str(), 1);
    SetDebugLevel(1);
    const SyslogCapture capture;
    ReadConfFile();
    SetDebugLevel(0);
    EXPECT_EQ(capture.texts().front(), "veltrop configuration file name: " + std::string(4099, 'x'));
    unsetenv("KVO_PLATFORM_CONFIG");
    std::free(sConfData.name);
    std::free(sConfData.interface);
    sConfData = {};
}

}  // namespace
