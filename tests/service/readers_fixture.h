// A socket pair whose other end the test controls, and lines read from it.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace service_test {

inline constexpr char kPattern = '\x5A';

/// A line from ReadSocket, in a buffer of the minimum size followed by guard bytes.
struct FixedLine {
    explicit FixedLine(int fd) : bytes(1025 + 16, kPattern)
    {
        result = ReadSocket(fd, bytes.data());
        EXPECT_EQ(bytes.substr(1025), std::string(16, kPattern)) << "written past the buffer";
    }
    [[nodiscard]] std::string text() const { return bytes.c_str(); }

    int result;
    std::string bytes;
};

/// A line from ReadSocketCache.
struct CachedLine {
    CachedLine(int fd, SocketCache &cache, unsigned timeout = 1000) : bytes(1025 + 16, kPattern)
    {
        result = ReadSocketCache(fd, bytes.data(), &cache, timeout);
        EXPECT_EQ(bytes.substr(1025), std::string(16, kPattern)) << "written past the line";
    }
    [[nodiscard]] std::string text() const { return bytes.c_str(); }

    int result;
    std::string bytes;
};

class Readers : public testing::Test {
protected:
    void SetUp() override { SetDebugLevel(2); }
    void TearDown() override { SetDebugLevel(0); }
};

}  // namespace service_test
