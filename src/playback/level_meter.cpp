#include "playback/level_meter.h"

#include <algorithm>
#include <cstdlib>

namespace tarn {
namespace {

constexpr float kFullScale = 32768;
// What has this size was cut off, or would have been: the chain gives no more than 32766.
constexpr int32_t kFullBefore = 32767, kFullAfter = 32766;

}  // namespace

void LevelMeter::Begin(uint32_t rate) {
    m_slotFrames = std::max(rate / kSlotsInSecond, 1u);
    NextSlot(m_newest + m_slots.size());  // so far from all others that they count no more
}

void LevelMeter::NextSlot(uint64_t number) {
    Slot& slot = m_slots[number % m_slots.size()];
    slot.number = 0;
    for (size_t i = 0; i < kCount; ++i) {
        slot.peak[i] = 0;
        slot.clipped[i] = 0;
    }
    slot.number = number;
    m_newest = number;
    m_left = m_slotFrames;
}

void LevelMeter::Add(Slot* slot, size_t at, const int16_t* samples, uint32_t frames, int32_t full) {
    uint32_t peak = slot->peak[at], clipped = slot->clipped[at];
    for (uint32_t i = 0; i < frames; ++i) {
        const int32_t size = std::abs(int32_t{samples[2 * i]});
        peak = std::max(peak, static_cast<uint32_t>(size));
        clipped += size >= full ? 1 : 0;
    }
    slot->peak[at] = peak;
    slot->clipped[at] = clipped;
}

void LevelMeter::Take(const int16_t* before, const int16_t* after, uint32_t frames) {
    while (frames > 0) {
        if (m_left == 0) NextSlot(m_newest + 1);
        Slot* slot = &m_slots[m_newest % m_slots.size()];
        const uint32_t count = std::min(frames, m_left);
        for (size_t channel = 0; channel < 2; ++channel) {
            Add(slot, channel, before + channel, count, kFullBefore);
            Add(slot, 2 + channel, after + channel, count, kFullAfter);
        }
        m_left -= count;
        frames -= count;
        before += size_t{2} * count;
        after += size_t{2} * count;
    }
}

SoundLevels LevelMeter::Read() const {
    SoundLevels levels;
    const uint64_t newest = m_newest;
    for (const Slot& slot : m_slots) {
        const uint64_t number = slot.number;
        if (number == 0 || number > newest || newest - number >= m_slots.size()) continue;
        std::array<uint32_t, kCount> peak{}, clipped{};
        for (size_t i = 0; i < kCount; ++i) {
            peak[i] = slot.peak[i];
            clipped[i] = slot.clipped[i];
        }
        if (slot.number != number) continue;  // begun anew meanwhile
        ChannelLevel* const channels[kCount] = {&levels.before[0], &levels.before[1],
                                                &levels.after[0], &levels.after[1]};
        for (size_t i = 0; i < kCount; ++i) {
            const float part = static_cast<float>(peak[i]) / kFullScale;
            channels[i]->peak = std::max(channels[i]->peak, part);
            channels[i]->clipped += clipped[i];
        }
    }
    return levels;
}

}  // namespace tarn
