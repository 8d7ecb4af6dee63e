// The version macros of the headers.
#include <kvo_hws/kvo_hws.h>

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr int kMajor = KVO_HWS_VERSION_MAJOR;
constexpr int kMinor = KVO_HWS_VERSION_MINOR;
constexpr int kPatch = KVO_HWS_VERSION_PATCH;

TEST(Version, is_the_version_of_the_project)
{
    EXPECT_STREQ(KVO_HWS_VERSION_STRING, KVO_VERSION);
    EXPECT_EQ(std::to_string(kMajor) + '.' + std::to_string(kMinor) + '.' + std::to_string(kPatch), KVO_VERSION);
}

#if !KVO_HWS_VERSION_AT_LEAST(0, 1, 0) || KVO_HWS_VERSION_AT_LEAST(1000, 0, 0)
#error "KVO_HWS_VERSION_AT_LEAST is for the preprocessor"
#endif

TEST(Version, is_compared_number_by_number)
{
    EXPECT_TRUE(KVO_HWS_VERSION_AT_LEAST(kMajor, kMinor, kPatch));
    EXPECT_TRUE(KVO_HWS_VERSION_AT_LEAST(kMajor, kMinor, kPatch - 1));
    EXPECT_TRUE(KVO_HWS_VERSION_AT_LEAST(kMajor, kMinor - 1, kPatch + 1));
    EXPECT_TRUE(KVO_HWS_VERSION_AT_LEAST(kMajor - 1, kMinor + 1, kPatch + 1));
    EXPECT_FALSE(KVO_HWS_VERSION_AT_LEAST(kMajor, kMinor, kPatch + 1));
    EXPECT_FALSE(KVO_HWS_VERSION_AT_LEAST(kMajor, kMinor + 1, kPatch));
    EXPECT_FALSE(KVO_HWS_VERSION_AT_LEAST(kMajor, kMinor + 1, 0));
    EXPECT_FALSE(KVO_HWS_VERSION_AT_LEAST(kMajor + 1, kMinor, kPatch));
    EXPECT_FALSE(KVO_HWS_VERSION_AT_LEAST(kMajor + 1, 0, 0));
}

}  // namespace
