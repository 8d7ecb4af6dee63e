// The wrapping of help texts, and the command "help".
#include "common/command_line/help.h"

#include <gmock/gmock.h>

namespace {

using tools::command_line::replaceHelpCommand;
using tools::command_line::wrapped;

using Words = std::vector<std::string>;

TEST(Wrapped, fills_paragraphs)
{
    EXPECT_EQ(wrapped("One two three\nfour five.\n\nSix.\n", 14), "One two three\nfour five.\n\nSix.\n");
    EXPECT_EQ(wrapped("One two three\nfour five.\n\nSix.\n", 9), "One two\nthree\nfour\nfive.\n\nSix.\n");
    EXPECT_EQ(wrapped("One two three\nfour five.\n\nSix.\n", 80), "One two three four five.\n\nSix.\n");
}

TEST(Wrapped, counts_characters_instead_of_bytes) { EXPECT_EQ(wrapped("ä ö ü\n", 5), "ä ö ü\n"); }

TEST(Wrapped, keeps_a_second_column)
{
    EXPECT_EQ(wrapped("  delay    the reply comes late\n", 20), "  delay    the reply\n           comes\n           late\n");
}

TEST(Wrapped, does_not_wrap_commands)
{
    EXPECT_EQ(wrapped("Examples:\n  kvosim run -- ./panel-tests\n", 12), "Examples:\n  kvosim run -- ./panel-tests\n");
}

TEST(Wrapped, does_not_split_a_word_that_is_wider_than_a_line)
{
    EXPECT_EQ(wrapped("at /tmp/kvo_hws/cmd_sock until\n", 10), "at\n/tmp/kvo_hws/cmd_sock\nuntil\n");
}

TEST(HelpCommand, is_replaced_with_the_help_option)
{
    EXPECT_EQ(replaceHelpCommand({"help"}), (Words{"--help"}));
    EXPECT_EQ(replaceHelpCommand({"help", "usb", "lock"}), (Words{"usb", "lock", "--help"}));
    EXPECT_EQ(replaceHelpCommand({"--json", "help", "usb"}), (Words{"--json", "usb", "--help"}));
    EXPECT_EQ(replaceHelpCommand({"help", "help"}), (Words{"help", "--help"}));
}

TEST(HelpCommand, is_only_recognised_as_the_first_word)
{
    for (const Words &words : {Words{}, Words{"--json"}, Words{"station", "help"}, Words{"--", "help"}}) {
        EXPECT_EQ(replaceHelpCommand(words), words);
    }
}

}  // namespace
