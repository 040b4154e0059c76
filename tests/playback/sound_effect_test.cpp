#include "playback/sound_effect.h"

#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "effects/effect_chain.h"
#include "playback/sound_effect_element.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Sound = std::vector<int16_t>;
using Time = std::optional<uint64_t>;  // ns

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 1024;  // of AAC
constexpr uint64_t kSecond = GST_SECOND;

AMPEffectSettings Reverb(int32_t preset) {
    AMPEffectSettings s;
    s.reverb = preset;
    return s;
}

AMPEffectSettings Fade() {
    AMPEffectSettings s;
    s.fade = 1;
    return s;
}

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
// decoder counts on from its first time stamp, so that two roundings meet.
TEST_F(SoundEffectTest, GivesTheSamplesOfASave) {
    AMPEffectSettings everything = Fade();
    everything.treble = -40;
    everything.bass = 70;
    everything.reverb = 7;
    everything.compressor = 4;
    everything.normalize = 1;
    everything.peak = 0.7f;
    AMPEffectSettings soft = Fade();
    soft.compressor = 2;
    AMPEffectSettings bypass = everything;
    bypass.bypass = 1;
    for (const uint32_t rate : {kRate, 44100u}) {
        SetCaps(rate);
        ASSERT_EQ(m_effect->SetOutPoint(9000), S_OK);
        for (const AMPEffectSettings& settings : {everything, soft, AMPEffectSettings(), bypass}) {
            SendFlush();
            SendSegment(0, 0);
            SetEffects(settings);
            const AMPEffectChainPtr save = MakeChain(settings, rate);
            AMPEffectSetRange(save.get(), 0, 9000);
            const uint64_t base = kBlock * kSecond / rate;
            for (uint64_t block = 1; block <= 10 * rate / kBlock; ++block) {
                const Sound sound = Noise(kBlock, static_cast<unsigned>(block));
                const auto position = static_cast<uint32_t>(block * kBlock * 1000 / rate);
                ASSERT_TRUE(Push(sound, base + (block - 1) * kBlock * kSecond / rate) ==
                            Treat(save, sound, position))
                    << rate << " Hz, block " << block;
            }
        }
    }
}

TEST_F(SoundEffectTest, ForgetsTheSoundWhereTheStreamJumps) {
    const Sound input = Noise(kRate / 10);
    const uint64_t step = kSecond / 10;
    SetCaps(kRate);
    SetEffects(Reverb(8));
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
        {"pause",
         [this] {
             gst_element_set_state(m_element.get(), GST_STATE_PAUSED);
             gst_element_set_state(m_element.get(), GST_STATE_PLAYING);
         },
         step, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SendFlush();
        SendSegment(0, 0);
        AMPEffectChainPtr chain = MakeChain(Reverb(8));
        EXPECT_TRUE(Push(input, 0) == Treat(chain, input));
        if (c.forgets) chain = MakeChain(Reverb(8));
        c.act();
        EXPECT_TRUE(Push(input, c.time) == Treat(chain, input));
    }
}

TEST_F(SoundEffectTest, FadesWhereThePlayheadIs) {
    constexpr uint32_t kSize = 777, kFirst = 12000;  // ms
    const Sound input = Noise(kSize);
    SetCaps(kRate);
    SetEffects(Fade());
    ASSERT_EQ(m_effect->SetInPoint(10000), S_OK);
    ASSERT_EQ(m_effect->SetOutPoint(30000), S_OK);
    const AMPEffectChainPtr chain = MakeChain(Fade());
    AMPEffectSetRange(chain.get(), 10000, 30000);
    const Sound first = Treat(chain, input, kFirst);
    const Sound second = Treat(chain, input, kFirst + kSize * 1000 / kRate);
    ASSERT_FALSE(first == second);
    const Time untimed;
    const struct {
        const char* name;
        uint64_t start, time;  // s, of the segment
        int32_t told;          // ms
        Time stamp;            // ns
    } cases[] = {
        {"by its time stamp", 12, 12, 5000, 12 * kSecond},
        {"by its time in the clip", 3, 10, 5000, 5 * kSecond},
        {"by what the player says", 0, 0, kFirst, untimed},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SendFlush();
        SendSegment(c.start * kSecond, c.time * kSecond);
        ASSERT_EQ(m_effect->SetPosition(c.told), S_OK);
        EXPECT_TRUE(Push(input, c.stamp) == first);
        EXPECT_TRUE(Push(input) == second) << "goes on by its length";
    }
}

TEST_F(SoundEffectTest, ChangesAreHeardInTheNextBuffer) {
    SetCaps(kRate);
    EXPECT_EQ(gst_harness_query_latency(m_harness), 0u);
    const AMPEffectChainPtr chain = MakeChain({});
    AMPEffectSettings settings;
    for (unsigned i = 0; i < 40; ++i) {
        settings.bass = static_cast<int32_t>(i) - 20;
        settings.reverb = static_cast<int32_t>(i / 3 % 10);
        settings.compressor = static_cast<int32_t>(i / 2 % 5);
        settings.normalize = static_cast<int32_t>(i / 4 % 4);
        SetEffects(Reverb(9));  // never heard
        SetEffects(settings);
        EXPECT_TRUE(AMPEffectSetParameters(chain.get(), Reverb(9)));
        EXPECT_TRUE(AMPEffectSetParameters(chain.get(), settings));
        const Sound input = Noise(i % 7 == 3 ? 0 : 1 + i * 37, i);
        ASSERT_TRUE(Push(input) == Treat(chain, input)) << i;
    }
    // A save would take the level from the peak that is known by then.
    settings = {};
    settings.normalize = 1;
    SetEffects(settings);
    settings.peak = 0.25f;
    SetEffects(settings);
    EXPECT_EQ(Push({1000, -1000}), Treat(MakeChain(settings), {1000, -1000}));
}

TEST_F(SoundEffectTest, TheRateOfTheStreamWins) {
    const Sound input = Noise(5000);
    ASSERT_EQ(m_effect->SetSampleRate(kRate), S_OK);
    SetEffects(Reverb(9));
    SetCaps(44100);
    EXPECT_TRUE(Push(input) == Treat(MakeChain(Reverb(9), 44100), input));
    SetEffects(Reverb(2));
    EXPECT_TRUE(Push(input) == Treat(MakeChain(Reverb(2), 44100), input));
    SetCaps(22050);
    EXPECT_TRUE(Push(input) == Treat(MakeChain(Reverb(2), 22050), input));

    for (const std::string& caps : {Caps(500), Caps(2000000), Caps(kRate, "1")}) {
        SCOPED_TRACE(caps);
        const GstElementPtr element = MakeSoundEffect();
        GstHarness* const harness = gst_harness_new_with_element(element.get(), "sink", "src");
        gst_harness_set_src_caps_str(harness, caps.c_str());
        EXPECT_EQ(gst_harness_push(harness, MakeBuffer(input, {})), GST_FLOW_NOT_NEGOTIATED);
        gst_harness_teardown(harness);
    }
}

TEST_F(SoundEffectTest, RefusesWhatMakesNoSense) {
    for (const int32_t rate : {0, -1, 999, 1000001})
        EXPECT_EQ(m_effect->SetSampleRate(rate), E_INVALIDARG) << rate;
    EXPECT_EQ(m_effect->SetEffects(nullptr), E_POINTER);
    EXPECT_EQ(m_effect->SetInPoint(-1), E_INVALIDARG);
    EXPECT_EQ(m_effect->SetOutPoint(-1), E_INVALIDARG);
    EXPECT_EQ(m_effect->SetPosition(-1), E_INVALIDARG);
    EXPECT_EQ(QuerySoundEffect(nullptr), nullptr);
    EXPECT_EQ(QuerySoundEffect(MakeBin("bin").get()), nullptr);
}

}  // namespace
}  // namespace tarn
