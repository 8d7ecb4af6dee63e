// Strings of TOML documents: written so that any TOML reader gets the same text, and found wherever they stand.
#include "common/toml_text.h"
#include "common/utf8.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#define TOML_ASSERT(expression) static_assert(true)
#include <toml++/toml.h>

namespace {

using tools::replaceStrings;
using tools::tomlQuoted;

// ---- Quoted texts ----

struct Quoted {
    const char *name;
    std::string text;
    std::string quoted;
};

void PrintTo(const Quoted &row, std::ostream *out) { *out << row.name; }

const Quoted kQuoted[] = {
    {"empty", "", R"("")"},
    {"words", "Lathe 1, it's here", R"("Lathe 1, it's here")"},
    {"quotes_and_backslashes", R"(a "b" \c\)", R"("a \"b\" \\c\\")"},
    {"control_characters", "a\tb\x01\x7F", R"("a\u0009b\u0001\u007F")"},
    {"letters_of_other_languages", "Fräse 旋盤 🔧", "\"Fräse 旋盤 🔧\""},
    {"characters_that_do_not_show", "a\u202Eb\u200B\U000E0041", R"("a\u202Eb\u200B\U000E0041")"},
};

class QuotedText : public testing::TestWithParam<Quoted> {};

TEST_P(QuotedText, is_the_same_text_for_a_reader_of_toml)
{
    const std::string quoted = tomlQuoted(GetParam().text);
    EXPECT_EQ(quoted, GetParam().quoted);
    EXPECT_EQ(toml::parse("key = " + quoted)["key"].value<std::string>(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Texts, QuotedText, testing::ValuesIn(kQuoted), [](const auto &row) { return row.param.name; });

// ---- Strings that are replaced ----

struct Document {
    const char *name;
    std::string toml;
    std::string replaced;
    std::vector<std::string> found;  ///< "key:text"
};

void PrintTo(const Document &row, std::ostream *out) { *out << row.name; }

const Document kDocuments[] = {
    {"nothing", "", "", {}},
    {"values_of_other_types",
     "a = 1\nb = 0x1F # one\n[c]\nd = [1, 2]\ne = true\n",
     "a = 1\nb = 0x1F\n[c]\nd = [1, 2]\ne = true\n",
     {}},
    {"string", "[[station]]\nname = \"A\"\nattr1 = 1\n", "[[station]]\nname = \"R\"\nattr1 = 1\n", {"name:A"}},
    {"literal_string", "name='A\\n\"'\n", "name=\"R\"\n", {"name:A\\n\""}},
    {"escapes", R"(name = "\"\\\t\u00e4\U0001F527")", R"(name = "R")", {"name:\"\\\tä🔧"}},
    {"string_of_several_lines",
     "a = \"\"\"\none # \"two\"\\\n   three\"\"\"\nb = 1\n",
     "a = \"R\"\nb = 1\n",
     {"a:one # \"two\"three"}},
    {"quotes_before_the_closing_ones", "a = \"\"\"b\"\"\"\"\"\n", "a = \"R\"\n", {"a:b\"\""}},
    {"literal_string_of_several_lines", "a = '''\r\nb\\n\n''c'''\n", "a = \"R\"\n", {"a:b\\n\n''c"}},
    {"empty_strings", "a = \"\"\nb = ''\nc = \"\"\"\"\"\"\n", "a = \"R\"\nb = \"R\"\nc = \"R\"\n", {"a:", "b:", "c:"}},
    {"list", "a = [ \"b\", # c\n 'd' ]\n\"e\" = 'f'\n", "a = [ \"R\",\n \"R\" ]\n\"e\" = \"R\"\n", {"a:b", "a:d", "e:f"}},
    {"inline_table", "t = {a = 'b', \"c\" = 'd'}\n", "t = {a = \"R\", \"c\" = \"R\"}\n", {"a:b", "c:d"}},
    {"keys_with_dots", "a.\"b\" . c = 'd'\n[e.\"f\"]\n", "a.\"b\" . c = \"R\"\n[e.\"f\"]\n", {"c:d"}},
    {"comments", "# Tom\n\n  # Ray\na = 1 # \"x\"\n# end", "\na = 1\n", {}},
    {"string_that_stays", "a = 'stay' # b\n", "a = 'stay'\n", {"a:stay"}},
    {"string_without_an_end", "a = 1\nb = \"Tom\nc = 'Ray'\n", "a = 1\nb = ", {}},
    {"lines_without_an_end", "a = '''Tom\nb = 1\n", "a = ", {}},
};

class ReplacedStrings : public testing::TestWithParam<Document> {};

TEST_P(ReplacedStrings, are_all_found_with_their_keys)
{
    std::vector<std::string> found;
    const auto replace = [&](std::string_view key, std::string_view text) -> std::optional<std::string> {
        found.push_back(std::string(key) + ':' + std::string(text));
        return text == "stay" ? std::nullopt : std::optional<std::string>("R");
    };
    EXPECT_EQ(replaceStrings(GetParam().toml, replace), GetParam().replaced);
    EXPECT_EQ(found, GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(Documents, ReplacedStrings, testing::ValuesIn(kDocuments),
                         [](const auto &row) { return row.param.name; });

// ---- UTF-8 ----

TEST(Utf8, is_distinguished_from_other_bytes)
{
    for (const char *valid : {"", "a", "ä", "旋", "🔧", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(tools::isUtf8(valid)) << valid;
    }
    for (const char *invalid :
         {"\x80", "a\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF", "\xE4t"}) {
        EXPECT_FALSE(tools::isUtf8(invalid)) << testing::PrintToString(invalid);
    }
}

}  // namespace
