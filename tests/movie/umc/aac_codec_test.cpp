#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "codec_rig.h"
#include "movie/umc/aac_config.h"

namespace tarn::UMC {
namespace {

Frame ReadData(const std::string& name) {
    std::ifstream in(std::string(TARN_TEST_DATA) + "/aac/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<Frame> SplitAdts(const std::string& name) {
    const Frame stream = ReadData(name);
    std::vector<Frame> frames;
    std::span<const uint8_t> rest(stream);
    while (const uint32_t length = AdtsFrameLength(rest)) {
        frames.emplace_back(rest.begin(), rest.begin() + length);
        rest = rest.subspan(length);
    }
    return frames;
}

// The frames without their headers of 7 bytes, as a movie file keeps them.
std::vector<Frame> Bare(std::vector<Frame> frames) {
    for (Frame& frame : frames)
        frame.erase(frame.begin(), frame.begin() + 7);
    return frames;
}

const Frame kStereo48k = {0x11, 0x90};

// The .pcm files were decoded from the .aac files by another program of the same library.
TEST(AacDecoder, GivesTheReferenceWithinOneUnit) {
    const struct {
        const char* name;
        Frame config;
        int32_t channels, rate, mask;
    } cases[] = {
        {"stereo_48k", {0x11, 0x90}, 2, 48000, 0x3}, {"stereo_44k", {0x12, 0x10}, 2, 44100, 0x3},
        {"mono_48k", {0x11, 0x88}, 1, 48000, 0x4},   {"surround_48k", {0x11, 0xb0}, 6, 48000, 0x3f},
        {"loud_32k", {0x12, 0x90}, 2, 32000, 0x3},  // clips at both ends
    };
    for (const auto& c : cases)
        for (const bool bare : {true, false}) {
            SCOPED_TRACE(testing::Message() << c.name << (bare ? ", configured" : ", ADTS"));
            const std::vector<Frame> frames = SplitAdts(std::string(c.name) + ".aac");
            AudioStreamInfo info;
            const Pcm pcm =
                bare ? Decode(c.config, Bare(frames), &info) : Decode({}, frames, &info);
            EXPECT_EQ(info.channels, c.channels);
            EXPECT_EQ(info.sampleRate, c.rate);
            EXPECT_EQ(info.channelMask, c.mask);
            EXPECT_EQ(info.profile, kAacLc);
            EXPECT_EQ(info.bitsPerSample, 16);

            const Frame reference = ReadData(std::string(c.name) + ".pcm");
            ASSERT_EQ(pcm.size() * 2, reference.size());
            int largest = 0;
            for (size_t i = 0; i < pcm.size(); ++i) {
                int16_t expected = 0;
                std::memcpy(&expected, &reference[2 * i], 2);
                largest = std::max(largest, std::abs(pcm[i] - expected));
            }
            EXPECT_LE(largest, 1);
        }
}

TEST(AacDecoder, StreamsWithoutConfigurationAreKnownFromTheirFirstFrame) {
    AACDecoder decoder;
    AACDecoderParams params, info;
    ASSERT_EQ(Configure(&decoder, {}, &params), kStatusOk);
    EXPECT_EQ(decoder.GetInfo(&info), kStatusNoStreamYet);
    EXPECT_EQ(info.info.channels, 0);
    EXPECT_GT(info.suggestedOutputSize, 0u);

    // Two frames in one buffer are taken one at a time.
    const Frame stream = ReadData("mono_48k.aac");
    const uint32_t first = AdtsFrameLength(stream);
    MediaData in, out;
    SetBytes(&in, stream.data(), stream.size());
    ASSERT_EQ(out.Alloc(info.suggestedOutputSize), kStatusOk);
    EXPECT_EQ(decoder.GetFrame(&in, &out), kStatusOk);
    EXPECT_EQ(in.GetDataPointer(), stream.data() + first);
    EXPECT_EQ(out.GetDataSize(), 2048u);
    EXPECT_EQ(decoder.GetInfo(&info), kStatusOk);
    EXPECT_EQ(info.info.channels, 1);
}

// Sets the bits of `frame` from `at` on; the end element of three ones is the last thing in it.
Frame WithReplicationData(const Frame& frame) {
    std::vector<bool> bits;
    for (const uint8_t byte : frame)
        for (int bit = 7; bit >= 0; --bit)
            bits.push_back((byte >> bit & 1) != 0);
    while (!bits.back())
        bits.pop_back();
    bits.resize(bits.size() - 3);
    // A fill element of 6 bytes that holds replication data, empty but for a start of all zeros.
    for (const char c : std::string("1100110"
                                    "1101") +
                            std::string(44, '0') + "111")
        bits.push_back(c == '1');
    Frame result((bits.size() + 7) / 8);
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) result[i / 8] |= static_cast<uint8_t>(0x80 >> i % 8);
    return result;
}

TEST(AacDecoder, ReportsBandReplicationAndParametricStereo) {
    const Pcm tone = [] {
        Pcm pcm;
        for (int i = 0; i < 4096; ++i)
            pcm.push_back(static_cast<int16_t>((i * 37 % 200 - 100) * 80));
        return pcm;
    }();
    const Coded stereo = Encode(EncoderParams(24000, 2, 64000), tone);
    const Coded mono = Encode(EncoderParams(24000, 1, 48000), tone);
    const struct {
        const char* name;
        Frame config;
        bool stereo_core, hidden;
        int32_t ps_support, profile, channels;
        bool told;  // before the first frame
    } cases[] = {
        {"told in front", {0x2b, 0x11, 0x88, 0x00}, true, false, 0, kAacSbr, 2, true},
        {"told behind", {0x13, 0x10, 0x56, 0xe5, 0x98}, true, false, 0, kAacSbr, 2, true},
        {"found in the frames", {0x13, 0x10}, true, true, 0, kAacSbr, 2, false},
        {"parametric stereo, unwanted", {0xeb, 0x09, 0x88, 0x00}, false, false, 0, kAacPs, 1, true},
        {"parametric stereo, wanted", {0xeb, 0x09, 0x88, 0x00}, false, false, 1, kAacPs, 2, true},
        {"the same by another word", {0xeb, 0x09, 0x88, 0x00}, false, false, 411, kAacPs, 2, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AACDecoder decoder;
        AACDecoderParams params;
        params.psSupport = c.ps_support;
        ASSERT_EQ(Configure(&decoder, c.config, &params), kStatusOk);
        ASSERT_EQ(decoder.GetInfo(&params), kStatusOk);
        EXPECT_EQ(params.info.sampleRate, c.told ? 48000 : 24000);
        EXPECT_EQ(params.info.profile, c.told ? c.profile : kAacLc);

        const Frame& frame = (c.stereo_core ? stereo : mono).frames[1];
        Pcm pcm;
        ASSERT_EQ(DecodeOne(&decoder, c.hidden ? WithReplicationData(frame) : frame, &pcm),
                  kStatusOk);
        EXPECT_EQ(pcm.size(), 2048u * static_cast<size_t>(c.channels));
        ASSERT_EQ(decoder.GetInfo(&params), kStatusOk);
        EXPECT_EQ(params.info.sampleRate, 48000);
        EXPECT_EQ(params.info.profile, c.profile);
        EXPECT_EQ(params.info.channels, c.channels);
    }
}

TEST(AacDecoder, RefusesWhatItCannotUse) {
    const struct {
        const char* name;
        Frame config;
        int32_t stream_type;
        Status status;
    } cases[] = {
        {"no configuration", {}, kStreamAacConfigured, kStatusNullPointer},
        {"cut", {0x11}, kStreamAacConfigured, kStatusBadParameter},
        {"zeros, as from a wrong offset", {0, 0}, kStreamAacConfigured, kStatusBadParameter},
        {"reserved channels", {0x11, 0xc8}, kStreamAacConfigured, kStatusBadParameter},
        {"scalable", {0x31, 0x90}, kStreamAacConfigured, kStatusNotImplemented},
        {"longer than any", Frame(5000, 0x11), kStreamAacConfigured, kStatusOutOfRange},
        {"configured all the same", {0x11, 0x90}, 1, kStatusOk},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AACDecoder decoder;
        AACDecoderParams params;
        MediaData data;
        if (!c.config.empty()) SetBytes(&data, c.config.data(), c.config.size());
        params.data = &data;
        params.info.streamType = c.stream_type;
        EXPECT_EQ(decoder.Init(&params), c.status);
        AACDecoderParams info;
        EXPECT_EQ(decoder.GetInfo(&info), c.status == kStatusOk ? kStatusOk : kStatusNoData);
    }
    AACDecoder decoder;
    AACEncoderParams wrong;
    EXPECT_EQ(decoder.Init(nullptr), kStatusNullPointer);
    EXPECT_EQ(decoder.Init(&wrong), kStatusBadParameter);
}

TEST(AacDecoder, GoesOnBehindBrokenFrames) {
    const std::vector<Frame> good = Bare(SplitAdts("stereo_48k.aac"));
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
        {"no sound in it", {0xe0}, kStatusBadParameter},
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
    const std::vector<Frame> frames = Bare(SplitAdts("stereo_48k.aac"));
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
    float seconds = 0;
    EXPECT_EQ(decoder.GetDuration(&seconds), kStatusOk);
    EXPECT_FLOAT_EQ(seconds, 5 * 1024 / 48000.0f);
    ASSERT_EQ(decoder.Reset(), kStatusOk);
    EXPECT_EQ(decoder.GetDuration(&seconds), kStatusOk);
    EXPECT_EQ(seconds, 0.0f);
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
        {"as it is", [](Params&) {}, kStatusOk},
        {"prediction", [](Params& p) { p.objectType = 4; }, kStatusOk},
        {"odd rate", [](Params& p) { p.info.sampleRate = 44000; }, kStatusNotImplemented},
        {"192 kHz", [](Params& p) { p.info.sampleRate = 192000; }, kStatusNotImplemented},
        {"seven channels", [](Params& p) { p.info.channels = 7; }, kStatusNotImplemented},
        {"replication", [](Params& p) { p.objectType = 5; }, kStatusNotImplemented},
        {"as an extension", [](Params& p) { p.auxObjectType = 5; }, kStatusNotImplemented},
        {"no channels", [](Params& p) { p.info.channels = 0; }, kStatusBadParameter},
        {"no rate", [](Params& p) { p.info.sampleRate = 0; }, kStatusBadParameter},
        {"no bits", [](Params& p) { p.info.bitRate = 0; }, kStatusBadParameter},
        {"24-bit input", [](Params& p) { p.info.bitsPerSample = 24; }, kStatusBadParameter},
        {"unknown format", [](Params& p) { p.outputFormat = 3; }, kStatusBadParameter},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Params params = EncoderParams(48000, 2);
        c.change(params);
        AACEncoder encoder;
        EXPECT_EQ(encoder.Init(&params), c.status);
        EXPECT_EQ(encoder.GetDelay() > 0, c.status == kStatusOk);
    }
    EXPECT_TRUE(AACEncoder::CanEncode(8000, 1));
    EXPECT_FALSE(AACEncoder::CanEncode(48000, 0));
}

TEST(AacEncoder, TakesWholeBlocksOnlyAndTellsItsSizes) {
    AACEncoderParams params = EncoderParams(8000, 2, INT32_MAX);
    AACEncoder encoder;
    const Pcm pcm(1024 * 2 + 2);
    MediaData in, out;
    SetBytes(&in, pcm.data(), pcm.size() * 2);
    ASSERT_EQ(out.Alloc(1548), kStatusOk);
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusNoData) << "before Init";
    EXPECT_EQ(encoder.Drain(&out), kStatusNoData);
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
    EXPECT_EQ(in.GetDataSize(), 4u);
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusNoData);
    EXPECT_EQ(in.GetDataSize(), 4u);
    EXPECT_EQ(encoder.Drain(&out), kStatusOk);
    in.Reset();
    ASSERT_EQ(in.SetDataSize(4096), kStatusOk);
    EXPECT_EQ(encoder.GetFrame(&in, &out), kStatusNoData) << "the end was told";
    EXPECT_EQ(encoder.Reset(), kStatusNotImplemented);
}

TEST(AacEncoder, NoFrameOutgrowsItsBuffer) {
    Pcm noise(20 * AACEncoder::kBlockFrames);
    uint32_t state = 1;
    for (int16_t& sample : noise) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<int16_t>(state >> 16);
    }
    for (const int32_t rate : {8000, 22050, 48000, 96000})
        for (const int32_t channels : {1, 2}) {
            const Coded coded = Encode(EncoderParams(rate, channels, INT32_MAX), noise);
            for (const Frame& frame : coded.frames)
                EXPECT_LE(frame.size(), 768u * channels);
        }
}

TEST(AacEncoder, HeadersGoAroundTheSameFrames) {
    Pcm pcm;
    for (int i = 0; i < 8192; ++i)
        pcm.push_back(static_cast<int16_t>(i * i % 9001));
    AACEncoderParams params = EncoderParams(48000, 2);
    const Coded bare = Encode(params, pcm);
    EXPECT_EQ(bare.config, kStereo48k);
    params.outputFormat = 0;
    const Coded adts = Encode(params, pcm);
    EXPECT_EQ(Bare(adts.frames), bare.frames);
    EXPECT_EQ(Decode({}, adts.frames), Decode(bare.config, bare.frames));
    params.outputFormat = 1;
    Coded adif = Encode(params, pcm);
    adif.frames[0].erase(adif.frames[0].begin(), adif.frames[0].begin() + 14);
    EXPECT_EQ(adif.frames, bare.frames);
}

// Counts its blocks and fails at a chosen call.
class CountingAllocator final : public MemoryAllocator {
public:
    Status Init() override { return kStatusOk; }
    Status Close() override { return kStatusOk; }
    Status Alloc(MemId* handle, size_t size, uint32_t, uint32_t alignment) override {
        if (fail) return kStatusNoMemory;
        ++blocks;
        return m_heap.Alloc(handle, size, 0, alignment);
    }
    void* Lock(MemId handle) override { return ++locks, m_heap.Lock(handle); }
    Status Unlock(MemId handle) override { return --locks, m_heap.Unlock(handle); }
    Status Free(MemId handle) override { return --blocks, m_heap.Free(handle); }
    Status DeallocateMem(MemId handle) override {
        locks = 0;
        return --blocks, m_heap.DeallocateMem(handle);
    }
    int blocks = 0, locks = 0;
    bool fail = false;

private:
    DefaultMemoryAllocator m_heap;
};

TEST(AacCodecs, KeepTheirStateInTheCallersAllocator) {
    CountingAllocator allocator;
    AACDecoderParams params;
    params.allocator = &allocator;
    {
        AACDecoder decoder;
        ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk);
        EXPECT_EQ(allocator.blocks, 1);
        EXPECT_EQ(allocator.locks, 0);
        EXPECT_EQ(Configure(&decoder, {0x11}, &params), kStatusBadParameter);
        EXPECT_EQ(allocator.blocks, 0) << "a failed Init leaves nothing";
        ASSERT_EQ(Configure(&decoder, kStereo48k, &params), kStatusOk);
    }
    EXPECT_EQ(allocator.blocks, 0);
    allocator.fail = true;
    AACEncoder encoder;
    AACEncoderParams encoder_params = EncoderParams(48000, 2);
    encoder_params.allocator = &allocator;
    EXPECT_EQ(encoder.Init(&encoder_params), kStatusNoMemory);
}

}  // namespace
}  // namespace tarn::UMC
