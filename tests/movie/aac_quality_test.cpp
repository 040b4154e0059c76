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

// Plucked notes with harmonics, changing in pitch and place.
Pcm Music(int32_t rate, size_t frames) {
    Pcm pcm;
    for (size_t i = 0; i < frames; ++i) {
        const auto note = static_cast<double>(i / (static_cast<size_t>(rate) / 4));
        const double t = static_cast<double>(i) / rate - note / 4;
        const double pitch = 82.4 * std::pow(2.0, std::fmod(note * 7, 36) / 12);
        const double pan = 0.2 + 0.15 * std::fmod(note, 5);
        double v = 0;
        for (int h = 1; h <= 20 && pitch * h < 14000; ++h)
            v += 0.12 / h * std::exp(-t * (3 + h)) * std::sin(kTau * pitch * h * t);
        pcm.push_back(Level(v * (1 - pan)));
        pcm.push_back(Level(v * pan));
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

// Signal against error in decibels, summed over one band of short transforms of one channel.
double BandSnr(const Pcm& source, const Pcm& error, size_t channel, int32_t rate, double low,
               double high) {
    constexpr size_t kSize = 512;
    double signal_power = 0, error_power = 1;
    for (double f = low; f < high; f += static_cast<double>(rate) / kSize) {
        double wave[2][kSize];
        for (size_t i = 0; i < kSize; ++i) {
            const double n = static_cast<double>(i);
            const double window = 0.5 - 0.5 * std::cos(kTau * n / kSize);
            wave[0][i] = window * std::cos(kTau * f * n / rate);
            wave[1][i] = window * std::sin(kTau * f * n / rate);
        }
        for (size_t from = 0; from + kSize <= source.size() / 2; from += kSize)
            for (const auto& part : wave) {
                double s = 0, e = 0;
                for (size_t i = 0; i < kSize; ++i) {
                    const size_t at = (from + i) * 2 + channel;
                    s += part[i] * source[at];
                    e += part[i] * error[at];
                }
                signal_power += s * s;
                error_power += e * e;
            }
    }
    return 10 * std::log10(signal_power / error_power);
}

// Mean square of the error within 16 samples of where blocks meet, over that of all samples.
double ErrorAtJoins(const Pcm& error) {
    double joins = 0, all = 0, joins_count = 0;
    for (size_t i = 0; i < error.size(); ++i) {
        const double square = static_cast<double>(error[i]) * error[i];
        all += square;
        if ((i / 2 + 16) % AACEncoder::kBlockFrames >= 32) continue;
        joins += square;
        ++joins_count;
    }
    return (joins / joins_count) / (all / static_cast<double>(error.size()));
}

TEST(AacQuality, SignalToNoisePerBandAtTheUsualRates) {
    const struct {
        const char* name;
        int32_t rate, bit_rate;
        bool music;
        double least[4];  // decibels up to 500 Hz, 2, 6 and 14 kHz: measured less 3
    } cases[] = {
        {"sweep 48 kHz", 48000, 128000, false, {49, 44, 38, 34}},
        {"sweep 44.1 kHz", 44100, 128000, false, {61, 44, 39, 31}},
        {"music 48 kHz", 48000, 128000, true, {27, 16, 9, 3}},
        {"music 48 kHz, 256 kbit/s", 48000, 256000, true, {30, 25, 19, 13}},
    };
    const double edges[] = {40, 500, 2000, 6000, 14000};
    const size_t frames = 100 * AACEncoder::kBlockFrames;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Pcm pcm = c.music ? Music(c.rate, frames) : Sweep(c.rate, frames);
        const Coded coded = Encode(EncoderParams(c.rate, 2, c.bit_rate), pcm);
        const Pcm back = Decode(coded.config, coded.frames);
        ASSERT_EQ(back.size(), pcm.size() + 2 * coded.delay);

        Pcm error(pcm.size());
        for (size_t i = 0; i < pcm.size(); ++i)
            error[i] = static_cast<int16_t>(back[i + 2 * coded.delay] - pcm[i]);
        EXPECT_LT(ErrorAtJoins(error), 1.5) << "a click where blocks meet";
        for (size_t channel = 0; channel < 2; ++channel)
            for (int band = 0; band < 4; ++band) {
                const double snr =
                    BandSnr(pcm, error, channel, c.rate, edges[band], edges[band + 1]);
                EXPECT_GE(snr, c.least[band]) << "channel " << channel << " band " << band;
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
