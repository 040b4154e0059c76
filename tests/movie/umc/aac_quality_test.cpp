// What a pass through the encoder does to the sound: when it comes out, and how much of it is lost.
#include <cmath>
#include <numbers>

#include "codec_rig.h"

namespace tarn::UMC {
namespace {

constexpr double kTau = 2 * std::numbers::pi;

int16_t Level(double value) {
    return static_cast<int16_t>(std::lround(value * 32767));
}

Pcm Sweep(int32_t rate, size_t frames) {
    Pcm pcm;
    double phase = 0;
    for (size_t i = 0; i < frames; ++i) {
        const double at = static_cast<double>(i) / static_cast<double>(frames);
        phase += kTau * 20 * std::pow(750.0, at) / rate;               // 20 Hz to 15 kHz
        const double edge = std::min(1.0, 20 * std::min(at, 1 - at));  // no jump at either end
        pcm.push_back(Level(0.5 * edge * std::sin(phase)));
        pcm.push_back(Level(0.4 * edge * std::sin(phase)));
    }
    return pcm;
}

Pcm Clicks(size_t frames, size_t channels) {
    Pcm pcm(frames * channels);
    for (size_t i = 1700; i < frames; i += 3001)
        for (size_t c = 0; c < channels; ++c)
            pcm[i * channels + c] = 20000;
    return pcm;
}

TEST(AacQuality, ASweepComesBackInBothChannels) {
    const struct {
        int32_t rate, bit_rate;
        double largest, rms;  // measured and a tenth more, of 32767
    } cases[] = {{48000, 128000, 530, 70}, {44100, 128000, 1275, 80}, {48000, 256000, 54, 9}};
    const size_t frames = 100 * AACEncoder::kBlockFrames;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz, " << c.bit_rate << " bit/s");
        const Pcm pcm = Sweep(c.rate, frames);
        const Coded coded = Encode(EncoderParams(c.rate, 2, c.bit_rate), pcm);
        const Pcm back = Decode(coded.config, coded.frames);
        ASSERT_EQ(back.size(), pcm.size() + 2 * coded.delay);
        double largest[2] = {}, squares[2] = {};
        for (size_t i = 0; i < pcm.size(); ++i) {
            const double error = std::abs(back[i + 2 * coded.delay] - pcm[i]);
            largest[i % 2] = std::max(largest[i % 2], error);
            squares[i % 2] += error * error;
        }
        for (int channel = 0; channel < 2; ++channel) {
            EXPECT_LE(largest[channel], c.largest) << "channel " << channel;
            EXPECT_LE(std::sqrt(squares[channel] / frames), c.rms) << "channel " << channel;
        }
    }
}

// A click must come out at its own sample, whatever the rate, and the last ones must come out at
// all.
TEST(AacQuality, DelayIsExactAndTheEndComplete) {
    const struct {
        int32_t rate, channels, bit_rate;
    } cases[] = {{8000, 2, 48000},   {11025, 1, 32000},  {12000, 2, 64000},  {16000, 2, 64000},
                 {22050, 2, 96000},  {24000, 2, 96000},  {32000, 2, 96000},  {44100, 2, 128000},
                 {48000, 2, 128000}, {48000, 1, 64000},  {48000, 6, 384000}, {64000, 2, 192000},
                 {88200, 2, 256000}, {96000, 2, 256000}, {48000, 3, 192000}, {48000, 5, 320000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz, " << c.channels << " channels");
        const size_t channels = static_cast<size_t>(c.channels);
        const Pcm pcm = Clicks(20 * AACEncoder::kBlockFrames, channels);
        const Coded coded = Encode(EncoderParams(c.rate, c.channels, c.bit_rate), pcm);
        EXPECT_EQ(coded.delay, 2048u);
        EXPECT_EQ(coded.frames.size(), 22u);
        EXPECT_EQ(coded.drained, 2u);
        for (const Frame& frame : coded.frames) {
            EXPECT_GT(frame.size(), 0u);
            EXPECT_LE(frame.size(), coded.info.suggestedOutputSize);
        }
        AudioStreamInfo info;
        const Pcm back = Decode(coded.config, coded.frames, &info);
        EXPECT_EQ(info.sampleRate, c.rate);
        EXPECT_EQ(info.channels, c.channels);
        EXPECT_EQ(info.profile, kAacLc);
        ASSERT_EQ(back.size(), pcm.size() + coded.delay * channels);
        const size_t low_frequencies = channels == 6 ? 3 : channels;  // a channel of bass alone
        for (size_t i = 1700 * channels; i < pcm.size(); ++i) {
            if (pcm[i] == 0 || i % channels == low_frequencies) continue;
            const size_t there = i + coded.delay * channels;
            EXPECT_GT(back[there], 8000);
            EXPECT_GT(back[there], back[there - channels]);
            EXPECT_GT(back[there], back[there + channels]);
        }
    }
}

}  // namespace
}  // namespace tarn::UMC
