#include "mp4format/tables/track_tables.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"

namespace tarn {
namespace {

// The tables of a track whose 'stbl' has these children.
struct Read {
    Mp4Result result;
    Mp4TrackTables tables;
};

Read read_track(const Bytes& trak, uint64_t file_size) {
    // Behind something, as in a file: offset 0 means "not there".
    const Bytes bytes = Join(Atom("free"), trak);
    TestHost host(bytes);
    Read read{};
    read.result =
        mp4_read_track_tables(host, host.File(), {8, trak.size()}, file_size, &read.tables);
    return read;
}

Read read_stbl(const Bytes& children, uint64_t file_size = 1000) {
    return read_track(Atom("mdia", Atom("minf", Atom("stbl", children))), file_size);
}

TEST(TrackTables, CountsAreCutToTheBytes) {
    constexpr int64_t kLie = 1000000;
    const auto table = [](FourCC type, std::initializer_list<int64_t> words, size_t more = 0) {
        return FullAtom(type, 0, 0, Be32(words), Bytes(more, 0));
    };
    using T = Mp4TrackTables;
    const std::tuple<const char*, Bytes, uint32_t T::*, uint32_t> cases[] = {
        {"stts", table("stts", {kLie, 1, 1, 2, 2}), &T::stts_count, 2},
        {"ctts", table("ctts", {kLie, 1, 1, 2}), &T::ctts_count, 1},
        {"stsc", table("stsc", {kLie, 1, 1, 1, 2}), &T::stsc_count, 1},
        {"stsz", table("stsz", {0, kLie, 1, 2, 3}), &T::sample_count, 3},
        {"a constant size: a byte a sample", table("stsz", {7, kLie}), &T::sample_count, 1000},
        {"stz2 of 4 bits", table("stz2", {4, kLie}, 3), &T::sample_count, 6},
        {"stz2 of 8 bits", table("stz2", {8, kLie}, 3), &T::sample_count, 3},
        {"stz2 of 16 bits", table("stz2", {16, kLie}, 3), &T::sample_count, 1},
        {"stco", table("stco", {kLie, 1, 2}), &T::chunk_count, 2},
        {"co64", table("co64", {kLie, 1, 2, 3}), &T::chunk_count, 1},
        {"stss", table("stss", {kLie, 1, 2}), &T::stss_count, 2},
        {"an honest count", Stss({1, 2, 3}), &T::stss_count, 3},
    };
    for (const auto& [name, children, count, expected] : cases) {
        SCOPED_TRACE(name);
        const Read read = read_stbl(children);
        EXPECT_EQ(read.result, FF4_RET_OK);
        EXPECT_EQ(read.tables.*count, expected);
    }
}

TEST(TrackTables, WhatIsRefused) {
    const std::pair<const char*, Bytes> cases[] = {
        {"stsd of 7 bytes", Atom("stsd", Bytes(7, 0))},
        {"stsd of version 1", FullAtom("stsd", 1, 0, Be32({0}))},
        {"stts of version 1", FullAtom("stts", 1, 0, Be32({0}))},
        {"ctts of version 2", FullAtom("ctts", 2, 0, Be32({0}))},
        {"stsz of 11 bytes", Atom("stsz", Bytes(11, 0))},
        {"stz2 of 12 bits", FullAtom("stz2", 0, 0, Be32({12, 0}))},
        {"stco of 4 bytes", FullAtom("stco", 0, 0)},
        {"a child of size 5", Be32({5, 0})},
    };
    for (const auto& [name, children] : cases)
        EXPECT_EQ(read_stbl(children).result, FF4_RET_FORMAT) << name;
}

TEST(TrackTables, FirstOfEachSlot) {
    const Read sizes = read_stbl(Join(Stz2(8, {1, 2}), Stsz({1, 2, 3})));
    EXPECT_EQ(sizes.tables.size_type, fourcc("stz2"));
    EXPECT_EQ(sizes.tables.sample_count, 2u);
    const Read chunks = read_stbl(Join(Co64({1}), Stco({1, 2})));
    EXPECT_EQ(chunks.tables.chunk_type, fourcc("co64"));
    EXPECT_EQ(chunks.tables.chunk_count, 1u);

    const Bytes minf = Atom("minf", MediaHeader("soun"), MediaHeader("vide"),
                            Atom("dinf", Dref({Url(), Url()})), Atom("dinf", Dref()));
    const Read track = read_track(
        Join(Atom("tref", Bytes(4, 1)), Atom("edts", Elst({{1, 2}}, 1)),
             Atom("edts", Elst({{1, 2}, {3, 4}})), Atom("mdia", minf), Atom("mdia", Be32({5, 0}))),
        1000);
    EXPECT_EQ(track.result, FF4_RET_OK) << "a second 'mdia' is not walked";
    EXPECT_EQ(track.tables.tref.size, 4u);
    EXPECT_EQ(track.tables.elst_count, 1u);
    EXPECT_EQ(full_version(track.tables.elst_version_flags), 1u);
    EXPECT_EQ(track.tables.media_header_type, fourcc("smhd"));
    EXPECT_EQ(track.tables.dref_count, 2u);
    EXPECT_EQ(read_track(Atom("edts", FullAtom("elst", 2, 0, Be32({0}))), 9).result,
              FF4_RET_FORMAT);
}

}  // namespace
}  // namespace tarn
