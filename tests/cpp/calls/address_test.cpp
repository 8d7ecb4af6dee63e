// Addresses read and print dotted quads, and nothing else.
#include <kvo_hws/address.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <unordered_set>

namespace {

using kvo::Address;

struct Text {
    const char *name;
    const char *text;
    bool valid;
    std::uint32_t number = 0;
};

class AddressTexts : public testing::TestWithParam<Text> {};

TEST_P(AddressTexts, are_read_as_four_decimal_numbers)
{
    const auto address = Address::parse(GetParam().text);
    ASSERT_EQ(address.has_value(), GetParam().valid);
    if (address) {
        EXPECT_EQ(address->number(), GetParam().number);
        EXPECT_EQ(address->to_string(), GetParam().text);
    } else {
        EXPECT_EQ(address.error().meaning(), kvo::Errc::invalid_address);
    }
}

const Text kTexts[] = {
    {"station", "10.0.0.5", true, 0x0A000005},
    {"lowest", "0.0.0.0", true, 0},
    {"highest", "255.255.255.255", true, 0xFFFFFFFF},
    {"empty", "", false},
    {"three_numbers", "10.0.0", false},
    {"five_numbers", "10.0.0.5.1", false},
    {"too_large", "10.0.0.256", false},
    {"many_digits", "10.0.0.0005", false},
    {"leading_zero", "10.0.0.05", false},
    {"two_zeros", "10.0.0.00", false},
    {"trailing_blank", "10.0.0.5 ", false},
    {"leading_blank", " 10.0.0.5", false},
    {"sign", "10.0.0.+5", false},
    {"hexadecimal", "0x0A000005", false},
    {"missing_number", "10..0.5", false},
    {"trailing_dot", "10.0.0.", false},
    {"name", "Milling centre 1", false},
};

INSTANTIATE_TEST_SUITE_P(Texts, AddressTexts, testing::ValuesIn(kTexts), [](const auto &test) { return test.param.name; });

TEST(Address, is_a_value_that_compares_and_prints)
{
    const Address five("10.0.0.5");
    EXPECT_EQ(five, Address(0x0A000005));
    EXPECT_NE(five, Address());
    EXPECT_LT(Address("10.0.0.4"), five);
    std::ostringstream stream;
    stream << five;
    EXPECT_EQ(stream.str(), "10.0.0.5");
    EXPECT_EQ((std::unordered_set<Address>{five, five, Address(6)}).size(), 2U);
}

TEST(Address, of_an_invalid_text_throws)
{
    try {
        const Address address("panel");
        FAIL() << address;
    } catch (const kvo::Exception &exception) {
        EXPECT_EQ(exception.error().meaning(), kvo::Errc::invalid_address);
        EXPECT_STREQ(exception.what(), exception.error().message().c_str());
        EXPECT_NE(exception.error().message().find("such as 10.0.0.5"), std::string::npos);
    }
}

}  // namespace
