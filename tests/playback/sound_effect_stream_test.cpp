#include "playback/sound_effect_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/allocation_count.h"

namespace tarn {
namespace {

constexpr uint32_t kBlock = 1024;

// One thread turns every knob while the other plays. What was set last is what is heard.
TEST(SoundEffectStream, IsControlledWhileItPlays) {
    constexpr int kChanges = 400;
    SoundEffectStream stream;
    ASSERT_TRUE(stream.SetFormat(48000));
    std::atomic<int> changes{0};
    std::atomic<size_t> allocations{0};
    std::atomic<uint64_t> blocks{0};
    std::thread player([&] {
        std::vector<int16_t> sound(2 * kBlock, 9000);
        const size_t before = AllocationCount();
        for (uint64_t block = 0; changes < kChanges; blocks = ++block) {
            if (block % 50 == 49) stream.Flush();
            const auto time = block % 3 == 0 ? std::optional<uint64_t>(block * 21333333)
                                             : std::optional<uint64_t>();
            stream.Process(sound.data(), kBlock, time);
        }
        allocations = AllocationCount() - before;
    });
    for (int i = 0; i < kChanges; ++i) {
        AMPEffectSettings settings;
        settings.reverb = i / 2 % 10;
        settings.bass = i % 100;
        settings.compressor = i % 5;
        settings.fade = i % 2;
        EXPECT_EQ(stream.SetEffects(&settings), S_OK);
        EXPECT_EQ(stream.SetSampleRate(44100 + i), S_OK);
        EXPECT_EQ(stream.SetInPoint(i), S_OK);
        EXPECT_EQ(stream.SetOutPoint(10000 + i), S_OK);
        EXPECT_EQ(stream.SetPosition(i), S_OK);
        // Some changes are played, others are superseded.
        const uint64_t seen = blocks;
        while (i % 4 == 0 && blocks == seen)
            std::this_thread::yield();
        ++changes;
    }
    player.join();
    EXPECT_EQ(allocations, 0u);

    AMPEffectSettings last;
    last.normalize = 3;
    last.peak = 0.5f;
    ASSERT_EQ(stream.SetEffects(&last), S_OK);
    std::vector<int16_t> sound = {1630, -1630};
    stream.Process(sound.data(), 1, {});
    EXPECT_EQ(sound, (std::vector<int16_t>{1200, -1200}));  // 12000 / 16300 of it
}

}  // namespace
}  // namespace tarn
