#include "mp4format/atom.h"

#include <gtest/gtest.h>

#include "support/test_host.h"

namespace tarn {
namespace {

TEST(AtomHeader, SizesAndTheirLimits) {
    constexpr int64_t kFree = fourcc("free");
    const struct {
        const char* name;
        Bytes bytes;
        Mp4Result result;
        uint64_t size, payload;
    } cases[] = {
        {"plain", Be32({8, kFree}), FF4_RET_OK, 8, 8},
        {"zero takes all there is", Be32({0, kFree, 1, 2}), FF4_RET_OK, 16, 8},
        {"too long is cut", Be32({100, kFree, 1}), FF4_RET_OK, 12, 8},
        {"64-bit", Be32({1, kFree, 0, 20, 7, 7}), FF4_RET_OK, 20, 16},
        {"64-bit zero takes all", Be32({1, kFree, 0, 0, 7}), FF4_RET_OK, 20, 16},
        {"64-bit too long is cut", Be32({1, kFree, 0x7FFFFFFF, 9, 7}), FF4_RET_OK, 20, 16},
        {"64-bit in 8 bytes", Be32({1, kFree}), FF4_RET_FORMAT, 0, 0},
        {"64-bit in 12 bytes", Be32({1, kFree, 0}), FF4_RET_FORMAT, 0, 0},
        {"64-bit below its header", Be32({1, kFree, 0, 12}), FF4_RET_FORMAT, 0, 0},
        {"64-bit size of 1", Be32({1, kFree, 0, 1}), FF4_RET_FORMAT, 0, 0},
        {"below its header", Be32({5, kFree, 0}), FF4_RET_FORMAT, 0, 0},
        {"seven bytes", {0, 0, 0, 8, 'f', 'r', 'e'}, FF4_RET_FORMAT, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host(c.bytes);
        Mp4AtomInfo file{}, memory{};
        EXPECT_EQ(mp4_read_atom_header(host, host.File(), 0, c.bytes.size(), &file), c.result);
        EXPECT_EQ(mp4_read_atom_header_mem(c.bytes.data(), 0, c.bytes.size(), &memory), c.result);
        for (const Mp4AtomInfo& info : {file, memory}) {
            EXPECT_EQ(info.atom.size, c.size);
            EXPECT_EQ(info.payload.offset, c.payload);
            EXPECT_EQ(info.payload.size, c.size - c.payload);
        }
    }
}

TEST(AtomHeader, SmallFormHasNoSizeZero) {
    const struct {
        const char* name;
        Bytes bytes;
        Mp4Result result;
        uint64_t size;
    } cases[] = {
        {"plain", Join(Be16({7}), Be32({10}), Bytes{1}), FF4_RET_OK, 7},
        {"cut", Join(Be16({700}), Be32({10}), Bytes{1}), FF4_RET_OK, 7},
        {"zero", Join(Be16({0}), Be32({10})), FF4_RET_FORMAT, 0},
        {"below its header", Join(Be16({5}), Be32({10})), FF4_RET_FORMAT, 0},
        {"five bytes", Bytes(5, 9), FF4_RET_FORMAT, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host(c.bytes);
        Mp4AtomInfo file{}, memory{};
        EXPECT_EQ(mp4_read_small_atom_header(host, host.File(), 0, c.bytes.size(), &file),
                  c.result);
        EXPECT_EQ(mp4_read_small_atom_header_mem(c.bytes.data(), 0, c.bytes.size(), &memory),
                  c.result);
        EXPECT_EQ(file.atom.size, c.size);
        EXPECT_EQ(memory.atom.size, c.size);
    }
}

TEST(AtomHeader, DescriptorLengths) {
    const struct {
        const char* name;
        Bytes bytes;
        Mp4Result result;
        uint64_t header, size;
    } cases[] = {
        {"one byte", {3, 2, 9, 9, 9}, FF4_RET_OK, 2, 4},
        {"no payload", {3, 0}, FF4_RET_OK, 2, 2},
        {"four bytes", {3, 0x80, 0x80, 0x80, 1, 9}, FF4_RET_OK, 5, 6},
        {"two bytes, cut", {3, 0x81, 0x00, 9}, FF4_RET_OK, 3, 4},
        {"five length bytes", {3, 0x80, 0x80, 0x80, 0x80, 1}, FF4_RET_FORMAT, 0, 0},
        {"ends within the length", {3, 0x80}, FF4_RET_FORMAT, 0, 0},
        {"a tag alone", {3}, FF4_RET_FORMAT, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Mp4AtomInfo info{};
        EXPECT_EQ(mp4_read_descriptor_header_mem(c.bytes.data(), 0, c.bytes.size(), &info),
                  c.result);
        EXPECT_EQ(info.payload.offset, c.header);
        EXPECT_EQ(info.atom.size, c.size);
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
