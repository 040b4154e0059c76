#include "playback/clock_guard.h"

#include <gtest/gtest.h>

#include "playback/gst_handles.h"

namespace tarn {
namespace {

struct Device {
    GstClockTime time = 0;
    bool let_go = false;
};

TEST(ClockGuard, LeavesOutWildTimesAlone) {
    ASSERT_TRUE(StartGst());
    Device device;
    const auto ask = [](GstClock*, gpointer data) { return static_cast<Device*>(data)->time; };
    const auto destroy = [](gpointer data) { static_cast<Device*>(data)->let_go = true; };
    GstClock* clock = gst_audio_clock_new("device", ask, &device, destroy);
    GuardClock(GST_AUDIO_CLOCK(clock));
    const struct {
        const char* name;
        GstClockTime device, clock;
    } rows[] = {
        {"the first", 10 * GST_MSECOND, 10 * GST_MSECOND},
        {"centuries ahead", 15'665'162'878'843'871'232u, 10 * GST_MSECOND},
        {"it goes on", 30 * GST_MSECOND, 30 * GST_MSECOND},
        {"no time at all", GST_CLOCK_TIME_NONE, 30 * GST_MSECOND},
        {"a device that began at 0 again", 0, 30 * GST_MSECOND},
        {"catches up after a stall", 900 * GST_MSECOND, 900 * GST_MSECOND},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        device.time = row.device;
        EXPECT_EQ(gst_clock_get_internal_time(clock), row.clock);
    }
    gst_object_unref(clock);
    EXPECT_TRUE(device.let_go);
}

}  // namespace
}  // namespace tarn
