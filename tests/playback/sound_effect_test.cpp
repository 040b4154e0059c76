#include "playback/sound_effect_stream.h"

#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <thread>
#include <vector>

#include "playback/sound_effect_element.h"
#include "support/allocation_count.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Sound = std::vector<int16_t>;
using Time = std::optional<uint64_t>;  // ns

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 1024;  // of AAC
constexpr uint64_t kSecond = GST_SECOND;

AMPEffectChainPtr MakeChain(const AMPEffectSettings& settings, uint32_t rate = kRate) {
    AMPEffectChainPtr chain(AMPEffectCreate(rate));
    EXPECT_TRUE(chain && AMPEffectSetParameters(chain.get(), settings));
    return chain;
}

Sound Treat(const AMPEffectChainPtr& chain, Sound sound, uint32_t position = 0) {
    AMPEffectProcess(chain.get(), sound.data(), sound.data(),
                     static_cast<uint32_t>(sound.size() / 2), position);
    return sound;
}

std::string Caps(uint32_t rate, const char* channels = "2") {
    return "audio/x-raw,format=S16LE,layout=interleaved,channels=" + std::string(channels) +
           ",rate=" + std::to_string(rate);
}

// The filter between two pads of the test's own.
class SoundEffectTest : public ::testing::Test {
protected:
    SoundEffectTest() {
        EXPECT_TRUE(StartGst());
        m_element = MakeSoundEffect();
        m_harness = gst_harness_new_with_element(m_element.get(), "sink", "src");
        m_effect = QuerySoundEffect(m_element.get());
    }
    ~SoundEffectTest() override { gst_harness_teardown(m_harness); }

    void SetCaps(uint32_t rate) { gst_harness_set_src_caps_str(m_harness, Caps(rate).c_str()); }
    void Send(GstEvent* event) { EXPECT_TRUE(gst_harness_push_event(m_harness, event)); }
    // The clip's time `time` has the time stamp `start`.
    void SendSegment(uint64_t start, uint64_t time) {
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        segment.start = start;
        segment.time = time;
        Send(gst_event_new_segment(&segment));
    }
    void SendFlush() {
        Send(gst_event_new_flush_start());
        Send(gst_event_new_flush_stop(TRUE));
    }
    static GstBuffer* MakeBuffer(const Sound& sound, Time time) {
        const size_t size = sound.size() * sizeof(int16_t);
        GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
        gst_buffer_fill(buffer, 0, sound.data(), size);
        if (time) GST_BUFFER_PTS(buffer) = *time;
        return buffer;
    }
    Sound Push(const Sound& sound, Time time = {}) {
        GstBuffer* const buffer = gst_harness_push_and_pull(m_harness, MakeBuffer(sound, time));
        if (!buffer) return {};
        Sound result(gst_buffer_get_size(buffer) / sizeof(int16_t));
        if (!result.empty())
            gst_buffer_extract(buffer, 0, result.data(), result.size() * sizeof(int16_t));
        gst_buffer_unref(buffer);
        return result;
    }
    void SetEffects(const AMPEffectSettings& settings) {
        EXPECT_EQ(m_effect->SetEffects(&settings), S_OK);
    }

    GstElementPtr m_element;
    GstHarness* m_harness = nullptr;
    ISoundEffect* m_effect = nullptr;
};

// A save gives the chain one AAC frame at a time, with the milliseconds since the start cut off. A
// decoder counts on from its first time stamp, so that two roundings meet. The segment begins late,
// and some buffers bear no time.
TEST_F(SoundEffectTest, GivesTheSamplesOfASave) {
    constexpr uint32_t kOther = 44100;
    SetCaps(kOther);
    ASSERT_EQ(m_effect->SetOutPoint(9000), S_OK);
    for (const uint8_t bypass : {uint8_t{0}, uint8_t{1}}) {
        const AMPEffectSettings settings = {bypass, -40, 70, 7, 4, 1, 1, 0.7f};
        SendFlush();
        SendSegment(3 * kSecond, 0);
        SetEffects(settings);
        const AMPEffectChainPtr save = MakeChain(settings, kOther);
        AMPEffectSetRange(save.get(), 0, 9000);
        const uint64_t base = 3 * kSecond + kBlock * kSecond / kOther;
        for (uint64_t block = 1; block <= 10 * kOther / kBlock; ++block) {
            const Sound sound = Noise(kBlock, static_cast<unsigned>(block));
            const auto position = static_cast<uint32_t>(block * kBlock * 1000 / kOther);
            Time stamp = base + (block - 1) * kBlock * kSecond / kOther;
            if (block % 3 == 2) stamp.reset();
            ASSERT_TRUE(Push(sound, stamp) == Treat(save, sound, position)) << block;
        }
    }
}

TEST_F(SoundEffectTest, ForgetsTheSoundWhereTheStreamJumps) {
    const Sound input = Noise(kRate / 10);
    const uint64_t step = kSecond / 10;
    SetCaps(kRate);
    SetEffects({.reverb = 8});
    const auto new_segment = [this](uint64_t time) { return [=, this] { SendSegment(0, time); }; };
    const struct {
        const char* name;
        std::function<void()> act;
        uint64_t time;  // of the second block, in the new segment if there is one
        bool forgets;
    } cases[] = {
        {"goes on", [] {}, step, false},
        {"a little late", [] {}, step + 30 * GST_MSECOND, false},
        {"ahead", [] {}, step + 50 * GST_MSECOND, true},
        {"back", [] {}, 0, true},
        {"new segment, same place", new_segment(step), 0, false},
        {"new segment, other place", new_segment(kSecond), step, true},
        {"flush to the same place", [this] { SendFlush(), SendSegment(0, 0); }, step, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SendFlush();
        SendSegment(0, 0);
        AMPEffectChainPtr chain = MakeChain({.reverb = 8});
        EXPECT_TRUE(Push(input, 0) == Treat(chain, input));
        if (c.forgets) chain = MakeChain({.reverb = 8});
        c.act();
        EXPECT_TRUE(Push(input, c.time) == Treat(chain, input));
    }
}

TEST_F(SoundEffectTest, ChangesAreHeardInTheNextBuffer) {
    SetCaps(kRate);
    const AMPEffectChainPtr chain = MakeChain({});
    for (int32_t i = 0; i < 40; ++i) {
        const AMPEffectSettings settings = {
            .bass = i - 20, .reverb = i / 3 % 10, .compressor = i / 2 % 5, .normalize = i / 4 % 4};
        SetEffects({.reverb = 9});  // never heard
        SetEffects(settings);
        EXPECT_TRUE(AMPEffectSetParameters(chain.get(), {.reverb = 9}));
        EXPECT_TRUE(AMPEffectSetParameters(chain.get(), settings));
        const auto n = static_cast<unsigned>(i);
        const Sound input = Noise(n % 7 == 3 ? 0 : 1 + n * 37, n);
        ASSERT_TRUE(Push(input) == Treat(chain, input)) << i;
    }
}

TEST_F(SoundEffectTest, TheRateOfTheStreamWins) {
    const Sound input = Noise(5000);
    ASSERT_EQ(m_effect->SetSampleRate(kRate), S_OK);
    SetCaps(44100);
    SetEffects({.reverb = 2});
    EXPECT_TRUE(Push(input) == Treat(MakeChain({.reverb = 2}, 44100), input));
    SetCaps(22050);
    EXPECT_TRUE(Push(input) == Treat(MakeChain({.reverb = 2}, 22050), input));

    for (const int32_t rate : {0, -1, 999, 384001})
        EXPECT_EQ(m_effect->SetSampleRate(rate), E_INVALIDARG) << rate;
    for (const std::string& caps : {Caps(500), Caps(2000000), Caps(kRate, "1")}) {
        SCOPED_TRACE(caps);
        gst_harness_set_src_caps_str(m_harness, caps.c_str());
        EXPECT_EQ(gst_harness_push(m_harness, MakeBuffer(input, {})), GST_FLOW_NOT_NEGOTIATED);
    }
}

TEST(SoundEffectStream, HearsTheMusicWhileItIsBypassed) {
    AMPEffectSettings settings = {.bass = 60, .reverb = 8, .compressor = 2};
    SoundEffectStream stream;
    ASSERT_TRUE(stream.SetFormat(kRate));
    const AMPEffectChainPtr save = MakeChain(settings);
    const auto step = [](const Sound& sound, size_t at) {
        return std::abs(sound[at] - sound[at - 2]);
    };
    constexpr size_t kSwitch = kRate / 200;  // frames
    Sound plain, treated, heard;
    for (uint32_t block = 0; block < 60; ++block) {
        Sound sound(size_t{2} * kBlock);
        for (size_t i = 0; i < sound.size(); ++i) {
            const auto frame = static_cast<double>(block * kBlock + i / 2);
            sound[i] = static_cast<int16_t>(9000 * std::sin(frame * 0.0576 + i % 2) +
                                            4000 * std::sin(frame * 0.0231));
        }
        settings.bypass = block / 5 % 2;
        ASSERT_EQ(stream.SetEffects(&settings), S_OK);
        plain.insert(plain.end(), sound.begin(), sound.end());
        const Sound expected = Treat(save, sound);
        treated.insert(treated.end(), expected.begin(), expected.end());
        stream.Process(sound.data(), kBlock, {});
        const auto after = static_cast<ptrdiff_t>(block % 5 == 0 && block > 0 ? 2 * kSwitch : 0);
        EXPECT_TRUE(std::equal(sound.begin() + after, sound.end(),
                               (settings.bypass ? plain : treated).end() - 2 * kBlock + after))
            << block;
        heard.insert(heard.end(), sound.begin(), sound.end());
    }
    int most = 0, most_heard = 0;
    for (size_t at = 2; at < heard.size(); ++at) {
        most = std::max({most, step(plain, at), step(treated, at)});
        most_heard = std::max(most_heard, step(heard, at));
    }
    EXPECT_LE(most_heard, most);
}

TEST(SoundEffectStream, TellsThePeaksOfTheLastSecond) {
    SoundEffectStream stream;
    ASSERT_TRUE(stream.SetFormat(kRate));
    const auto play = [&](uint32_t frames, int16_t left, int16_t right) {
        Sound sound(size_t{2} * frames);
        for (size_t i = 0; i < sound.size(); ++i)
            sound[i] = i % 2 == 0 ? left : right;
        stream.Process(sound.data(), frames, {});
    };
    play(kRate / 2, 0, 0);
    play(3, -32768, 8000);
    play(2, 32767, 0);
    const SoundLevels levels = stream.GetLevels();
    EXPECT_EQ(levels.before[0].peak, 1.0f);
    EXPECT_EQ(levels.before[0].clipped, 5u);
    EXPECT_EQ(levels.before[1].peak, 8000 / 32768.0f);
    EXPECT_EQ(levels.before[1].clipped, 0u);
    EXPECT_EQ(levels.after[0].peak, 32766 / 32768.0f);
    EXPECT_EQ(levels.after[0].clipped, 5u);
    EXPECT_EQ(levels.after[1].peak, 8000 / 32768.0f);
    play(kRate - 100, 100, 100);
    EXPECT_EQ(stream.GetLevels().before[0].clipped, 5u) << "still in that second";
    play(kRate / 20 + 100, 100, 100);
    EXPECT_EQ(stream.GetLevels().before[0].peak, 100 / 32768.0f) << "forgotten";
    EXPECT_EQ(stream.GetLevels().after[0].clipped, 0u);
    play(1, 32767, 0);
    stream.Flush();
    EXPECT_EQ(stream.GetLevels().before[0].peak, 0) << "another place";
}

// One thread turns every knob while the other plays. What was set last is what is heard.
TEST(SoundEffectStream, IsControlledWhileItPlays) {
    constexpr int kChanges = 400;
    SoundEffectStream stream;
    ASSERT_TRUE(stream.SetFormat(48000));
    std::atomic<int> changes{0};
    std::atomic<size_t> allocations{0};
    std::atomic<uint64_t> blocks{0};
    std::thread player([&] {
        Sound sound(2 * kBlock, 9000);
        const size_t before = AllocationCount();
        for (uint64_t block = 0; changes < kChanges; blocks = ++block) {
            if (block % 50 == 49) stream.Flush();
            stream.Process(sound.data(), kBlock, block % 3 == 0 ? Time(block * 21333333) : Time());
        }
        allocations = AllocationCount() - before;
    });
    for (int i = 0; i < kChanges; ++i) {
        const AMPEffectSettings settings = {.bypass = i % 3 == 0,
                                            .bass = i % 100,
                                            .reverb = i / 2 % 10,
                                            .compressor = i % 5,
                                            .fade = static_cast<uint8_t>(i % 2)};
        EXPECT_EQ(stream.SetEffects(&settings), S_OK);
        EXPECT_EQ(stream.SetSampleRate(44100 + i), S_OK);
        EXPECT_EQ(stream.SetInPoint(i), S_OK);
        EXPECT_EQ(stream.SetOutPoint(10000 + i), S_OK);
        EXPECT_EQ(stream.SetPosition(i), S_OK);
        EXPECT_LE(stream.GetLevels().before[1].peak, 1.0f);
        // Some changes are played, others are superseded.
        const uint64_t seen = blocks;
        while (i % 4 == 0 && blocks == seen)
            std::this_thread::yield();
        ++changes;
    }
    player.join();
    EXPECT_EQ(allocations, 0u);

    const AMPEffectSettings last = {.normalize = 3, .peak = 0.5f};
    ASSERT_EQ(stream.SetEffects(&last), S_OK);
    stream.Flush();
    Sound sound = {1630, -1630};
    stream.Process(sound.data(), 1, {});
    EXPECT_EQ(sound, (Sound{1200, -1200}));  // 12000 / 16300 of it
}

}  // namespace
}  // namespace tarn
