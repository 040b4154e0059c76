#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numbers>
#include <span>
#include <string>
#include <vector>

#include "movie/umc/aac_config.h"
#include "movie/umc/aac_decoder.h"
#include "movie/umc/aac_encoder.h"
#include "support/wave_builder.h"

namespace tarn::UMC {
namespace {

using Pcm = std::vector<int16_t>;
using Frame = std::vector<uint8_t>;

struct Coded {
    std::vector<Frame> frames;
    size_t drained = 0;  // how many of them came from the drain
    uint32_t delay = 0;
    Frame config;
};

AACEncoderParams EncoderParams(int32_t rate, int32_t channels, int32_t bit_rate = 128000) {
    AACEncoderParams params;
    params.outputFormat = 2;
    params.info.bitRate = bit_rate;
    params.info.channels = channels;
    params.info.sampleRate = rate;
    params.info.bitsPerSample = 16;
    return params;
}

void SetBytes(MediaData* data, const void* bytes, size_t size) {
    if (size == 0) return;
    auto* first = const_cast<uint8_t*>(static_cast<const uint8_t*>(bytes));
    ASSERT_EQ(data->SetBufferPointer(first, static_cast<uint32_t>(size)), kStatusOk);
    ASSERT_EQ(data->SetDataSize(static_cast<uint32_t>(size)), kStatusOk);
}

Coded Encode(AACEncoderParams params, const Pcm& pcm) {
    Coded coded;
    AACEncoder encoder;
    EXPECT_EQ(encoder.Init(&params), kStatusOk);
    EXPECT_EQ(encoder.GetInfo(&params), kStatusOk);
    coded.delay = encoder.GetDelay();
    const auto config = encoder.GetDecoderSpecificInfo();
    coded.config.assign(config.begin(), config.end());

    AudioData in, out;
    EXPECT_EQ(out.Alloc(params.suggestedOutputSize), kStatusOk);
    SetBytes(&in, pcm.data(), pcm.size() * 2);
    const auto keep = [&] {
        const uint8_t* first = out.GetDataPointer();
        coded.frames.emplace_back(first, first + out.GetDataSize());
        out.Reset();
    };
    while (in.GetDataSize() > 0 && encoder.GetFrame(&in, &out) == kStatusOk)
        keep();
    EXPECT_EQ(in.GetDataSize(), 0u);
    for (; encoder.Drain(&out) == kStatusOk; ++coded.drained)
        keep();
    return coded;
}

// A decoder for this configuration; an empty one makes it expect ADTS headers.
Status Configure(AACDecoder* decoder, const Frame& config, AACDecoderParams* params) {
    MediaData data;
    SetBytes(&data, config.data(), config.size());
    params->data = config.empty() ? nullptr : &data;
    params->info.streamType = config.empty() ? 0 : kStreamAacConfigured;
    const Status status = decoder->Init(params);
    params->data = nullptr;
    return status;
}

// One frame, its sound appended.
Status DecodeOne(AACDecoder* decoder, std::span<const uint8_t> frame, Pcm* pcm) {
    AACDecoderParams info;
    if (decoder->GetInfo(&info) < 0) return kStatusNoData;
    MediaData in, out;
    SetBytes(&in, frame.data(), frame.size());
    EXPECT_EQ(out.Alloc(info.suggestedOutputSize), kStatusOk);
    const Status status = decoder->GetFrame(&in, &out);
    if (status != kStatusOk) return status;
    const size_t at = pcm->size();
    pcm->resize(at + out.GetDataSize() / 2);
    std::memcpy(pcm->data() + at, out.GetDataPointer(), out.GetDataSize());
    return status;
}

Pcm Decode(const Frame& config, const std::vector<Frame>& frames, AudioStreamInfo* info = nullptr) {
    AACDecoder decoder;
    AACDecoderParams params;
    Pcm pcm;
    EXPECT_EQ(Configure(&decoder, config, &params), kStatusOk);
    for (const Frame& frame : frames)
        EXPECT_EQ(DecodeOne(&decoder, frame, &pcm), kStatusOk);
    EXPECT_EQ(decoder.GetInfo(&params), kStatusOk);
    if (info) *info = params.info;
    return pcm;
}

Frame ReadData(const std::string& name) {
    std::ifstream in(std::string(TARN_TEST_DATA) + "/aac/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The frames without their headers of 7 bytes, as a movie file keeps them.
std::vector<Frame> SplitAdts(const std::string& name) {
    const Frame stream = ReadData(name);
    std::vector<Frame> frames;
    std::span<const uint8_t> rest(stream);
    while (const uint32_t length = AdtsFrameLength(rest)) {
        frames.emplace_back(rest.begin() + 7, rest.begin() + length);
        rest = rest.subspan(length);
    }
    return frames;
}

const Frame kStereo48k = {0x11, 0x90};

// The .pcm files were decoded from the .aac files by another program of the same library.
TEST(AacDecoder, GivesTheReferenceWithinOneUnit) {
    // facts: channels, rate, mask
    const std::tuple<const char*, Frame, std::vector<int32_t>> cases[] = {
        {"stereo_48k", {0x11, 0x90}, {2, 48000, 0x3}},
        {"stereo_44k", {0x12, 0x10}, {2, 44100, 0x3}},
        {"mono_48k", {0x11, 0x88}, {1, 48000, 0x4}},
        {"surround_48k", {0x11, 0xb0}, {6, 48000, 0x3f}},
        {"loud_32k", {0x12, 0x90}, {2, 32000, 0x3}},  // clips at both ends
    };
    for (const auto& [name, config, facts] : cases) {
        SCOPED_TRACE(name);
        AudioStreamInfo info;
        const Pcm pcm = Decode(config, SplitAdts(name + std::string(".aac")), &info);
        EXPECT_EQ((std::vector{info.channels, info.sampleRate, info.channelMask}), facts);
        EXPECT_EQ(info.profile, kAacLc);
        EXPECT_EQ(info.bitsPerSample, 16);

        const Frame bytes = ReadData(name + std::string(".pcm"));
        ASSERT_EQ(pcm.size() * 2, bytes.size());
        Pcm reference(pcm.size());
        std::memcpy(reference.data(), bytes.data(), bytes.size());
        for (size_t i = 0; i < pcm.size(); ++i)
            ASSERT_LE(std::abs(pcm[i] - reference[i]), 1) << i;
    }
}

TEST(AacDecoder, ReportsBandReplicationAndParametricStereo) {
    const Frame stereo = Encode(EncoderParams(24000, 2, 64000), Noise(2048)).frames[1];
    const Frame mono = Encode(EncoderParams(24000, 1, 48000), Noise(2048)).frames[1];
    const Frame hidden = ReadData("replication_24k.frame");
    // told: before the first frame
    const std::tuple<const char*, Frame, Frame, int32_t, int32_t, int32_t, bool> cases[] = {
        {"told in front", {0x2b, 0x11, 0x88, 0x00}, stereo, 0, kAacSbr, 2, true},
        {"told behind", {0x13, 0x10, 0x56, 0xe5, 0x98}, stereo, 0, kAacSbr, 2, true},
        {"found in the frames", {0x13, 0x10}, hidden, 0, kAacSbr, 2, false},
        {"parametric stereo, unwanted", {0xeb, 0x09, 0x88, 0x00}, mono, 0, kAacPs, 1, true},
        {"parametric stereo, wanted", {0xeb, 0x09, 0x88, 0x00}, mono, 1, kAacPs, 2, true},
    };
    for (const auto& [name, config, frame, ps_support, profile, channels, told] : cases) {
        SCOPED_TRACE(name);
        AACDecoder decoder;
        AACDecoderParams params;
        params.psSupport = ps_support;
        ASSERT_EQ(Configure(&decoder, config, &params), kStatusOk);
        ASSERT_EQ(decoder.GetInfo(&params), kStatusOk);
        EXPECT_EQ(params.info.sampleRate, told ? 48000 : 24000);
        EXPECT_EQ(params.info.profile, told ? profile : kAacLc);

        Pcm pcm;
        ASSERT_EQ(DecodeOne(&decoder, frame, &pcm), kStatusOk);
        EXPECT_EQ(pcm.size(), 2048u * static_cast<size_t>(channels));
        ASSERT_EQ(decoder.GetInfo(&params), kStatusOk);
        EXPECT_EQ(params.info.sampleRate, 48000);
        EXPECT_EQ(params.info.profile, profile);
        EXPECT_EQ(params.info.channels, channels);
    }
}

TEST(AacDecoder, RefusesWhatItCannotUse) {
    const std::tuple<const char*, Frame, Status> cases[] = {
        {"cut", {0x11}, kStatusBadParameter},
        {"zeros, as from a wrong offset", {0, 0}, kStatusBadParameter},
        {"reserved channels", {0x11, 0xc8}, kStatusBadParameter},
        {"scalable", {0x31, 0x90}, kStatusNotImplemented},
        {"longer than any", Frame(5000, 0x11), kStatusOutOfRange},
    };
    AACDecoder decoder;
    AACDecoderParams params, info;
    for (const auto& [name, config, status] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Configure(&decoder, config, &params), status);
        EXPECT_EQ(decoder.GetInfo(&info), kStatusNoData);
    }
}

TEST(AacDecoder, GoesOnBehindBrokenFrames) {
    const std::vector<Frame> good = SplitAdts("stereo_48k.aac");
    const Pcm clean = Decode(kStereo48k, good);
    AACDecoder decoder;
    AACDecoderParams params;
    ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk);
    Pcm pcm;
    for (size_t i = 0; i < 4; ++i)
        ASSERT_EQ(DecodeOne(&decoder, good[i], &pcm), kStatusOk);

    Frame cut = good[4];
    cut.resize(cut.size() / 3);
    const struct {
        const char* name;
        Frame frame;
        Status status;
    } broken[] = {
        {"empty", {}, kStatusNoData},
        {"cut", cut, kStatusBadParameter},
        {"ones", Frame(300, 0xff), kStatusBadParameter},
        {"no sound in it", {0xe0}, kStatusNoData},
        {"a whole file", Frame(70000, 0x21), kStatusOutOfRange},
    };
    for (const auto& b : broken) {
        SCOPED_TRACE(b.name);
        EXPECT_EQ(DecodeOne(&decoder, b.frame, &pcm), b.status);
    }
    EXPECT_EQ(pcm.size(), 4 * 2048u) << "nothing comes of a broken frame";
    MediaData in, small;
    SetBytes(&in, good[4].data(), good[4].size());
    ASSERT_EQ(small.Alloc(4095), kStatusOk);
    EXPECT_EQ(decoder.GetFrame(&in, &small), kStatusTargetTooSmall);
    EXPECT_EQ(in.GetDataSize(), good[4].size()) << "a small target costs nothing";

    // One frame overlaps what went before, the next is whole again.
    for (size_t i = 4; i < 8; ++i)
        ASSERT_EQ(DecodeOne(&decoder, good[i], &pcm), kStatusOk);
    EXPECT_TRUE(std::equal(pcm.begin() + 5 * 2048, pcm.end(), clean.begin() + 5 * 2048));
}

TEST(AacDecoder, ResetEqualsNew) {
    const std::vector<Frame> frames = SplitAdts("stereo_48k.aac");
    AACDecoder decoder;
    AACDecoderParams params;
    EXPECT_EQ(decoder.Reset(), kStatusNoData);
    ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk);
    const auto decode = [&] {
        Pcm pcm;
        for (size_t i = 0; i < 5; ++i)
            EXPECT_EQ(DecodeOne(&decoder, frames[i], &pcm), kStatusOk);
        return pcm;
    };
    const Pcm first = decode();
    ASSERT_EQ(decoder.Reset(), kStatusOk);
    EXPECT_EQ(decode(), first);
    ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk) << "Init again";
    EXPECT_EQ(decode(), first);
    EXPECT_EQ(decoder.Close(), kStatusOk);
    Pcm none;
    EXPECT_EQ(DecodeOne(&decoder, frames[0], &none), kStatusNoData);
}

TEST(AacEncoder, RefusesWhatItCannotMake) {
    using Params = AACEncoderParams;
    const struct {
        const char* name;
        void (*change)(Params&);
        Status status;
    } cases[] = {
        {"prediction", [](Params& p) { p.objectType = 4; }, kStatusOk},
        {"192 kHz", [](Params& p) { p.info.sampleRate = 192000; }, kStatusNotImplemented},
        {"seven channels", [](Params& p) { p.info.channels = 7; }, kStatusNotImplemented},
        {"replication", [](Params& p) { p.objectType = 5; }, kStatusNotImplemented},
        {"no channels", [](Params& p) { p.info.channels = 0; }, kStatusBadParameter},
        {"no rate", [](Params& p) { p.info.sampleRate = 0; }, kStatusBadParameter},
        {"24-bit input", [](Params& p) { p.info.bitsPerSample = 24; }, kStatusBadParameter},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Params params = EncoderParams(48000, 2);
        c.change(params);
        AACEncoder encoder;
        EXPECT_EQ(encoder.Init(&params), c.status);
        EXPECT_EQ(encoder.GetDelay() > 0, c.status == kStatusOk);
    }
}

TEST(AacEncoder, TakesWholeBlocksOnlyAndTellsItsSizes) {
    AACEncoderParams params = EncoderParams(8000, 2, INT32_MAX);
    AACEncoder encoder;
    const Pcm pcm(1024 * 2 + 2);
    MediaData in, out;
    SetBytes(&in, pcm.data(), pcm.size() * 2);
    ASSERT_EQ(out.Alloc(1548), kStatusOk);
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusNoData) << "before Init";
    ASSERT_EQ(encoder.Init(&params), kStatusOk);
    ASSERT_EQ(encoder.GetInfo(&params), kStatusOk);
    EXPECT_EQ(params.suggestedInputSize, 4096u);
    EXPECT_EQ(params.suggestedOutputSize, 1548u);
    EXPECT_EQ(params.info.bitRate, 48000) << "3 bits a sample at most";
    EXPECT_EQ(params.info.streamType, 0x800);

    MediaData small;
    ASSERT_EQ(small.Alloc(1547), kStatusOk);
    EXPECT_EQ(encoder.GetFrame(&in, &small), kStatusTargetTooSmall);
    EXPECT_EQ(in.GetDataSize(), 4100u);
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusOk);
    EXPECT_GT(out.GetDataSize(), 0u) << "the first block has a frame already";
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusNoData);
    EXPECT_EQ(in.GetDataSize(), 4u);
    EXPECT_EQ(encoder.Drain(&out), kStatusOk);
    in.Reset();
    ASSERT_EQ(in.SetDataSize(4096), kStatusOk);
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusNoData) << "the end was told";
}

TEST(AacEncoder, NoFrameOutgrowsItsBuffer) {
    const Pcm noise = Noise(10 * AACEncoder::kBlockFrames);
    for (const int32_t rate : {8000, 48000, 96000})
        for (const int32_t channels : {1, 2}) {
            const Coded coded = Encode(EncoderParams(rate, channels, INT32_MAX), noise);
            for (const Frame& frame : coded.frames)
                EXPECT_LE(frame.size(), 768u * channels);
        }
}

TEST(AacEncoder, HeadersGoAroundTheSameFrames) {
    const Pcm pcm = Noise(4096);
    AACEncoderParams params = EncoderParams(48000, 2);
    const Coded bare = Encode(params, pcm);
    EXPECT_EQ(bare.config, kStereo48k);
    params.outputFormat = 0;
    Coded adts = Encode(params, pcm);
    EXPECT_EQ(Decode({}, adts.frames), Decode(bare.config, bare.frames));
    for (Frame& frame : adts.frames)
        frame.erase(frame.begin(), frame.begin() + 7);
    EXPECT_EQ(adts.frames, bare.frames);
    params.outputFormat = 1;
    Coded adif = Encode(params, pcm);
    adif.frames[0].erase(adif.frames[0].begin(), adif.frames[0].begin() + 14);
    EXPECT_EQ(adif.frames, bare.frames);
}

TEST(AacCodecs, KeepTheirStateInTheCallersAllocator) {
    DefaultMemoryAllocator allocator;
    AACDecoderParams params;
    params.allocator = &allocator;
    {
        AACDecoder decoder;
        ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk);
        EXPECT_NE(allocator.Lock(1), nullptr);
        EXPECT_EQ(allocator.Unlock(1), kStatusOk);
        EXPECT_EQ(Configure(&decoder, {0x11}, &params), kStatusBadParameter);
        EXPECT_EQ(allocator.Lock(1), nullptr) << "a failed Init leaves nothing";
        ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk);
    }
    EXPECT_EQ(allocator.Lock(2), nullptr);
}

Pcm Sweep(int32_t rate, size_t frames) {
    Pcm pcm;
    double phase = 0;
    for (size_t i = 0; i < frames; ++i) {
        const double at = static_cast<double>(i) / static_cast<double>(frames);
        phase += 2 * std::numbers::pi * 20 * std::pow(750.0, at) / rate;  // 20 Hz to 15 kHz
        const double edge = std::min(1.0, 20 * std::min(at, 1 - at));     // no jump at either end
        for (const double level : {0.5, 0.4})
            pcm.push_back(
                static_cast<int16_t>(std::lround(level * edge * std::sin(phase) * 32767)));
    }
    return pcm;
}

TEST(AacQuality, ASweepComesBackInBothChannels) {
    // most, rms: measured and a tenth more, of 32767
    const std::tuple<int32_t, int32_t, double, double> cases[] = {
        {48000, 128000, 530, 70}, {44100, 128000, 1275, 80}, {48000, 256000, 54, 9}};
    const size_t frames = 100 * AACEncoder::kBlockFrames;
    for (const auto& [rate, bit_rate, most, rms] : cases) {
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << bit_rate << " bit/s");
        const Pcm pcm = Sweep(rate, frames);
        const Coded coded = Encode(EncoderParams(rate, 2, bit_rate), pcm);
        const Pcm back = Decode(coded.config, coded.frames);
        ASSERT_EQ(back.size(), pcm.size() + 2 * coded.delay);
        double largest[2] = {}, squares[2] = {};
        for (size_t i = 0; i < pcm.size(); ++i) {
            const double error = std::abs(back[i + 2 * coded.delay] - pcm[i]);
            largest[i % 2] = std::max(largest[i % 2], error);
            squares[i % 2] += error * error;
        }
        for (int channel = 0; channel < 2; ++channel) {
            EXPECT_LE(largest[channel], most) << "channel " << channel;
            EXPECT_LE(std::sqrt(squares[channel] / frames), rms) << "channel " << channel;
        }
    }
}

// A click must come out at its own sample, whatever the rate, and the last ones must come out at
// all.
TEST(AacQuality, DelayIsExactAndTheEndComplete) {
    const struct {
        int32_t rate, channels, bit_rate;
    } cases[] = {{8000, 2, 48000},  {22050, 2, 96000},  {96000, 2, 256000},
                 {48000, 1, 64000}, {48000, 6, 384000}, {48000, 5, 320000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz, " << c.channels << " channels");
        const size_t channels = static_cast<size_t>(c.channels);
        Pcm pcm(20 * AACEncoder::kBlockFrames * channels);
        for (size_t i = 1700 * channels; i < pcm.size(); i += 3001 * channels)
            std::fill_n(pcm.begin() + static_cast<ptrdiff_t>(i), channels, int16_t{20000});
        const Coded coded = Encode(EncoderParams(c.rate, c.channels, c.bit_rate), pcm);
        EXPECT_EQ(coded.delay, 2048u);
        EXPECT_EQ(coded.frames.size(), 22u);
        EXPECT_EQ(coded.drained, 2u);
        AudioStreamInfo info;
        const Pcm back = Decode(coded.config, coded.frames, &info);
        EXPECT_EQ(info.sampleRate, c.rate);
        EXPECT_EQ(info.channels, c.channels);
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
