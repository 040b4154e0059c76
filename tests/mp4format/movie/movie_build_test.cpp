#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "mp4format/atoms/sample_entry_copy.h"
#include "mp4format/movie/movie_build.h"
#include "mp4format/movie/track_ids.h"
#include "mp4format/movie/write_movie.h"
#include "support/atoms.h"
#include "support/test_host.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

// Owns a movie; its host outlives it.
struct Movie {
    explicit Movie(TestHost& at) : host(at) { mp4_init_movie_build(&build); }
    ~Movie() { mp4_free_movie_build(host, &build); }
    TestHost& host;
    Mp4MovieBuild build{};
};

inline Mp4TrackBuild* AddTrack(Movie& movie, const Mp4NewTrack& track = {
                                                 .handler_type = fourcc("soun"), .timescale = 1}) {
    Mp4TrackBuild* made = nullptr;
    EXPECT_EQ(mp4_add_track_build(movie.host, track, &movie.build, &made), FF4_RET_OK);
    return made;
}

constexpr uint64_t k4G = uint64_t{1} << 32;

TEST(MovieBuild, FieldsAreTakenByTheMask) {
    TestHost host;
    Movie movie(host);
    Mp4MovieHeader header{};
    header.rate = 0x00025678;
    header.volume = 0x0342;
    header.creation_time = k4G;
    const Mp4WriteOptions narrow = {kSizeAuto, kVersion0Too, kOffsetAuto};
    EXPECT_EQ(mp4_set_movie_fields(narrow, kFieldTimescale, header, &movie.build), FF4_RET_ARGS);
    EXPECT_EQ(
        mp4_set_movie_fields(narrow, kFieldCreation | kFieldRateInteger, header, &movie.build),
        FF4_RET_STATE);
    EXPECT_EQ(movie.build.header.rate, 0x10000u) << "nothing is taken";
    EXPECT_EQ(mp4_set_movie_fields(narrow, kFieldRateFraction | kFieldVolumeInteger, header,
                                   &movie.build),
              FF4_RET_OK);
    EXPECT_EQ(movie.build.header.rate, 0x15678u);
    EXPECT_EQ(movie.build.header.volume, 0x300);
    EXPECT_EQ(movie.build.header.creation_time, 0u);
}

TEST(MovieBuild, VisibilityAndDurationsPast64Bits) {
    const std::pair<int32_t, int64_t> cases[] = {{0, 0}, {-1, 0}, {1, 7},  {8, 7},
                                                 {2, 6}, {6, 6},  {3, -1}, {7, -1}};
    for (const auto& [visibility, expected] : cases) {
        uint32_t flags = 99;
        const Mp4Result result = mp4_track_flags(visibility, &flags);
        EXPECT_EQ(result, expected < 0 ? FF4_RET_ARGS : FF4_RET_OK) << visibility;
        EXPECT_EQ(flags, expected < 0 ? 99 : expected) << visibility;
    }
    TestHost host;
    Movie movie(host);
    Mp4TrackBuild* track = AddTrack(movie);
    track->media.tables.duration = UINT64_MAX / 1000 + 1;
    uint64_t duration = 0;
    EXPECT_EQ(mp4_track_duration(movie.build, *track, &duration), FF4_RET_OVERFLOW);
    EXPECT_EQ(mp4_longest_track(movie.build, &duration), FF4_RET_OVERFLOW);
}

TEST(TrackIds, TheNextOne) {
    std::vector<uint32_t> all_low(128, 63487);
    std::iota(all_low.begin() + 1, all_low.end(), 1);
    const std::tuple<const char*, std::vector<uint32_t>, uint32_t, uint32_t> cases[] = {
        {"the first", {}, 1, 1},
        {"above the highest, not in a hole", {1, 5}, 6, 6},
        {"the last of the low ones", {126}, 127, 127},
        {"over the gap", {127}, 1024, 1024},
        {"high", {1024}, 1025, 1025},
        {"the last", {63486}, 63487, 63487},
        {"the highest used up: a low one", {63487, 1, 2}, 3, 0xFFFFFFFF},
        {"the low ones too: on from 1024", all_low, 1024, 0xFFFFFFFF},
    };
    for (const auto& [name, given, picked, next] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Movie movie(host);
        const auto with_id = [](uint32_t id) {
            return Mp4NewTrack{.handler_type = fourcc("soun"), .timescale = 1, .track_id = id};
        };
        for (const uint32_t id : given)
            AddTrack(movie, with_id(id));
        EXPECT_EQ(mp4_next_track_id(movie.build), next);
        EXPECT_EQ(AddTrack(movie)->header.track_id, picked);
        for (const uint32_t bad : {128u, 1023u, 63488u, picked}) {
            Mp4TrackBuild* none = nullptr;
            EXPECT_EQ(mp4_add_track_build(host, with_id(bad), &movie.build, &none), FF4_RET_ARGS);
        }
    }
}

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
