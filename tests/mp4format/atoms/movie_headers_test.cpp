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

// What is read is written back byte for byte. That fields have the right names the facts of the
// clips tell.
template <typename Header>
void BothWays(Mp4Result (*read)(Mp4Host*, Mp4File*, const Mp4Span&, Header*),
              Mp4Result (*write)(Mp4Sink&, const Header&), const Bytes& atom, uint32_t policy) {
    TestHost host(atom);
    Header header{};
    EXPECT_EQ(read(host, host.File(), {8, atom.size() - 8}, &header), FF4_RET_OK);
    EXPECT_EQ(Written(host, write, header, {kSizeAuto, policy, kOffsetAuto}), atom);
}

TEST(MovieHeaders, BothVersionsBothWays) {
    for (const uint8_t v : {0, 1}) {
        SCOPED_TRACE(v);
        const uint32_t policy = v ? kVersionAlways1 : kVersionAuto;
        const uint64_t duration = v ? 0x123456789A : 77;
        TkhdFields track{.version = v, .creation = 13, .track_id = 9, .duration = duration};
        track.layer = 1, track.alternate_group = 2, track.volume = 0x100;
        track.width = 320, track.height = 180;
        BothWays(mp4_read_tkhd, mp4_write_tkhd, Tkhd(track), policy);
        BothWays(mp4_read_mvhd, mp4_write_mvhd,
                 Mvhd({.version = v, .creation = 11, .duration = duration}), policy);
        BothWays(mp4_read_mdhd, mp4_write_mdhd,
                 Mdhd({.version = v, .modification = 16, .duration = duration}), policy);
    }
}

}  // namespace
}  // namespace tarn
