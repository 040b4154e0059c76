#include "mp4format/movie/file_index.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"

namespace tarn {
namespace {

// The index of a file, while it lives.
struct Scan {
    explicit Scan(const Bytes& bytes) : host(bytes) {
        result = mp4_scan_file(host, host.File(), bytes.size(), {}, &index);
    }
    ~Scan() { mp4_free_file_index(host, &index); }
    TestHost host;
    Mp4FileIndex index{};
    Mp4Result result;
};

TEST(FileIndex, KeepsTheFirstOfEachKind) {
    const Bytes track = Atom("trak", Tkhd({.track_id = 7}), Tkhd({.track_id = 8}),
                             Atom("mdia", Mdhd({.timescale = 11}), Mdhd({.timescale = 12}),
                                  Hdlr("vide", "first"), Hdlr("soun")),
                             Atom("mdia", Hdlr("hint")));
    const Scan scan(Join(Ftyp("MSNV", 1, {}), Ftyp("isom", 2, {}),
                         Atom("moov", Mvhd({.timescale = 5}), Mvhd({.timescale = 6}), track),
                         Atom("moov", Mvhd({.version = 9}))));
    ASSERT_EQ(scan.result, FF4_RET_OK) << "the broken second movie is not walked";
    EXPECT_EQ(scan.index.ftyp.offset, 8u);
    EXPECT_EQ(scan.index.movie.timescale, 5u);
    const Mp4TrackIndex& t = *scan.index.movie.tracks.head;
    EXPECT_EQ(t.next, nullptr);
    EXPECT_EQ(t.facts->track_id, 7u);
    EXPECT_EQ(t.facts->timescale, 11u);
    EXPECT_EQ(t.facts->handler_type, fourcc("vide"));
    EXPECT_EQ(t.facts->handler_name.size, 6u);
}

TEST(FileIndex, BrokenPartsFailTheScan) {
    const Bytes texts = Atom("moov", Uuid("USMT", Atom("MTDT", Bytes(1, 0))));
    constexpr Mp4Result kOk = FF4_RET_OK, kBad = FF4_RET_FORMAT;
    const std::tuple<const char*, Bytes, Mp4Result> cases[] = {
        {"empty", {}, kOk},
        {"seven bytes", Bytes(7, 1), kOk},
        {"six bytes behind an atom", Join(Atom("free"), Bytes(6, 1)), kOk},
        {"mvhd of version 2", Atom("moov", Mvhd({.version = 2})), kBad},
        {"trak with a broken child", Atom("moov", Atom("trak", Be32({5, 0}))), kBad},
        {"uuid of 15 bytes", Atom("uuid", Bytes(15, 1)), kBad},
        {"uuid of 16 bytes", Atom("uuid", Bytes(16, 1)), kOk},
        {"profile without its head", Uuid("PROF"), kBad},
        {"a profile of too many records", Uuid("PROF", Be32({0, 9}), Fprf()), kOk},
        {"licence of a broken atom", Uuid("LICI", Be32({5, 0})), kBad},
        {"text list of 1 byte", texts, kBad},
        {"iods of 3 bytes", Atom("moov", Atom("iods", Bytes(3, 0))), kBad},
        {"moov of 4 bytes", Atom("moov", Bytes(4, 0)), kOk},
    };
    for (const auto& [name, bytes, result] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Scan(bytes).result, result);
    }
}

TEST(FileIndex, AnAtomAtTheStartCountsAsAbsent) {
    // Accepted: a movie at offset 0 does not hide the next one, whose tracks are added.
    const Bytes moov = Atom("moov", Mvhd(), Atom("trak", Tkhd()));
    const Scan scan(Join(moov, moov, moov));
    ASSERT_EQ(scan.result, FF4_RET_OK);
    EXPECT_EQ(scan.index.movie.tracks.head->next, scan.index.movie.tracks.tail);
}

}  // namespace
}  // namespace tarn
