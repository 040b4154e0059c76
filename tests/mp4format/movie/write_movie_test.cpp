#include "mp4format/movie/write_movie.h"

#include <gtest/gtest.h>

#include "mp4format/atoms/sample_entry_copy.h"
#include "mp4format/movie/movie_rig.h"
#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

// A movie of two tracks with everything that can be in one.
Mp4Result MakeMovie(TestHost& host, Mp4MovieBuild* movie) {
    Mp4MovieHeader header{};
    header.timescale = 600;
    header.creation_time = header.modification_time = kTestDate;
    FF4_TRY(mp4_set_movie_fields(kOptions, kFieldTimescale | kFieldCreation | kFieldModification,
                                 header, movie));
    const uint8_t object[] = {0x10, 7, 0x00, 0x4F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    FF4_TRY(mp4_copy_block(host, object, sizeof object, &movie->iods));
    Mp4TrackBuild *video = nullptr, *sound = nullptr;
    FF4_TRY(mp4_add_track_build(host,
                                {.handler_type = fourcc("vide"),
                                 .timescale = 30000,
                                 .visibility = 1,
                                 .language = kLanguageUnd,
                                 .width_integer = 320,
                                 .height_integer = 180},
                                movie, &video));
    FF4_TRY(mp4_add_track_build(host,
                                {.handler_type = fourcc("soun"),
                                 .timescale = 48000,
                                 .track_id = 5,
                                 .visibility = 2,
                                 .language = kLanguageUnd},
                                movie, &sound));
    for (Mp4TrackBuild* track : {video, sound}) {
        track->header.creation_time = track->header.modification_time = kTestDate;
        track->media.header.creation_time = track->media.header.modification_time = kTestDate;
        FF4_TRY(mp4_add_data_ref(host, fourcc("url "), nullptr, nullptr, &track->media.refs));
    }
    FF4_TRY(mp4_add_data_ref(host, fourcc("urn "), "where", "name", &sound->media.refs));
    const uint32_t other = 5;
    FF4_TRY(mp4_add_track_reference(host, fourcc("sync"), &other, 1, &video->references));
    FF4_TRY(mp4_add_edit(host, kOptions, {20, -1, 1, 0, nullptr}, &video->edits));
    FF4_TRY(mp4_add_edit(host, kOptions, {600, 1001, 1, 0, nullptr}, &video->edits));
    Mp4SampleEntry entry{};
    entry.data_reference_index = 1;
    entry.kind = kEntryMpeg4Visual;
    FF4_TRY(mp4_copy_sample_entry(host, entry, &video->media.tables.entries));
    entry.kind = kEntryAudio;
    FF4_TRY(mp4_copy_sample_entry(host, entry, &sound->media.tables.entries));
    const Mp4SampleRun pictures[] = {{1, 50, 1001, 1001, true}, {2, 20, 1001, 0, false}};
    const Mp4SampleRun frames[] = {{4, 10, 1024, 0, true}};
    FF4_TRY(mp4_add_chunk(host, &video->media.tables, {1000, 1, pictures, 2}));
    FF4_TRY(mp4_add_chunk(host, &sound->media.tables, {1090, 1, frames, 1}));
    FF4_TRY(mp4_append_copy(host, &movie->extends, Mp4Trex{{}, 5, 1, 1024, 0, 0, nullptr}));
    movie->extends.fragment_duration = 900;
    Mp4MetaItem item{};
    item.type = 10;
    item.language = kLanguageUnd;
    return mp4_add_meta_item(host, item, &movie->user.texts);
}

TEST(WriteMovie, ByteForByte) {
    TestHost host;
    Movie movie(host);
    ASSERT_EQ(MakeMovie(host, &movie.build), FF4_RET_OK);
    const Bytes visual =
        Atom("mp4v", Bytes(6, 0), Be16({1}), Bytes(66, 0), Be16({24, -1}), FullAtom("esds", 0, 0));
    const Bytes audio = Atom("mp4a", Bytes(6, 0), Be16({1}), Bytes(20, 0));
    const Bytes video_tables =
        Atom("stbl", Stsd({visual}), Stts({{3, 1001}}), Ctts({{1, 1001}, {2, 0}}),
             Stsc({{1, 3, 1}}), Stsz({50, 20, 20}), Stco({1000}), Stss({1}));
    const Bytes sound_tables = Atom("stbl", Stsd({audio}), Stts({{4, 1024}}), Stsc({{1, 4, 1}}),
                                    Stsz({10, 10, 10, 10}), Stco({1090}));
    const Bytes video =
        Atom("trak", Tkhd({.track_id = 1, .duration = 620, .width = 320, .height = 180}),
             Atom("tref", Atom("sync", Be32({5}))), Atom("edts", Elst({{20, -1}, {600, 1001}})),
             Atom("mdia", Mdhd({.duration = 3003}), Hdlr("vide", "Video Media Handler"),
                  Atom("minf", MediaHeader("vide"), Atom("dinf", Dref()), video_tables)));
    // 4096 of 48000 are 51.2 of 600.
    const Bytes sound =
        Atom("trak", Tkhd({.flags = 6, .track_id = 5, .duration = 51, .volume = 0x100}),
             Atom("mdia", Mdhd({.timescale = 48000, .duration = 4096}),
                  Hdlr("soun", "Sound Media Handler"),
                  Atom("minf", MediaHeader("soun"),
                       Atom("dinf", Dref({Url(), Urn("name", "where")})), sound_tables)));
    const Bytes expected =
        Atom("moov", Mvhd({.timescale = 600, .duration = 620, .next_track_id = 6}), Iods(), video,
             sound, Atom("mvex", Mehd(900), Trex({.track_id = 5, .duration = 1024})),
             Uuid("USMT", Mtdt({{.type = 10}})));
    EXPECT_EQ(Written(host, mp4_write_moov, &movie.build), expected);
    EXPECT_EQ(movie.build.atom_size, expected.size());
    EXPECT_EQ(movie.build.tracks.head->atom_size, video.size());
    EXPECT_EQ(movie.build.tracks.tail->media.tables.atom_size, sound_tables.size());
}

}  // namespace
}  // namespace tarn
