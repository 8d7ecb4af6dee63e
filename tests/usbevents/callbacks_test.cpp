// The callback slots and the calls through them.
#include <kvo_hws/usbevents.h>

#include "support/usb_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <type_traits>

namespace {

using support::EventRecorder;
using support::RecordedEvent;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_same_v<decltype(sendUSBEvent), int32_t (*)(uint32_t, void *)>);
static_assert(std::is_same_v<decltype(sendUSBEvent2), int32_t (*)(UsbEventV2 *)>);

class Callbacks : public testing::Test {
protected:
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

TEST_F(Callbacks, are_not_set_initially)
{
    EXPECT_EQ(sendUSBEvent, nullptr);
    EXPECT_EQ(sendUSBEvent2, nullptr);
}

TEST_F(Callbacks, fail_if_none_is_set)
{
    UsbEventV2 event{};
    EXPECT_EQ(SendUSBEventCheckNULL_Simple(3), -1);
    EXPECT_EQ(SendUSBEventCheckNULL_V1(3, nullptr), -1);
    EXPECT_EQ(SendUSBEventCheckNULL_V2(&event), -1);
}

TEST_F(Callbacks, receive_a_status_in_their_own_form)
{
    const EventRecorder recorder(
        [](const RecordedEvent &event) { return event.generation * 100 + static_cast<int>(event.code); });
    sendUSBEvent = EventRecorder::older;
    EXPECT_EQ(SendUSBEventCheckNULL_Simple(3), 103);
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(SendUSBEventCheckNULL_Simple(101), 301) << "the newer one if both are set";
    sendUSBEvent = nullptr;
    EXPECT_EQ(SendUSBEventCheckNULL_Simple(2), 202);
    EXPECT_THAT(recorder.events(),
                ElementsAre(RecordedEvent{1, 3, 0, ""}, RecordedEvent{2, 101, 8, ""}, RecordedEvent{2, 2, 8, ""}));
}

TEST_F(Callbacks, are_called_separately)
{
    const EventRecorder recorder([](const RecordedEvent &event) { return event.generation; });
    sendUSBEvent = EventRecorder::older;
    sendUSBEvent2 = EventRecorder::newer;
    UsbDeviceV1 record{};
    EXPECT_EQ(SendUSBEventCheckNULL_V1(10, &record), 1);
    UsbEventV2 event{};
    event.code = 13;
    event.length = 8;
    EXPECT_EQ(SendUSBEventCheckNULL_V2(&event), 2);
    EXPECT_EQ(recorder.codes(), (std::vector<uint32_t>{10, 13}));
}

TEST_F(Callbacks, return_any_result_unchanged)
{
    for (const int32_t result : {-2, -1, 0, 1, 7}) {
        const EventRecorder recorder([result](const RecordedEvent &) { return result; });
        sendUSBEvent2 = EventRecorder::newer;
        EXPECT_EQ(SendUSBEventCheckNULL_Simple(1), result);
    }
}

TEST_F(Callbacks, are_both_cleared_at_once)
{
    const EventRecorder recorder;
    sendUSBEvent = EventRecorder::older;
    sendUSBEvent2 = EventRecorder::newer;
    SetFunction_SendUSBEvent_NULL();
    EXPECT_EQ(sendUSBEvent, nullptr);
    EXPECT_EQ(sendUSBEvent2, nullptr);
    EXPECT_THAT(recorder.events(), IsEmpty());
}

TEST_F(Callbacks, fail_if_they_throw)
{
    const EventRecorder recorder([](const RecordedEvent &) -> int32_t { throw std::runtime_error("not for the library"); });
    sendUSBEvent = EventRecorder::older;
    EXPECT_EQ(SendUSBEventCheckNULL_Simple(3), -1);
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(SendUSBEventCheckNULL_Simple(3), -1);
}

}  // namespace
