#include "playback/clock_guard.h"

#include <memory>
#include <mutex>

namespace tarn {
namespace {

// A device is neither faster than this nor that uneven.
constexpr GstClockTime kMostSpeed = 2;
constexpr GstClockTime kMostLeap = GST_SECOND;

// Stands between a clock and the function that it asks for the device's time.
class Guard {
public:
    explicit Guard(GstAudioClock* clock)
        : m_ask(clock->func), m_data(clock->user_data), m_destroy(clock->destroy_notify) {
        clock->func = Ask;
        clock->user_data = this;
        clock->destroy_notify = [](gpointer guard) { delete static_cast<Guard*>(guard); };
    }
    ~Guard() {
        if (m_destroy) m_destroy(m_data);
    }

private:
    static GstClockTime Ask(GstClock* clock, gpointer guard) {
        auto* self = static_cast<Guard*>(guard);
        return self->Check(self->m_ask(clock, self->m_data));
    }

    GstClockTime Check(GstClockTime time) {
        const std::lock_guard lock(m_mutex);
        const GstClockTime now = gst_util_get_timestamp();
        const GstClockTime most = m_time + (now - m_taken) * kMostSpeed + kMostLeap;
        if (!GST_CLOCK_TIME_IS_VALID(time)) return time;
        if (time > most) return m_time;
        m_time = time;
        m_taken = now;
        return time;
    }

    const GstAudioClockGetTimeFunc m_ask;
    const gpointer m_data;
    const GDestroyNotify m_destroy;
    std::mutex m_mutex;
    GstClockTime m_time = 0;  // the last good answer, and when it came
    GstClockTime m_taken = gst_util_get_timestamp();
};

}  // namespace

void GuardClock(GstAudioClock* clock) {
    static_cast<void>(std::make_unique<Guard>(clock).release());  // the clock owns it
}

}  // namespace tarn
