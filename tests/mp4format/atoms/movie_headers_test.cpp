#include "mp4format/atoms/movie_headers.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

// Reads the first `size` bytes of `atom` as if the atom ended there.
template <typename Header>
Mp4Result read_cut(Mp4Result (*read)(Mp4Host*, Mp4File*, const Mp4Span&, Header*),
                   const Bytes& atom, size_t size) {
    TestHost host(atom);
    Header header{};
    return read(host, host.File(), {8, size}, &header);
}

TEST(MovieHeaders, TooShortOrOfAnotherVersion) {
    const auto cut_after = [](const auto& read, const Bytes& atom, size_t minimum) {
        EXPECT_EQ(read_cut(read, atom, minimum), FF4_RET_OK);
        EXPECT_EQ(read_cut(read, atom, minimum - 1), FF4_RET_FORMAT);
        Bytes other = atom;
        other[8] = 2;
        EXPECT_EQ(read_cut(read, other, minimum), FF4_RET_FORMAT) << "of version 2";
    };
    cut_after(mp4_read_mvhd, Mvhd(), 100);
    cut_after(mp4_read_mvhd, Mvhd({.version = 1}), 112);
    cut_after(mp4_read_tkhd, Tkhd(), 84);
    cut_after(mp4_read_tkhd, Tkhd({.version = 1}), 96);
    cut_after(mp4_read_mdhd, Mdhd(), 24);
    TestHost host(Mdhd({.language = 0x95C4}));
    Mp4MediaHeader media{};
    ASSERT_EQ(mp4_read_mdhd(host, host.File(), {8, 24}, &media), FF4_RET_OK);
    EXPECT_EQ(media.language, 0x15C4) << "15 bits are kept";
}

TEST(MovieHeaders, HeadersOfBothVersions) {
    for (const uint8_t version : {0, 1}) {
        SCOPED_TRACE(version);
        TestHost host;
        const Mp4WriteOptions options = {kSizeAuto, version ? kVersionAlways1 : kVersionAuto, 1};
        const uint64_t duration = version ? 0x123456789A : 77;
        // What is written is the builder's, and reads back as it was.
        const auto both_ways = [&](auto writer, auto reader, const auto& record,
                                   const Bytes& expected) {
            EXPECT_EQ(Written(host, writer, record, options), expected);
            auto read = std::remove_cvref_t<decltype(record)>{};
            TestHost file(expected);
            ASSERT_EQ(reader(file, file.File(), {8, expected.size() - 8}, &read), FF4_RET_OK);
            read.version_flags &= 0xFFFFFF;
            EXPECT_EQ(Written(host, writer, read, options), expected);
        };
        Mp4MovieHeader mvhd{};
        mvhd.timescale = 1000;
        mvhd.rate = 0x10000;
        mvhd.volume = 0x100;
        mvhd.matrix[0] = mvhd.matrix[4] = 0x10000;
        mvhd.matrix[8] = 0x40000000;
        mvhd.creation_time = 11;
        mvhd.modification_time = 12;
        mvhd.duration = duration;
        mvhd.next_track_id = 3;
        both_ways(
            mp4_write_mvhd, mp4_read_mvhd, mvhd,
            Mvhd({.version = version, .creation = 11, .modification = 12, .duration = duration}));

        Mp4TrackHeader tkhd{};
        tkhd.version_flags = 7;
        tkhd.creation_time = 13;
        tkhd.modification_time = 14;
        tkhd.track_id = 9;
        tkhd.duration = duration;
        tkhd.layer = 1;
        tkhd.alternate_group = 2;
        tkhd.volume = 0x100;
        std::copy_n(mvhd.matrix, 9, tkhd.matrix);
        tkhd.width = 320 << 16;
        tkhd.height = 180 << 16;
        both_ways(mp4_write_tkhd, mp4_read_tkhd, tkhd,
                  Tkhd({.version = version,
                        .creation = 13,
                        .modification = 14,
                        .track_id = 9,
                        .duration = duration,
                        .layer = 1,
                        .alternate_group = 2,
                        .volume = 0x100,
                        .width = 320,
                        .height = 180}));

        both_ways(
            mp4_write_mdhd, mp4_read_mdhd, Mp4MediaHeader{0, 15, 16, 30000, duration, 0xD5C4},
            Mdhd({.version = version, .creation = 15, .modification = 16, .duration = duration}));
    }
}

}  // namespace
}  // namespace tarn
