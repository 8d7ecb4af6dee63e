// The order in which recorded requests are used.
#include "kvosim/replay/script.h"
#include "tools/kvosim/compare/recordings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvosim::Script;

/// A script of requests, one for each word. The number of a line of the file shows which one is used: 4, 5 ...
class ReplayScript : public testing::Test {
protected:
    void record(const std::vector<std::string> &requests)
    {
        std::string lines;
        for (const std::string &request : requests) {
            lines += "1.0 ask 1 > \"" + request + "\\n\" < \"ok\\n\"\n";
        }
        recording_ = kvosim_test::recordingOf(lines);
        script_.emplace(recording_, kvosim::contentsOf(recording_).requests);
    }
    /// "4", "4 again" or "4 out of order"; "none" if the text was not recorded.
    std::string take(const std::string &request)
    {
        const auto match = script_->take(request);
        return !match ? "none"
                      : std::to_string(recording_.lineNumber(match->line)) + (match->isRepeated ? " again" : "") +
                            (match->isOutOfOrder ? " out of order" : "");
    }

    kvosim::Recording recording_;
    std::optional<Script> script_;
};

TEST_F(ReplayScript, uses_each_request_once_and_then_the_last_one_again)
{
    record({"a", "b", "a", "a"});
    EXPECT_EQ(take("a"), "4");
    EXPECT_EQ(take("a"), "6");
    EXPECT_EQ(take("b"), "5 out of order");
    EXPECT_EQ(take("a"), "7");
    EXPECT_EQ(take("a"), "7 again");
    EXPECT_EQ(take("a"), "7 again");
    EXPECT_EQ(take("b"), "5 again");
    EXPECT_EQ(take("c"), "none");
    EXPECT_EQ(script_->unused(), 0U);
}

TEST_F(ReplayScript, is_in_order_if_requests_are_left_out)
{
    record({"a", "b", "c", "d"});
    EXPECT_EQ(take("a"), "4");
    EXPECT_EQ(take("d"), "7");
    EXPECT_EQ(take("c"), "6 out of order");
    EXPECT_EQ(script_->unused(), 1U);
    EXPECT_EQ(script_->firstUnused(5), std::vector<kvosim::LineIndex>{1});
}

TEST_F(ReplayScript, compares_whole_texts)
{
    record({"getDLV2 2", "get"});
    EXPECT_EQ(take("getDLV2"), "none");
    EXPECT_EQ(take("getDLV2 2 "), "none");
    EXPECT_EQ(take(""), "none");
    EXPECT_EQ(take("getdlv2 2"), "none");
    EXPECT_EQ(take("get"), "5");
}

TEST_F(ReplayScript, knows_what_is_left)
{
    record({"a", "b"});
    EXPECT_TRUE(script_->hasUnused("a"));
    EXPECT_TRUE(script_->knows("a"));
    take("a");
    EXPECT_FALSE(script_->hasUnused("a"));
    EXPECT_TRUE(script_->knows("a"));
    EXPECT_TRUE(script_->hasUnused("b"));
    EXPECT_FALSE(script_->hasUnused("c"));
    EXPECT_FALSE(script_->knows("c"));
}

TEST_F(ReplayScript, lists_as_many_as_wanted)
{
    record({"a", "b", "a", "c"});
    EXPECT_EQ(script_->firstUnused(3), (std::vector<kvosim::LineIndex>{0, 1, 2}));
    EXPECT_EQ(script_->distinct(10).size(), 3U);
    EXPECT_EQ(script_->distinct(2).size(), 2U);
}

TEST_F(ReplayScript, may_be_empty)
{
    record({});
    EXPECT_EQ(take("a"), "none");
    EXPECT_EQ(script_->size(), 0U);
    EXPECT_TRUE(script_->firstUnused(5).empty());
}

TEST(RequestHash, differs_for_different_texts)
{
    EXPECT_NE(kvosim::hashOf("getMCPAddress=0A000005"), kvosim::hashOf("getMCPAddress=0A000006"));
    EXPECT_EQ(kvosim::hashOf(""), 0xcbf29ce484222325U) << "the same on all machines";
}

}  // namespace
