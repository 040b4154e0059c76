#include "mp4format/atoms/movie_headers.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"

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
    cut_after(mp4_read_hdlr, Hdlr("vide"), 24);
    TestHost host(Mdhd({.language = 0x95C4}));
    Mp4MediaHeader media{};
    ASSERT_EQ(mp4_read_mdhd(host, host.File(), {8, 24}, &media), FF4_RET_OK);
    EXPECT_EQ(media.language, 0x15C4) << "15 bits are kept";
}

}  // namespace
}  // namespace tarn
