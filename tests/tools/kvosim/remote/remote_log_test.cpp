// The log of the remote side: its limits and its lines.
#include "kvosim/remote/remote_log.h"

#include <gmock/gmock.h>

namespace {

using kvosim::RemoteLog;
using kvosim::RemoteRecord;

TEST(RemoteLog, keeps_the_last_records)
{
    uint64_t reported = 0;
    RemoteLog log([&](const RemoteRecord &record) { reported = record.number; });
    for (std::size_t i = 0; i < RemoteLog::kMaxRecords + 10; ++i) {
        log.add({.text = "x"});
    }
    EXPECT_EQ(log.records().size(), RemoteLog::kMaxRecords);
    EXPECT_EQ(log.records().front().number, 11U);
    EXPECT_EQ(log.records().back().number, log.last());
    EXPECT_EQ(reported, RemoteLog::kMaxRecords + 10);
}

TEST(RemoteLog, keeps_a_limited_number_of_bytes)
{
    RemoteLog log([](const RemoteRecord &) {});
    const std::string text(4096, 'x');
    for (int i = 0; i < 1000; ++i) {
        log.add({.text = text, .note = text});
    }
    EXPECT_EQ(log.records().size(), RemoteLog::kMaxBytes / (2 * text.size()));
    EXPECT_EQ(log.last(), 1000U);
}

TEST(RemoteLog, has_a_line_for_each_record)
{
    EXPECT_EQ(kvosim::lineOf(3, "request", "ping", ""), "session 3 > ping");
    EXPECT_EQ(kvosim::lineOf(3, "reply", "none", "without a line end"), "session 3 < none (without a line end)");
    EXPECT_EQ(kvosim::lineOf(3, "indication", "I01:\x01", ""), "session 3 ! I01:\\x01");
    EXPECT_EQ(kvosim::lineOf(3, "connected", "from x", ""), "session 3 connected from x");
    EXPECT_EQ(kvosim::lineOf(3, "closed", "why", ""), "session 3 closed: why");
}

}  // namespace
