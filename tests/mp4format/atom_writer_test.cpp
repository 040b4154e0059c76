#include "mp4format/atom_writer.h"

#include <gtest/gtest.h>

#include "support/writer_rig.h"

namespace tarn {
namespace {

constexpr uint64_t k4G = uint64_t{1} << 32;

Mp4WriteOptions SizedBy(uint32_t policy) {
    return {policy, kVersionAuto, kOffsetAuto};
}

// The header of an atom, whose size takes 32 or 64 bits.
Bytes Small(FourCC type, uint32_t size) {
    return Be32({size, type.value});
}
Bytes Large(FourCC type, uint64_t size) {
    return Join(Be32({1, type.value}), Be64({size}));
}

TEST(AtomWriter, HeaderFormsFollowTheSize) {
    const std::tuple<const char*, uint32_t, uint64_t, Mp4Result, Bytes> cases[] = {
        {"small", kSizeAuto, 4, FF4_RET_OK, Small("mdat", 12)},
        {"the last that fits", kSizeAuto, k4G - 9, FF4_RET_OK, Small("mdat", 0xFFFFFFFF)},
        {"its header makes it large", kSizeAuto, k4G - 8, FF4_RET_OK, Large("mdat", k4G + 8)},
        {"32 bits alone", kSize32, k4G - 9, FF4_RET_OK, Small("mdat", 0xFFFFFFFF)},
        {"32 bits alone, too large", kSize32, k4G - 8, FF4_RET_STATE, {}},
        {"always large", kSizeAlways64, 4, FF4_RET_OK, Large("mdat", 20)},
        {"unknown policy", 3, 4, FF4_RET_ARGS, {}},
        {"past 64 bits", kSizeAuto, UINT64_MAX - 15, FF4_RET_OVERFLOW, {}},
    };
    for (const auto& [name, policy, payload, result, bytes] : cases) {
        SCOPED_TRACE(name);
        TestHost host(Bytes{});
        uint64_t header = 0, total = 3, whole = 0;
        EXPECT_EQ(mp4_write_atom_header(host, SizedBy(policy), host.File(), 0, payload,
                                        fourcc("mdat"), &header, &total),
                  result);
        EXPECT_EQ(host.Content(host.File()), bytes);
        EXPECT_EQ(header, bytes.size());
        EXPECT_EQ(total, 3 + bytes.size());
        EXPECT_EQ(mp4_atom_total_size(host, SizedBy(policy), payload, &whole), result);
        EXPECT_EQ(whole, result == FF4_RET_OK ? payload + bytes.size() : 0);
    }
}

TEST(AtomWriter, DescriptorLengthsAreAsShortAsCanBe) {
    const std::pair<uint64_t, Bytes> cases[] = {{0, {3, 0}},
                                                {127, {3, 0x7F}},
                                                {128, {3, 0x81, 0x00}},
                                                {0x3FFF, {3, 0xFF, 0x7F}},
                                                {0xFFFFFFF, {3, 0xFF, 0xFF, 0xFF, 0x7F}},
                                                {0x10000000, {}}};
    for (const auto& [payload, bytes] : cases) {
        TestHost host(Bytes{});
        uint64_t total = 0;
        EXPECT_EQ(mp4_write_descriptor_header(host, host.File(), 0, payload, 3, &total),
                  bytes.empty() ? FF4_RET_OVERFLOW : FF4_RET_OK);
        EXPECT_EQ(host.Content(host.File()), bytes);
        EXPECT_EQ(total, bytes.size());
    }
}

TEST(AtomWriter, VersionsAndWhatTheyLose) {
    const std::tuple<const char*, uint32_t, uint64_t, uint64_t, uint64_t, Mp4Result, uint32_t>
        cases[] = {
            {"one wide time is cut", kVersion0, k4G, 1, 1, FF4_RET_OK, 0},
            {"so are two", kVersion0Too, k4G, 1, k4G, FF4_RET_OK, 0},
            {"three are refused", kVersion0, k4G, k4G, k4G, FF4_RET_STATE, 9},
            {"three under the other policy", kVersion0Too, k4G, k4G, k4G, FF4_RET_STATE, 9},
            {"nothing needs it", kVersionAuto, k4G - 1, 1, 1, FF4_RET_OK, 0},
            {"the duration needs it", kVersionAuto, 1, 1, k4G, FF4_RET_OK, 1},
            {"always", kVersionAlways1, 1, 1, 1, FF4_RET_OK, 1},
            {"unknown policy", 4, 1, 1, 1, FF4_RET_INTERNAL, 9},
        };
    for (const auto& [name, policy, creation, modification, duration, result, due_version] :
         cases) {
        SCOPED_TRACE(name);
        TestHost host;
        const Mp4WriteOptions options = {kSizeAuto, policy, kOffsetAuto};
        uint32_t version = 9;
        EXPECT_EQ(mp4_pick_version(host, options, creation, modification, duration, &version),
                  result);
        EXPECT_EQ(version, due_version);
    }
}

TEST(AtomWriter, FreeIsAHeaderAlone) {
    // bytes: none: refused
    const std::tuple<uint32_t, uint64_t, Bytes> cases[] = {
        {kSizeAuto, 8, Small("free", 8)},
        {kSizeAuto, 5000, Small("free", 5000)},
        {kSizeAuto, 7, {}},
        {kSizeAlways64, 16, Large("free", 16)},
        {kSizeAlways64, 15, {}},
        {kSizeAuto, k4G + 8, Large("free", k4G + 8)},
        // 8 bytes of header are too few for so much, and 16 leave a payload that asks for 8.
        {kSizeAuto, k4G + 7, {}},
    };
    for (const auto& [policy, size, bytes] : cases) {
        SCOPED_TRACE(size);
        TestHost host(Bytes{});
        Mp4Sink sink{host, SizedBy(policy), host.File(), 0};
        EXPECT_EQ(mp4_write_free(sink, size), bytes.empty() ? FF4_RET_ARGS : FF4_RET_OK);
        EXPECT_EQ(host.Content(host.File()), bytes);
        EXPECT_EQ(sink.position, bytes.empty() ? 0 : size);
    }
}

}  // namespace
}  // namespace tarn
