// Names of the remote side.
#include <kvo_hws/agent.h>

#include <arpa/inet.h>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

HmiServer server(const char *address, char *name = nullptr)
{
    HmiServer server{};
    server.address = inet_addr(address);
    server.name = name;
    return server;
}

std::string formatted(const char *name, int width, std::size_t size = 100)
{
    std::string nameCopy = name != nullptr ? name : "";
    const HmiServer from = server("10.0.0.1", name != nullptr ? nameCopy.data() : nullptr);
    char text[200];
    std::memset(text, '#', sizeof text);
    const int length = format_servername(text, size, &from, width);
    EXPECT_EQ(text[size], '#');
    if (static_cast<std::size_t>(length) < size) {
        EXPECT_EQ(std::strlen(text), static_cast<std::size_t>(length));
    }
    return text;
}

TEST(Sesstoa, formats_address_and_session)
{
    HmiServer remote = server("192.168.214.17");
    HmiSession session{};
    session.server = &remote;
    session.display = 9;
    const char *const first = sesstoa(&session);
    EXPECT_STREQ(first, "192.168.214.17:9");
    session.display = 0;
    EXPECT_EQ(sesstoa(&session), first) << "the next call overwrites it";
    EXPECT_STREQ(first, "192.168.214.17:0");
    remote.address = inet_addr("255.255.255.255");
    session.display = 0x7FFFFFFF;
    EXPECT_STREQ(sesstoa(&session), "255.255.255.255:2147483647");
}

TEST(FormatServername, shortens_the_name_to_the_given_width)
{
    EXPECT_EQ(formatted(nullptr, 100), "10.0.0.1");
    EXPECT_EQ(formatted("alpha.beta.gamma", 100), "alpha.beta.gamma (10.0.0.1)");
    EXPECT_EQ(formatted("alpha.beta.gamma", 28), "alpha.beta.gamma (10.0.0.1)") << "16 + 3 + 8 are less than 28";
    EXPECT_EQ(formatted("alpha.beta.gamma", 27), "alpha... (10.0.0.1)");
    EXPECT_EQ(formatted("alpha.beta.gamma", 20), "alpha... (10.0.0.1)") << "20 is more than 5 + 6 + 8";
    EXPECT_EQ(formatted("alpha.beta.gamma", 19), "10.0.0.1");
    EXPECT_EQ(formatted("alphabetagamma", 19), "10.0.0.1") << "no place to cut it";
    EXPECT_EQ(formatted("alphabetagamma", 0), "10.0.0.1");
    EXPECT_EQ(formatted("alphabetagamma", -5), "10.0.0.1");
    EXPECT_EQ(formatted(".beta.gamma.delta.epsilon", 20), "... (10.0.0.1)");
}

TEST(FormatServername, is_truncated_to_its_buffer)
{
    EXPECT_EQ(formatted("alpha.beta.gamma", 100, 10), "alpha.bet");
    char name[] = "alpha.beta.gamma";
    const HmiServer from = server("10.0.0.1", name);
    char text[10];
    EXPECT_EQ(format_servername(text, sizeof text, &from, 100), 27) << "the length of the whole text";
}

TEST(RegisterServername, does_nothing) { register_hws_servername(); }

}  // namespace
