// The configuration file, its table of keys and the accessors.
#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include "support/failing_allocations.h"
#include "support/kept_by_the_platform.h"
#include "support/syslog_capture.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace {

/// What the platform's reader was last called with.
struct ReaderCall {
    std::vector<void *> block;
    std::string fileName;
    HwsKeyword *table;
} readerCall;

}  // namespace

/// In the place of the platform's, which it calls.
extern "C" int read_conf(void *block[4]) noexcept
{
    readerCall.block.assign(block, block + 4);
    readerCall.fileName = static_cast<const char *>(block[0]);
    readerCall.table = keywords;
    return reinterpret_cast<int (*)(void **)>(dlsym(RTLD_NEXT, "read_conf"))(block);
}

namespace {

using support::LogLine;
using support::SyslogCapture;
using testing::ElementsAre;

/// A configuration file with this content, read.
class Read {
public:
    explicit Read(const std::string &content)
    {
        std::ofstream(path_) << content;
        setenv("KVO_PLATFORM_CONFIG", path_.c_str(), 1);
        ReadConfFile();
    }
    Read(const Read &) = delete;
    Read &operator=(const Read &) = delete;
    ~Read()
    {
        // Earlier texts are left to whoever may still hold them; here that is nobody.
        std::free(sConfData.name);
        std::free(sConfData.interface);
        sConfData = {};
        unsetenv("KVO_PLATFORM_CONFIG");
        unlink(path_.c_str());
    }

private:
    std::string path_ = testing::TempDir() + "kvo_hws." + std::to_string(getpid()) + ".conf";
};

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

TEST(Keywords, stand_in_their_order)
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

TEST(ReadConfFile, takes_the_defaults_where_the_file_says_nothing)
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

TEST(ReadConfFile, takes_the_defaults_where_there_is_no_file)
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

TEST(ReadConfFile, takes_what_the_file_says)
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

TEST(ReadConfFile, hands_the_platform_the_file_and_the_table)
{
    keywords = nullptr;
    const Read file("");
    EXPECT_THAT(readerCall.fileName, testing::EndsWith(".conf"));
    EXPECT_EQ(readerCall.table, hws_keywords);
    EXPECT_THAT(readerCall.block, ElementsAre(testing::NotNull(), nullptr, nullptr, nullptr)) << "the rest is the reader's own";
}

TEST(ReadConfFile, clears_what_was_there)
{
    const Read first("");
    std::free(sConfData.interface);
    std::free(sConfData.name);
    std::memset(static_cast<void *>(&sConfData), 0xAA, sizeof sConfData);
    ReadConfFile();
    EXPECT_EQ(sConfData.backlight, 1U) << "a whole word although one byte of it is stored";
    EXPECT_EQ(std::string(sConfData.registryPath + 14, 246), std::string(246, '\0'));
}

class NameKeys : public testing::TestWithParam<const char *> {};

TEST_P(NameKeys, name_the_station)
{
    const Read file(std::string(GetParam()) + " = Lathe 3\n");
    EXPECT_STREQ(sConfData.name, "Lathe 3");
}

INSTANTIATE_TEST_SUITE_P(Of, NameKeys, testing::Values("Hostname", "rhz_name", "jdl_name", "name", "hostname"));

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

TEST_P(Modes, are_words_in_any_case)
{
    for (const char *const key : {"backlight", "brightness", "backlight_brightness"}) {
        const Read file(std::string(key) + " = " + GetParam().word + "\n");
        EXPECT_EQ(sConfData.backlight, key == std::string("backlight") ? GetParam().mode : 1U);
        EXPECT_EQ(sConfData.brightness, key == std::string("brightness") ? GetParam().mode : 1U);
        EXPECT_EQ(sConfData.backlightBrightness, key == std::string("backlight_brightness") ? GetParam().mode : 1U);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Modes,
                         testing::Values(Mode{"all", 0}, Mode{"ALL", 0}, Mode{"visible", 1}, Mode{"Visible", 1},
                                         Mode{"none", 2}, Mode{"NONE", 2}, Mode{"dim", 255}, Mode{"nones", 255},
                                         Mode{"al", 255}, Mode{"0", 255}));

TEST(ModeReader, says_what_it_accepts)
{
    uint32_t mode = 0;
    EXPECT_EQ(hws_keywords[8].reader("none", &mode), 1);
    EXPECT_EQ(mode, 2U);
    EXPECT_EQ(hws_keywords[8].reader("dim", &mode), 0);
    EXPECT_EQ(mode, 255U);
    mode = 0x11223344;
    EXPECT_EQ(hws_keywords[8].reader("all", &mode), 1);
    EXPECT_EQ(mode, 0x11223300U) << "one byte";
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

TEST(RegistryPath, ends_in_a_separator)
{
    EXPECT_EQ(pathOf("/data/reg"), "/data/reg/");
    EXPECT_EQ(pathOf("/data/reg/"), "/data/reg/");
    EXPECT_EQ(pathOf("C:\\reg\\"), "C:\\reg\\");
    EXPECT_EQ(pathOf(""), "");
}

TEST(RegistryPath, is_cut_to_its_room)
{
    const std::string longest(258, 'x');
    EXPECT_EQ(pathOf(longest), longest + "/");
    EXPECT_EQ(pathOf(longest + "/"), longest + "/");
    EXPECT_EQ(pathOf(longest + "y"), longest + "/");
    EXPECT_EQ(pathOf(longest + "yy"), longest + "/");
    EXPECT_EQ(pathOf(std::string(5000, 'x')), longest + "/");
    EXPECT_EQ(pathOf(std::string(257, 'x') + "/yyy"), std::string(257, 'x') + "/");
}

TEST(RegistryPath, stays_where_there_is_no_memory_for_it)
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
    EXPECT_EQ(result, 0) << "what the reader of texts says";
    EXPECT_STREQ(path, "/as/it/was/");
}

TEST(RegistryPath, that_is_shorter_replaces_the_default_whole)
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

TEST(ReadConfFile, reads_the_usual_file_where_the_platform_names_none)
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

TEST(ReadConfFile, cuts_a_file_name_at_its_4100_bytes)
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

// ---- Accessors ----

struct Accessor {
    const char *name;
    std::function<int()> call;
    int notRead;
    std::string message;
};

std::ostream &operator<<(std::ostream &out, const Accessor &row) { return out << row.name; }

char textOut[300];
uint32_t wordOut;
uint16_t shortOut;

const std::vector<Accessor> kAccessors = {
    {"interface_ip", [] { return GetInterfaceIP(textOut, &wordOut); }, -2,
     "config dat not set ==> no IP address for interface '(null)' available"},
    {"port", [] { return GetPortNumber(&shortOut); }, -1, "no port number available"},
    {"session", [] { return GetSessionNumber(&wordOut); }, -1, "no port number available"},
    {"name", [] { return GetRHZName(textOut); }, -1, "no RHZ/JDL name available"},
    {"backlight", [] { return GetBacklightMode(&wordOut); }, -1, "no backlight mode available"},
    {"brightness", [] { return GetBrightnessMode(&wordOut); }, -1, "no brightness mode available"},
    {"backlight_brightness", [] { return GetBacklightBrightnessMode(&wordOut); }, -1, "no backlight brightness mode available"},
    {"registry_path", [] { return GetRegistryPath(textOut); }, -1, "no registry path available"}};

class Accessors : public testing::TestWithParam<Accessor> {};

TEST_P(Accessors, have_nothing_before_the_file_was_read)
{
    sConfData = {};
    std::memset(textOut, '#', sizeof textOut);
    wordOut = 0x5A5A5A5A;
    shortOut = 0x5A5A;
    const SyslogCapture capture;
    EXPECT_EQ(GetParam().call(), GetParam().notRead);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_ERR, GetParam().message}));
    EXPECT_EQ(std::string(textOut, sizeof textOut), std::string(sizeof textOut, '#'));
    EXPECT_EQ(wordOut, 0x5A5A5A5AU);
    EXPECT_EQ(shortOut, 0x5A5A);
}

INSTANTIATE_TEST_SUITE_P(Of, Accessors, testing::ValuesIn(kAccessors),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(AccessorValues, are_those_of_the_file)
{
    const Read file("interface = lo\nport = 5852\nname = Lathe 3\nbacklight = all\nbrightness = none\n"
                    "backlight_brightness = what\nregistry_path = /data\n");
    const SyslogCapture capture;
    EXPECT_EQ(GetInterfaceIP(textOut, &wordOut), 0);
    EXPECT_STREQ(textOut, "127.0.0.1");
    EXPECT_EQ(wordOut, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(GetPortNumber(&shortOut), 0);
    EXPECT_EQ(shortOut, 5852);
    EXPECT_EQ(GetSessionNumber(&wordOut), 0);
    EXPECT_EQ(wordOut, 2U);
    EXPECT_EQ(GetRHZName(textOut), 0);
    EXPECT_STREQ(textOut, "Lathe 3");
    EXPECT_EQ(GetBacklightMode(&wordOut), 0);
    EXPECT_EQ(wordOut, 0U);
    EXPECT_EQ(GetBrightnessMode(&wordOut), 0);
    EXPECT_EQ(wordOut, 2U);
    EXPECT_EQ(GetBacklightBrightnessMode(&wordOut), 0);
    EXPECT_EQ(wordOut, 255U);
    EXPECT_EQ(GetRegistryPath(textOut), 0);
    EXPECT_STREQ(textOut, "/data/");
    EXPECT_THAT(capture.lines(), testing::IsEmpty());
}

TEST(AccessorValues, tell_an_interface_without_an_address)
{
    const Read file("interface = eth7\n");
    const SyslogCapture capture;
    EXPECT_EQ(GetInterfaceIP(textOut, &wordOut), -1);
    ASSERT_EQ(capture.lines().size(), 1U);
    EXPECT_EQ(capture.lines()[0].priority, LOG_ERR);
    EXPECT_THAT(capture.lines()[0].text,
                testing::MatchesRegex("GetIpByInterface fails with -?[0-9]+ ==> no IP address for interface 'eth7' available"));
}

TEST(AccessorValues, begin_with_session_0)
{
    const Read file("");
    EXPECT_EQ(GetSessionNumber(&wordOut), 0);
    EXPECT_EQ(wordOut, 0U);
}

TEST(AccessorValues, name_an_interface_that_is_there_although_nothing_was_read)
{
    char name[] = "eth9";
    sConfData = {};
    sConfData.interface = name;
    const SyslogCapture capture;
    EXPECT_EQ(GetInterfaceIP(textOut, &wordOut), -2);
    EXPECT_THAT(capture.texts(), ElementsAre("config dat not set ==> no IP address for interface 'eth9' available"));
    sConfData = {};
}

TEST(AccessorValues, wrap_a_session_below_the_first_port_round)
{
    const Read file("port = 5849\n");
    EXPECT_EQ(GetSessionNumber(&wordOut), 0);
    EXPECT_EQ(wordOut, 0xFFFFFFFFU);
}

}  // namespace
