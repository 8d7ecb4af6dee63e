// Lines of agents: how the bytes are split into lines, and the one reply without a line end.
#include "kvosim/remote/agent_lines.h"

#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

using kvosim::AgentLines;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> all(AgentLines &lines, std::string_view unended = {})
{
    std::vector<std::string> texts;
    while (const auto line = lines.next(unended)) {
        texts.push_back(line->text + (line->terminated ? "" : "|"));
    }
    return texts;
}

TEST(AgentLines, end_with_a_line_feed_and_an_optional_carriage_return)
{
    AgentLines lines;
    lines.add("pong\r\nok\n\r\nhalf");
    EXPECT_THAT(all(lines), ElementsAre("pong", "ok", ""));
    lines.add(" and half\r");
    EXPECT_THAT(all(lines), IsEmpty());
    lines.add("\n");
    EXPECT_THAT(all(lines), ElementsAre("half and half"));
}

struct Row : kvosim_test::NamedRow {
    std::string unended;
    std::string bytes;
    std::vector<std::string> lines;
    bool hasUnterminatedNone;
};

class None : public testing::TestWithParam<Row> {};

TEST_P(None, is_recognised_as_a_whole_line)
{
    AgentLines whole;
    whole.add(GetParam().bytes);
    EXPECT_EQ(all(whole, GetParam().unended), GetParam().lines);
    EXPECT_EQ(whole.hasUnterminatedNone(), GetParam().hasUnterminatedNone);
    // In whatever pieces it arrives.
    AgentLines bytewise;
    std::vector<std::string> texts;
    for (const char byte : GetParam().bytes) {
        bytewise.add({&byte, 1});
        for (const std::string &text : all(bytewise, GetParam().unended)) {
            texts.push_back(text);
        }
    }
    EXPECT_EQ(texts, GetParam().lines);
}

const std::vector<Row> kNones = {{"alone", "none", "none", {}, true},
                                 {"tagged", "042:none", "042:none", {}, true},
                                 {"not_expected", "", "none", {}, true},
                                 {"begun", "none", "non", {}, false},
                                 {"with_an_end", "none", "none\r\n", {"none"}, false},
                                 {"with_a_line_feed", "none", "none\n", {"none"}, false},
                                 {"with_only_a_carriage_return", "none", "none\r", {}, false},
                                 {"before_an_indication", "none", "noneI07:x\r\n", {"none|", "I07:x"}, false},
                                 {"before_a_reply", "042:none", "042:none043:pong\r\n", {"042:none|", "043:pong"}, false},
                                 {"a_longer_word", "", "nonesuch\r\n", {"nonesuch"}, false},
                                 {"another_tag", "042:none", "043:none\r\n", {"043:none"}, false}};

INSTANTIATE_TEST_SUITE_P(Table, None, testing::ValuesIn(kNones), kvosim_test::kNameOfRow);

TEST(AgentLines, none_without_a_line_end_is_accepted_if_nothing_follows)
{
    AgentLines lines;
    lines.add("pong\r\n042:none");
    EXPECT_THAT(all(lines), ElementsAre("pong"));
    ASSERT_TRUE(lines.hasUnterminatedNone());
    const auto none = lines.takeUnterminatedNone();
    EXPECT_EQ(none.text, "042:none");
    EXPECT_FALSE(none.terminated);
    EXPECT_FALSE(lines.hasUnterminatedNone());
}

TEST(AgentLines, have_a_maximum_length)
{
    AgentLines lines;
    lines.add(std::string(kvosim::kLongestAgentLine, 'x'));
    EXPECT_FALSE(lines.isTooLong());
    lines.add("x");
    EXPECT_TRUE(lines.isTooLong());
    AgentLines ended;
    ended.add(std::string(kvosim::kLongestAgentLine + 1, 'x') + '\n');
    EXPECT_TRUE(ended.isTooLong()) << "even if it arrived with its end";
    AgentLines longest;
    longest.add(std::string(kvosim::kLongestAgentLine, 'x') + '\n');
    EXPECT_FALSE(longest.isTooLong());
}

TEST(AgentLines, are_parsed_for_tags_and_numbers)
{
    EXPECT_EQ(kvosim::tagOf("042:pong"), "042:");
    EXPECT_EQ(kvosim::tagOf("42:pong"), "");
    EXPECT_EQ(kvosim::tagOf("042"), "");
    EXPECT_EQ(kvosim::indicationOf("I07:x"), "I07:");
    EXPECT_EQ(kvosim::indicationOf("i07:x"), "");
    EXPECT_EQ(kvosim::indicationOf("I7:x"), "");
    EXPECT_TRUE(kvosim::mayReplyUnterminated("Get-Softkey-Type"));
    EXPECT_FALSE(kvosim::mayReplyUnterminated("get-softkey-type2"));
    EXPECT_FALSE(kvosim::mayReplyUnterminated("show-current-server"));
}

}  // namespace
