#include <gtest/gtest.h>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"
#include "support/test_host.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(AtomHeader, SizesAndTheirLimits) {
    const auto atom = [](std::initializer_list<int64_t> words) {
        std::vector<int64_t> all(words);
        all.insert(all.begin() + 1, fourcc("free"));
        return BeList(all, 4);
    };
    const auto small = [](int64_t size) { return Join(Be16({size}), Be32({10}), Bytes{1}); };
    enum Form { kAtom, kSmall, kDescriptor };
    const struct {
        const char* name;
        Form form;
        Bytes bytes;
        uint64_t size, header;  // none: refused
    } cases[] = {
        {"plain", kAtom, atom({8}), 8, 8},
        {"zero takes all there is", kAtom, atom({0, 1, 2}), 16, 8},
        {"too long is cut", kAtom, atom({100, 1}), 12, 8},
        {"64-bit", kAtom, atom({1, 0, 20, 7, 7}), 20, 16},
        {"64-bit zero takes all", kAtom, atom({1, 0, 0, 7}), 20, 16},
        {"64-bit too long is cut", kAtom, atom({1, 0x7FFFFFFF, 9, 7}), 20, 16},
        {"64-bit in 8 bytes", kAtom, atom({1}), 0, 0},
        {"64-bit in 12 bytes", kAtom, atom({1, 0}), 0, 0},
        {"64-bit below its header", kAtom, atom({1, 0, 12}), 0, 0},
        {"64-bit size of 1", kAtom, atom({1, 0, 1}), 0, 0},
        {"below its header", kAtom, atom({5, 0}), 0, 0},
        {"seven bytes", kAtom, {0, 0, 0, 8, 'f', 'r', 'e'}, 0, 0},
        {"small", kSmall, small(7), 7, 6},
        {"small, cut", kSmall, small(700), 7, 6},
        {"small has no size zero", kSmall, small(0), 0, 0},
        {"small below its header", kSmall, small(5), 0, 0},
        {"five bytes", kSmall, Bytes(5, 9), 0, 0},
        {"a length of one byte", kDescriptor, {3, 2, 9, 9, 9}, 4, 2},
        {"no payload", kDescriptor, {3, 0}, 2, 2},
        {"four bytes", kDescriptor, {3, 0x80, 0x80, 0x80, 1, 9}, 6, 5},
        {"two bytes, cut", kDescriptor, {3, 0x81, 0x00, 9}, 4, 3},
        {"five length bytes", kDescriptor, {3, 0x80, 0x80, 0x80, 0x80, 1}, 0, 0},
        {"ends within the length", kDescriptor, {3, 0x80}, 0, 0},
        {"a tag alone", kDescriptor, {3}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host(c.bytes);
        const auto check = [&](auto read, auto... args) {
            Mp4AtomInfo info{};
            EXPECT_EQ(read(args..., 0, c.bytes.size(), &info),
                      c.size > 0 ? FF4_RET_OK : FF4_RET_FORMAT);
            EXPECT_EQ(info.atom.size, c.size);
            EXPECT_EQ(info.payload.offset, c.header);
            EXPECT_EQ(info.payload.size, c.size - c.header);
        };
        Mp4Host* from = host;
        if (c.form == kAtom) check(mp4_read_atom_header, from, host.File());
        if (c.form == kAtom) check(mp4_read_atom_header_mem, c.bytes.data());
        if (c.form == kSmall) check(mp4_read_small_atom_header, from, host.File());
        if (c.form == kSmall) check(mp4_read_small_atom_header_mem, c.bytes.data());
        if (c.form == kDescriptor) check(mp4_read_descriptor_header_mem, c.bytes.data());
    }
}

TEST(Walk, VisitsChildrenAndIgnoresAShortTail) {
    const Bytes bytes = Join(Atom("aaaa"), Atom("bbbb", Bytes(3, 1)), Bytes(6, 0));
    TestHost host(bytes);
    std::vector<uint32_t> seen;
    const auto note = [&](const Mp4AtomInfo& atom) {
        seen.push_back(atom.type);
        return FF4_RET_OK;
    };
    EXPECT_EQ(mp4_walk(host, host.File(), {0, bytes.size()}, note), FF4_RET_OK);
    EXPECT_EQ(mp4_walk_mem(host, bytes.data(), {0, bytes.size()}, note), FF4_RET_OK);
    const std::vector<uint32_t> both = {fourcc("aaaa"), fourcc("bbbb"), fourcc("aaaa"),
                                        fourcc("bbbb")};
    EXPECT_EQ(seen, both);
    // A header read is one seek and one read.
    EXPECT_EQ(host.Calls(HostCall::kRead), 2u);
    EXPECT_EQ(host.Calls(HostCall::kSeek), 2u);
}

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
