// level_meter.h - the peaks of the last second, from the thread that treats the sound to the one
// that shows them, without a lock.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "playback/sound_effect.h"

namespace tarn {

class LevelMeter {
public:
    // One thread: Hz of what follows, which has nothing to do with what was before.
    void Begin(uint32_t rate);
    // Frames of left and right sample in turn, as they came and as they went.
    void Take(const int16_t* before, const int16_t* after, uint32_t frames);

    // Any other.
    SoundLevels Read() const;

private:
    static constexpr uint32_t kSlotsInSecond = 20;
    static constexpr size_t kCount = 4;  // before left and right, after left and right

    // A twentieth of a second. A reader takes one that had the same number before and after.
    struct Slot {
        std::atomic<uint64_t> number{0};  // 0: being emptied
        std::array<std::atomic<uint32_t>, kCount> peak{}, clipped{};
    };

    void NextSlot(uint64_t number);
    static void Add(Slot* slot, size_t at, const int16_t* samples, uint32_t frames, int32_t full);

    std::array<Slot, kSlotsInSecond + 1> m_slots;
    std::atomic<uint64_t> m_newest{0};
    uint32_t m_slotFrames = 0, m_left = 0;  // of a slot, and of the present one
};

}  // namespace tarn
