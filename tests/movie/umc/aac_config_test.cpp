#include <gtest/gtest.h>

#include <vector>

#include "movie/umc/aac_config.h"
#include "movie/umc/media_data.h"
#include "movie/umc/memory_allocator.h"
#include "support/byte_builder.h"

namespace tarn::UMC {
namespace {

TEST(AacConfig, FramesWithoutAChannelHaveNoSound) {
    Bytes fill = {0xdf, 0xfe};  // a fill element of 269 bytes
    fill.resize(270);
    fill.push_back(0x01);
    fill.push_back(0xc0);
    const struct {
        Bytes frame;
        bool sound;
    } cases[] = {
        {{0xe0}, false},        // the end
        {{0x21, 0x00}, true},   // a channel pair
        {{0xc1, 0xc0}, false},  // an empty fill element and the end
        {fill, false},
        {{0x81, 0x01, 0x55, 0xe0}, false},  // a byte of data, aligned
        {{0x81, 0x01, 0x55, 0x20}, true},
        {{0xd0}, true},  // ends too soon: the decoder tells
    };
    for (const auto& c : cases)
        EXPECT_EQ(AacFrameHasSound(c.frame), c.sound) << c.frame.size() << ", " << int{c.frame[0]};
}

TEST(AacConfig, SaysWhatItSaysAndNoMore) {
    enum Extension { kNone, kSbr, kPs };
    // facts: object type, channels, rate, output rate, frame length
    const std::tuple<const char*, Bytes, std::vector<int32_t>, Extension> cases[] = {
        {"48 kHz stereo", {0x11, 0x90}, {2, 2, 48000, 48000, 1024}, kNone},
        {"5.1, no SBR", {0x11, 0xb0, 0x56, 0xe5, 0}, {2, 6, 48000, 48000, 1024}, kNone},
        {"SBR behind", {0x13, 0x10, 0x56, 0xe5, 0x98}, {2, 2, 24000, 48000, 1024}, kSbr},
        {"SBR in front", {0x2b, 0x11, 0x88, 0}, {2, 2, 24000, 48000, 1024}, kSbr},
        {"PS in front", {0xeb, 0x09, 0x88, 0}, {2, 1, 24000, 48000, 1024}, kPs},
        {"short frames", {0x11, 0x94}, {2, 2, 48000, 48000, 960}, kNone},
        {"above 31 (ELD)", {0xf8, 0xe6, 0x40}, {39, 2, 48000, 48000, 512}, kNone},
        {"PS behind", {19, 8, 0x56, 0xe5, 0x9d, 0x48, 0x80}, {2, 1, 24000, 48000, 1024}, kPs},
        {"PS not used", {19, 8, 0x56, 0xe5, 0x9d, 0x48, 0}, {2, 1, 24000, 48000, 1024}, kSbr},
    };
    AacConfig is;
    for (const auto& [name, bytes, facts, extension] : cases) {
        SCOPED_TRACE(name);
        is = {};
        ASSERT_EQ(ParseAacConfig(bytes, &is), kStatusOk);
        EXPECT_EQ(facts, (std::vector<int32_t>{is.objectType, is.channelConfig, is.sampleRate,
                                               is.outputRate, is.frameLength}));
        EXPECT_EQ(is.sbr, extension != kNone);
        EXPECT_EQ(is.ps, extension == kPs);
    }
    // Nothing, a reserved rate, SBR in front but cut.
    for (const Bytes& bad : {Bytes{}, Bytes{0x16, 0x90}, Bytes{0x2b, 0x11}})
        EXPECT_EQ(ParseAacConfig(bad, &is), kStatusBadParameter);
}

TEST(AacConfig, IsFoundWhereverTheDescriptorsPutIt) {
    const Bytes info = {5, 2, 0x11, 0x90}, longer = {5, 5, 0x2b, 0x11, 0x88, 0, 0};
    const Bytes padded = {5, 128, 128, 128, 5, 0x11, 0x90, 0x56, 0xe5, 0, 6, 128, 128, 128, 1, 2};
    const Bytes wide = {3, 128, 128, 128, 37, 0, 2, 0, 4, 128, 128, 128, 23};
    const Bytes options = {3, 30, 0, 0, 0xe0, 0, 9, 3, 'u', 'r', 'l', 0, 8, 4, 17};
    // zeros: bytes of the decoder's fields
    // length: length 0: not there
    const std::tuple<const char*, Bytes, size_t, Bytes, size_t, size_t> cases[] = {
        {"camera", {3, 22, 0, 0, 0, 4, 17}, 13, info, 22, 2},
        {"lengths of four bytes", wide, 13, padded, 31, 5},
        {"longer at the camera's place", {3, 25, 0, 0, 0, 4, 20}, 13, longer, 22, 5},
        {"all optional fields", options, 13, info, 30, 2},
        {"behind unknown", {9, 1, 7, 3, 25, 0, 0, 0, 8, 1, 0, 4, 17}, 13, info, 28, 2},
        {"a length past the end", {3, 99, 0, 0, 0, 4, 99}, 13, {5, 99, 0x11}, 22, 1},
        {"no specific info", {3, 18, 0, 0, 0, 4, 13}, 13, {}, 0, 0},
        {"decoder part too short", {3, 19, 0, 0, 0, 4, 14}, 10, info, 0, 0},
        {"a location longer than all", {3, 6, 0, 0, 0x40, 200, 4, 0}, 0, {}, 0, 0},
        {"a length without end", {3, 128, 128, 128, 128, 22, 0, 0, 0, 4, 17}, 0, {}, 0, 0},
    };
    for (const auto& [name, before, zeros, after, offset, length] : cases) {
        SCOPED_TRACE(name);
        const Bytes all = Join(before, Bytes(zeros), after);
        const auto found = FindDecoderSpecificInfo(all);
        ASSERT_EQ(found.size(), length);
        if (length == 0) continue;
        EXPECT_EQ(static_cast<size_t>(found.data() - all.data()), offset);
    }
}

TEST(AacConfig, HeadersAreTheFormatsOwn) {
    AacConfig config;
    ASSERT_EQ(ParseAacConfig(Bytes{0x11, 0x90}, &config), kStatusOk);
    EXPECT_EQ(MakeAdtsHeader(config, 200), (Bytes{0xff, 0xf1, 0x4c, 0x80, 0x19, 0xff, 0xfc}));
    EXPECT_TRUE(MakeAdtsHeader(config, 8185).empty()) << "the length has 13 bits";
    // One program with one pair of channels in front, 128000 bits a second, variable.
    EXPECT_EQ(MakeAdifHeader(config, 128000), (Bytes{'A', 'D', 'I', 'F', 0x10, 0x3e, 0x80, 0x00,
                                                     0x09, 0x88, 0x00, 0x00, 0x40, 0x00}));
    for (const auto& [type, channels, size] :
         {std::tuple{1, 2, 14u}, {4, 6, 16u}, {0, 2, 0u}, {5, 2, 0u}, {2, 0, 0u}, {2, 7, 0u}}) {
        config.objectType = type, config.channelConfig = channels;
        EXPECT_EQ(MakeAdifHeader(config, 128000).size(), size) << type << " " << channels;
    }

    Bytes stream = {0xff, 0xf1, 0x4c, 0x80, 0x01, 0x3f, 0xfc, 1, 2, 0};  // 9 of 10 bytes
    EXPECT_EQ(AdtsFrameLength(stream), 9u);
    for (const uint8_t second : {0xe1, 0xf3, 0xf5})  // no sync word, another layer
        EXPECT_EQ(AdtsFrameLength(Bytes{0xff, second, 0x4c, 0x80, 0x01, 0x3f, 0xfc, 1, 2}), 0u);
    stream.resize(8);
    EXPECT_EQ(AdtsFrameLength(stream), 0u) << "cut";
    stream[5] = 0x1f, stream[1] = 0xf0;  // 8 bytes; with a checksum the header alone has 9
    EXPECT_EQ(AdtsFrameLength(stream), 0u);
}

TEST(MediaData, DataStaysInsideItsBuffer) {
    MediaData data;
    EXPECT_EQ(data.SetDataSize(0), kStatusNullPointer);
    ASSERT_EQ(data.Alloc(10), kStatusOk);
    EXPECT_EQ(data.SetDataSize(11), kStatusOutOfRange);
    ASSERT_EQ(data.SetDataSize(8), kStatusOk);
    const std::tuple<int64_t, Status, uint32_t> steps[] = {
        {5, kStatusOk, 3},
        {-6, kStatusOutOfRange, 3},
        {INT64_MAX, kStatusOutOfRange, 3},
        {-2, kStatusOk, 5},
    };
    for (const auto& [delta, status, left] : steps) {
        SCOPED_TRACE(delta);
        EXPECT_EQ(data.MoveDataPointer(delta), status);
        EXPECT_EQ(data.GetDataSize(), left);
    }
    EXPECT_EQ(data.ResetDataPointer(), kStatusOk);
    EXPECT_EQ(data.GetDataSize(), 8u);
}

TEST(MediaData, MovesAndCopiesWhatFits) {
    uint8_t bytes[] = {1, 2, 3, 4, 5}, target[] = {9, 0, 0, 0, 0};
    MediaData from, to;
    ASSERT_EQ(from.SetBufferPointer(bytes, 5), kStatusOk);
    ASSERT_EQ(to.SetBufferPointer(target, 3), kStatusOk);
    ASSERT_EQ(from.SetDataSize(5), kStatusOk);
    ASSERT_EQ(to.SetDataSize(1), kStatusOk);
    EXPECT_EQ(from.MoveDataTo(&to), kStatusOk);
    EXPECT_EQ(from.GetDataPointer(), bytes + 2);
    EXPECT_EQ(std::vector<uint8_t>(target, target + 5), (std::vector<uint8_t>{9, 1, 2, 0, 0}));
    EXPECT_EQ(from.CopyTo(&to), kStatusTargetTooSmall);
}

TEST(AudioData, StartsOnItsAlignment) {
    alignas(64) uint8_t bytes[128];
    AudioData data, view;
    ASSERT_EQ(data.SetAlignedBuffer(bytes + 1, 127, 64), kStatusOk);
    ASSERT_EQ(data.SetDataSize(10), kStatusOk);
    ASSERT_EQ(view.Assign(data), kStatusOk);
    EXPECT_EQ(view.GetDataPointer(), bytes + 64);
    EXPECT_EQ(view.GetDataSize(), 10u);
    ASSERT_EQ(data.Alloc(100), kStatusOk);
    EXPECT_EQ(data.SetDataSize(100), kStatusOk);
    EXPECT_EQ(data.Alloc(UINT32_MAX), kStatusNoMemory);
    EXPECT_EQ(data.GetBufferPointer(), nullptr);
}

TEST(DefaultMemoryAllocator, LockedBlocksStay) {
    DefaultMemoryAllocator allocator;
    MemId block = 0;
    EXPECT_EQ(allocator.Alloc(&block, SIZE_MAX - 3, 0, 16), kStatusNoMemory);
    ASSERT_EQ(allocator.Alloc(&block, 10, 0, 256), kStatusOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(allocator.Lock(block)) % 256, 0u);
    EXPECT_EQ(allocator.Free(block), kStatusBadParameter);
    EXPECT_EQ(allocator.Unlock(block), kStatusOk);
    EXPECT_EQ(allocator.Free(block), kStatusOk);
    EXPECT_EQ(allocator.Lock(block), nullptr);
}

}  // namespace
}  // namespace tarn::UMC
