#include "mp4format/atom.h"

#include <gtest/gtest.h>

#include "support/test_host.h"

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

}  // namespace
}  // namespace tarn
