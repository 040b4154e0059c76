#include "mp4format/movie/file_index.h"

#include <gtest/gtest.h>

#include "support/fault_check.h"
#include "support/movie_builder.h"

namespace tarn {
namespace {

// Scans `bytes` and gives the index to `look` before all is given back.
template <typename Look>
Mp4Result scan(TestHost& host, const Mp4ScanOptions& options, Look look) {
    Mp4FileIndex index{};
    const Mp4Result result =
        mp4_scan_file(host, host.File(), host.Content(host.File()).size(), options, &index);
    look(index);
    mp4_free_file_index(host, &index);
    return result;
}

Mp4Result scan(const Bytes& bytes) {
    TestHost host(bytes);
    const Mp4Result result = scan(host, {}, [](const Mp4FileIndex&) {});
    EXPECT_EQ(host.LiveBlocks(), 0u);
    return result;
}

size_t count_tracks(const Mp4FileIndex& index) {
    size_t count = 0;
    for (const Mp4TrackIndex* t = index.movie.tracks.head; t; t = t->next)
        ++count;
    return count;
}

TEST(FileIndex, KeepsTheFirstOfEachKind) {
    const Bytes track = Atom("trak", Tkhd({.track_id = 7}), Tkhd({.track_id = 8}),
                             Atom("mdia", Mdhd({.timescale = 11}), Mdhd({.timescale = 12}),
                                  Hdlr("vide", "first"), Hdlr("soun")),
                             Atom("mdia", Hdlr("hint")));
    TestHost host(Join(Ftyp("MSNV", 1, {}), Ftyp("isom", 2, {}),
                       Atom("moov", Mvhd({.timescale = 5}), Mvhd({.timescale = 6}), track),
                       Atom("moov", Mvhd({.version = 9}))));
    EXPECT_EQ(scan(host, {},
                   [&](const Mp4FileIndex& index) {
                       EXPECT_EQ(index.ftyp.offset, 8u);
                       EXPECT_EQ(index.movie.timescale, 5u);
                       ASSERT_EQ(count_tracks(index), 1u);
                       const Mp4TrackIndex& t = *index.movie.tracks.head;
                       EXPECT_EQ(t.track_id, 7u);
                       EXPECT_EQ(t.timescale, 11u);
                       EXPECT_EQ(t.handler_type, fourcc("vide"));
                       EXPECT_EQ(t.handler_name.size, 6u);
                   }),
              FF4_RET_OK)
        << "the broken second movie is not walked";
}

TEST(FileIndex, BrokenPartsFailTheScan) {
    const struct {
        const char* name;
        Bytes bytes;
        Mp4Result result;
    } cases[] = {
        {"empty", {}, FF4_RET_OK},
        {"seven bytes", Bytes(7, 1), FF4_RET_OK},
        {"six bytes behind an atom", Join(Atom("free"), Bytes(6, 1)), FF4_RET_OK},
        {"mvhd of version 2", Atom("moov", Mvhd({.version = 2})), FF4_RET_FORMAT},
        {"trak with a broken child", Atom("moov", Atom("trak", Be32({5, 0}))), FF4_RET_FORMAT},
        {"uuid of 15 bytes", Atom("uuid", Bytes(15, 1)), FF4_RET_FORMAT},
        {"uuid of 16 bytes", Atom("uuid", Bytes(16, 1)), FF4_RET_OK},
        {"profile without its head", Uuid("PROF"), FF4_RET_FORMAT},
        {"profile of more records than there are", Uuid("PROF", Be32({0, 9}), Fprf()), FF4_RET_OK},
        {"licence of a broken atom", Uuid("LICI", Be32({5, 0})), FF4_RET_FORMAT},
        {"text list of 1 byte", Atom("moov", Uuid("USMT", Atom("MTDT", Bytes(1, 0)))),
         FF4_RET_FORMAT},
        {"iods of 3 bytes", Atom("moov", Atom("iods", Bytes(3, 0))), FF4_RET_FORMAT},
        {"moov of 4 bytes", Atom("moov", Bytes(4, 0)), FF4_RET_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(scan(c.bytes), c.result);
    }
}

TEST(FileIndex, RichMovieWithFragments) {
    TestHost host(RichMovie(true).Build());
    const auto look = [&](const Mp4FileIndex& index) {
        ASSERT_NE(index.moofs.head, nullptr);
        EXPECT_EQ(index.moofs.head->next, nullptr) << "the walk ends at the first fragment";
        EXPECT_NE(index.random_access.atom.offset, 0u) << "found by way of the tail";
        EXPECT_TRUE(index.movie.extends.head);
        EXPECT_NE(index.movie.iods_descriptor.offset, 0u);
    };
    EXPECT_EQ(scan(host, {}, look), FF4_RET_OK);
}

TEST(FileIndex, AnAtomAtTheStartCountsAsAbsent) {
    // Accepted: a movie at offset 0 does not hide the next one, whose tracks are added.
    const Bytes moov = Atom("moov", Mvhd(), Atom("trak", Tkhd()));
    TestHost host(Join(moov, moov, moov));
    EXPECT_EQ(scan(host, {}, [](const Mp4FileIndex& index) { EXPECT_EQ(count_tracks(index), 2u); }),
              FF4_RET_OK);
}

TEST(FileIndex, EveryFaultIsReportedAndNothingLeaks) {
    const auto step = [](TestHost& host) {
        return scan(host, {true, true}, [](const Mp4FileIndex&) {});
    };
    ExpectFaultsTold({HostCall::kAlloc, HostCall::kRead, HostCall::kSeek}, RichMovie(true).Build(),
                     step, 15);
}

}  // namespace
}  // namespace tarn
