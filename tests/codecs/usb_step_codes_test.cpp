// The step at which a reader of USB event texts fails, for every field of every text.
#include <kvo_hws/codecs.h>

#include "codecs/usb_texts.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

namespace {

using codecs_test::Guarded;
using codecs_test::read;

/// A field that a reader accepts, and its result codes.
struct Field {
    std::string good;
    int missing;
    int malformed = 0;  ///< 0: the field is a text
};

struct ReaderRow {
    const char *name;
    std::function<int(std::string)> read;
    std::vector<Field> fields;
};

std::ostream &operator<<(std::ostream &out, const ReaderRow &row) { return out << row.name; }

template <class Record, std::size_t Area = sizeof(Record)>
std::function<int(std::string)> with(int (*reader)(Record *, char *) noexcept)
{
    return [reader](const std::string &text) {
        Guarded<Record, Area> record;
        return read(reader, record.get(), text);
    };
}

class StepCodes : public testing::TestWithParam<ReaderRow> {
protected:
    /// The text up to field @p count; @p replaced replaces the last field if it is not empty.
    static std::string upTo(std::size_t count, const std::string &replaced = "")
    {
        std::string text;
        for (std::size_t field = 0; field < count; ++field) {
            text += (field + 1 == count && !replaced.empty() ? replaced : GetParam().fields[field].good) + "*";
        }
        return text;
    }
};

TEST_P(StepCodes, name_the_first_field_that_is_missing)
{
    const auto &fields = GetParam().fields;
    for (std::size_t field = 0; field < fields.size(); ++field) {
        EXPECT_EQ(GetParam().read(upTo(field)), fields[field].missing) << "field " << field;
    }
    EXPECT_EQ(GetParam().read(upTo(fields.size())), 1);
    EXPECT_EQ(GetParam().read(upTo(fields.size()) + "more*and more*"), 1);
}

TEST_P(StepCodes, name_the_first_field_that_is_not_a_number)
{
    const auto &fields = GetParam().fields;
    for (std::size_t field = 0; field < fields.size(); ++field) {
        if (fields[field].malformed != 0) {
            for (const char *malformed : {"12G4", "x", " ", "0x", "12 ", "-", "1.5"}) {
                EXPECT_EQ(GetParam().read(upTo(field + 1, malformed)), fields[field].malformed) << field << " " << malformed;
            }
        }
    }
}

TEST_P(StepCodes, accept_every_number_that_strtoul_accepts)
{
    const auto &fields = GetParam().fields;
    for (std::size_t field = 0; field < fields.size(); ++field) {
        if (fields[field].malformed != 0) {
            for (const char *number : {"0", "0x1f", " 1", "-1", "+ff", "abcdef", "\t7", "FFFFFFFFFFFFFFFFFFFFFFFF"}) {
                std::string text = upTo(field + 1, number);
                for (std::size_t rest = field + 1; rest < fields.size(); ++rest) {
                    text += fields[rest].good + "*";
                }
                EXPECT_EQ(GetParam().read(text), 1) << field << " " << number;
            }
        }
    }
}

const std::vector<Field> kBeginning = {{"keyword", -1}, {"10.0.0.5", -2}, {"usb1", -3}, {"1-1.4", -4}};

std::vector<Field> beginningAnd(std::vector<Field> rest)
{
    rest.insert(rest.begin(), kBeginning.begin(), kBeginning.end());
    return rest;
}

const std::vector<ReaderRow> kReaders = {
    {"ConvertCmd2USBDeviceNM", with(ConvertCmd2USBDeviceNM),
     beginningAnd({{"4", -5},
                   {"5", -6},
                   {"6", -7},
                   {"7", -8},
                   {"00000001", -9, -10},
                   {"00000002", -11, -19},
                   {"08000000", -20, -17},
                   {"0001", -18, -12},
                   {"0002", -13, -14},
                   {"00 01 ", -15}})},
    {"ConvertCmd2USBDeviceNew", with(ConvertCmd2USBDeviceNew),
     beginningAnd({{"4", -5},
                   {"5", -6},
                   {"6", -7},
                   {"7", -8},
                   {"00000001", -9, -10},
                   {"00000002", -11, -19},
                   {"08000000", -20, -17},
                   {"0001", -18, -12},
                   {"0002", -13}})},
    {"ConvertCmd2USBDeviceIM", with(ConvertCmd2USBDeviceIM),
     beginningAnd({{"4", -5}, {"5", -6}, {"8", -7}, {"00000001", -8, -10}, {"00000002", -11, -12}, {"0003", -13, -14}})},
    {"ConvertCmd2USBDeviceCS", with(ConvertCmd2USBDeviceCS), beginningAnd({{"00000003", -5, -10}})},
    {"ConvertCmd2USBDeviceRM", with(ConvertCmd2USBDeviceRM), {{"keyword", -1}, {"10.0.0.5", -1}, {"usb1", -1}, {"1-1.4", -1}}},
    {"ConvertCmd2USBDeviceRemove",
     with<UsbRemoveInfo, 264>(ConvertCmd2USBDeviceRemove),
     {{"keyword", -1}, {"10.0.0.5", -1}, {"usb1", -1}, {"1-1.4", -1}}}};

INSTANTIATE_TEST_SUITE_P(Of, StepCodes, testing::ValuesIn(kReaders),
                         [](const auto &row) { return std::string(row.param.name); });

}  // namespace
