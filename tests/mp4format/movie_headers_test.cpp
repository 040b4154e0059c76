#include "mp4format/movie_headers.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"

namespace tarn {
namespace {

constexpr uint64_t kFar = 0x123456789A;  // needs the 64-bit forms

// The payload of the one atom that `bytes` holds.
Mp4Span payload_of(const Bytes& bytes) {
    return {8, bytes.size() - 8};
}

TEST(MovieHeaders, BothVersions) {
    for (const uint8_t version : {0, 1}) {
        SCOPED_TRACE(version);
        const uint64_t duration = version ? kFar : 90090;
        TestHost host;
        const Bytes mvhd = Mvhd({.version = version,
                                 .creation = 11,
                                 .modification = 12,
                                 .timescale = 600,
                                 .duration = duration,
                                 .next_track_id = 9});
        Mp4MovieHeader movie{};
        ASSERT_EQ(mp4_read_mvhd(host, host.Add(mvhd), payload_of(mvhd), &movie), FF4_RET_OK);
        EXPECT_EQ(movie.creation_time, 11u);
        EXPECT_EQ(movie.modification_time, 12u);
        EXPECT_EQ(movie.timescale, 600u);
        EXPECT_EQ(movie.duration, duration);
        EXPECT_EQ(movie.rate, 0x10000u);
        EXPECT_EQ(movie.volume, 0x100u);
        EXPECT_EQ(movie.matrix[8], 0x40000000u);
        EXPECT_EQ(movie.next_track_id, 9u);

        const Bytes tkhd = Tkhd({.version = version,
                                 .flags = 5,
                                 .track_id = 77,
                                 .duration = duration,
                                 .layer = 1,
                                 .alternate_group = 2,
                                 .volume = 3,
                                 .width = 640,
                                 .height = 360});
        Mp4TrackHeader track{};
        ASSERT_EQ(mp4_read_tkhd(host, host.Add(tkhd), payload_of(tkhd), &track), FF4_RET_OK);
        EXPECT_EQ(full_flags(track.version_flags), 5u);
        EXPECT_EQ(track.track_id, 77u);
        EXPECT_EQ(track.duration, duration);
        EXPECT_EQ(track.layer, 1);
        EXPECT_EQ(track.alternate_group, 2);
        EXPECT_EQ(track.volume, 3);
        EXPECT_EQ(track.matrix[0], 0x10000u);
        EXPECT_EQ(track.width, 640u << 16);
        EXPECT_EQ(track.height, 360u << 16);

        const Bytes mdhd = Mdhd(
            {.version = version, .timescale = 48000, .duration = duration, .language = 0x95C4});
        Mp4MediaHeader media{};
        ASSERT_EQ(mp4_read_mdhd(host, host.Add(mdhd), payload_of(mdhd), &media), FF4_RET_OK);
        EXPECT_EQ(media.timescale, 48000u);
        EXPECT_EQ(media.duration, duration);
        EXPECT_EQ(media.language, 0x15C4) << "15 bits are kept";
    }
}

// Reads the first `size` bytes of `atom` as if the atom ended there.
template <typename Header>
Mp4Result read_cut(Mp4Result (*read)(Mp4Host*, Mp4File*, const Mp4Span&, Header*),
                   const Bytes& atom, size_t size) {
    TestHost host(atom);
    Header header{};
    return read(host, host.File(), {8, size}, &header);
}

TEST(MovieHeaders, TooShortOrOfAnotherVersion) {
    const struct {
        const char* name;
        Mp4Result at_minimum, below, of_version_2;
    } cases[] = {
        {"mvhd 0", read_cut(mp4_read_mvhd, Mvhd(), 100), read_cut(mp4_read_mvhd, Mvhd(), 99),
         read_cut(mp4_read_mvhd, Mvhd({.version = 2}), 100)},
        {"mvhd 1", read_cut(mp4_read_mvhd, Mvhd({.version = 1}), 112),
         read_cut(mp4_read_mvhd, Mvhd({.version = 1}), 111),
         read_cut(mp4_read_mvhd, Mvhd({.version = 3}), 100)},
        {"tkhd 0", read_cut(mp4_read_tkhd, Tkhd(), 84), read_cut(mp4_read_tkhd, Tkhd(), 83),
         read_cut(mp4_read_tkhd, Tkhd({.version = 2}), 84)},
        {"tkhd 1", read_cut(mp4_read_tkhd, Tkhd({.version = 1}), 96),
         read_cut(mp4_read_tkhd, Tkhd({.version = 1}), 95),
         read_cut(mp4_read_tkhd, Tkhd({.version = 255}), 84)},
        {"mdhd 0", read_cut(mp4_read_mdhd, Mdhd(), 24), read_cut(mp4_read_mdhd, Mdhd(), 23),
         read_cut(mp4_read_mdhd, Mdhd({.version = 2}), 24)},
        {"hdlr", read_cut(mp4_read_hdlr, Hdlr("vide"), 24),
         read_cut(mp4_read_hdlr, Hdlr("vide"), 23),
         read_cut(mp4_read_hdlr, FullAtom("hdlr", 1, 0, Bytes(20, 0)), 24)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.at_minimum, FF4_RET_OK);
        EXPECT_EQ(c.below, FF4_RET_FORMAT);
        EXPECT_EQ(c.of_version_2, FF4_RET_FORMAT);
    }
}

}  // namespace
}  // namespace tarn
