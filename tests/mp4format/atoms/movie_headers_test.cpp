// Headers of movies and tracks, fragment defaults and object descriptors, both ways.
#include <gtest/gtest.h>

#include "mp4format/atoms/handler.h"
#include "mp4format/atoms/movie_extends.h"
#include "mp4format/atoms/movie_headers.h"
#include "mp4format/atoms/object_descriptors.h"
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

TEST(Handler, NamesAndMediaHeaders) {
    const std::pair<FourCC, const char*> cases[] = {
        {"vide", "Video Media Handler"},
        {"soun", "Sound Media Handler"},
        {"GRAP", "Graphics Media Handler"},
        {"PKDT", "Packed Data Media Handler"},
        {"odsm", "ObjectDescriptor Media Handler"},
        {"BKDT", "Book Media Handler"},
    };
    TestHost host;
    for (const auto& [type, name] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Written(host, mp4_write_hdlr, type.value), Hdlr(type, name));
        Mp4MediaHeaderAtom header{};
        header.type = mp4_media_header_of(type.value);
        EXPECT_EQ(Written(host, mp4_write_media_header, header), MediaHeader(type));
    }
    EXPECT_EQ(DryRun(host, mp4_write_hdlr, fourcc("text")), FF4_RET_INTERNAL);
    for (const auto write : {mp4_write_vmhd, mp4_write_smhd, mp4_write_nmhd})
        EXPECT_EQ(DryRun(host, write, Mp4MediaHeaderAtom{}), FF4_RET_INTERNAL);
}

TEST(Handler, TooShortOrOfAVersion) {
    const Bytes hdlr = Hdlr("vide", "");
    for (const auto& [size, version, result] :
         {std::tuple{24, 0, FF4_RET_OK}, {23, 0, FF4_RET_FORMAT}, {24, 1, FF4_RET_FORMAT}}) {
        Bytes bytes = hdlr;
        bytes[8] = static_cast<uint8_t>(version);
        TestHost host(bytes);
        Mp4Handler handler{};
        EXPECT_EQ(mp4_read_hdlr(host, host.File(), {8, uint64_t(size)}, &handler), result);
        EXPECT_EQ(handler.handler_type, result == FF4_RET_OK ? fourcc("vide") : 0);
        EXPECT_EQ(handler.name.size, 0u);
    }
}

TEST(MovieExtends, TakeTheVersionTheyNeed) {
    TestHost host;
    for (const uint64_t duration : {uint64_t{0x100000000}, uint64_t{7}, uint64_t{0}}) {
        const Bytes mehd = duration ? Mehd(duration, duration > 7) : Bytes{};
        const Bytes mvex = Atom("mvex", mehd, Trex(), Trex({2, 1, 1024, 6, 0x10000}));
        Mp4MovieExtends read{};
        const uint64_t size = mvex.size() - 8;
        ASSERT_EQ(mp4_read_mvex(host, host.Add(mvex), {8, size}, &read), FF4_RET_OK);
        EXPECT_EQ(read.fragment_duration, duration);
        EXPECT_EQ(mp4_find_trex(read, 2), read.tail);
        EXPECT_EQ(mp4_find_trex(read, 3), nullptr);
        EXPECT_EQ(Written(host, mp4_write_mvex, read), mvex);
        EXPECT_EQ(DryRun(host, mp4_write_mvex, read, {1, kVersion0, 1}),
                  duration > 7 ? FF4_RET_STATE : FF4_RET_OK);
        mp4_free_mvex(host, &read);
    }
}

TEST(MovieExtends, ShortAndUnknownAtoms) {
    const Bytes trex = Trex();
    const std::tuple<const char*, Bytes, uint32_t> cases[] = {
        {"mehd of 7 bytes", Join(trex, Atom("mehd", Bytes(7, 0)), trex), 1},
        {"mehd of version 1 and 8 bytes", FullAtom("mehd", 1, 0, Bytes(4, 0)), 0},
        {"mehd of version 2", FullAtom("mehd", 2, 0, Bytes(8, 0)), 0},
        {"trex of 23 bytes", Join(trex, trex, Atom("trex", Bytes(23, 0))), 2},
    };
    for (const auto& [name, bytes, due_tracks] : cases) {
        SCOPED_TRACE(name);
        TestHost host(bytes);
        Mp4MovieExtends extends{};
        EXPECT_EQ(mp4_read_mvex(host, host.File(), {0, bytes.size()}, &extends), FF4_RET_FORMAT);
        uint32_t tracks = 0;
        for (const Mp4Trex* at = extends.head; at; at = at->next)
            ++tracks;
        EXPECT_EQ(tracks, due_tracks);
        mp4_free_mvex(host, &extends);
    }
}

TEST(ObjectDescriptors, OfAMovieAndOfItsStream) {
    TestHost host;
    const uint32_t streams[] = {1, 0x10002};
    const Mp4ObjectDescriptor object{1, false, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, streams, 2};
    const Bytes bytes = Written(host, mp4_write_initial_object_descriptor, object);
    EXPECT_EQ(bytes,
              Descriptor(16, Join(Bytes{0, 0x4F, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB},
                                  Descriptor(14, Be32({1})), Descriptor(14, Be32({0x10002})))));
    Bytes copy = bytes;
    EXPECT_EQ(Written(host, mp4_write_iods, Mp4ByteBlock{copy.data(), uint32_t(copy.size())}),
              FullAtom("iods", 0, 0, bytes));
    EXPECT_EQ(
        Written(host, mp4_write_object_descriptor, object),
        Descriptor(17, Join(Bytes{0, 0x5F}, Descriptor(15, Be16({1})), Descriptor(15, Be16({2})))));
    Mp4ObjectDescriptor wrong[] = {object, object};
    wrong[0].id = 1 << 10;
    wrong[1].streams = nullptr;
    for (const auto& bad : wrong) {
        EXPECT_EQ(DryRun(host, mp4_write_initial_object_descriptor, bad), FF4_RET_ARGS);
        EXPECT_EQ(DryRun(host, mp4_write_object_descriptor, bad), FF4_RET_ARGS);
    }
    const uint8_t data[] = {1, 2};
    EXPECT_EQ(Written(host, mp4_write_ipmp_descriptor, Mp4IpmpDescriptor{3, 4, data, 2}),
              Descriptor(11, {3, 0, 4, 1, 2}));
}

}  // namespace
}  // namespace tarn
