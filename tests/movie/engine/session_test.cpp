#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

#include "base/xp_file.h"
#include "movie/engine/descriptions.h"
#include "movie/engine/meta_lists.h"
#include "movie/engine/movie_file.h"
#include "movie/engine/samples.h"
#include "movie/engine/session.h"
#include "movie/engine/tracks.h"
#include "movie/objects/track_selection.h"
#include "support/atoms.h"
#include "support/fault_check.h"
#include "support/movie_builder.h"
#include "support/pointer_check.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

TEST(MovieFile, TellsWhyAFileIsNoMovie) {
    TempDir dir;
    using enum ReasonCode;
    const auto write = [&](const char* name, const Bytes& bytes) {
        dir.Write(name, {bytes.begin(), bytes.end()});
        return dir.Path(name);
    };
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    const std::string good = write("good", MovieBuilder{.tracks = {VideoTrack(3)}}.Build());
    const std::tuple<std::string, bool, ReasonCode, int> cases[] = {
        {dir.Path("none"), false, kCantOpen, ENOENT},
        {"", false, kCantOpen, ENOENT},
        {dir.Path(""), false, kCantOpen, EISDIR},
        {dir.Path("pipe"), false, kNotAFile, ESPIPE},
        {write("empty", {}), true, kEmptyFile, 0},
        {write("text", Text("Hello, w")), true, kNotAMovie, 0},
        {write("cut", Ftyp("isom", 0, {})), true, kNoMovieHeader, 0},
        {good, true, kNone, 0},
    };
    for (const auto& [path, opens, code, error] : cases) {
        SCOPED_TRACE(path);
        MovieFile file;
        ASSERT_EQ(file.Open(good), kMovieOk) << "what was open before must not show through";
        EXPECT_EQ(file.Open(path) == kMovieOk, opens);
        EXPECT_EQ(file.Session() != nullptr, opens);
        EXPECT_EQ((file.Flags() & kFileMovie) != 0, code == kNone);
        EXPECT_EQ(file.GetReason().code, code);
        EXPECT_EQ(file.GetReason().SystemError(), error);
        if (code == kNone) continue;
        EXPECT_EQ(file.GetReason().file, path);
        EXPECT_EQ(file.GetReason().side, ReasonSide::kSource);
    }
}

TEST(MovieFile, ReadsWhatTheFileHolds) {
    TempDir dir;
    dir.Write("m", "abcd");
    MovieFile file;
    ASSERT_EQ(file.OpenFile(dir.Path("m")), kMovieOk);
    std::vector<uint8_t> bytes;
    EXPECT_EQ(file.ReadBytes(1, 3, &bytes), kMovieOk);
    EXPECT_EQ(bytes, Text("bcd"));
    EXPECT_EQ(file.ReadBytes(4, 0, &bytes), kMovieOk);
    EXPECT_EQ(file.ReadBytes(2, 3, &bytes), movie_code(FF4_RET_FORMAT));
    EXPECT_EQ(file.ReadBytes(5, UINT64_MAX - 1, &bytes), movie_code(FF4_RET_FORMAT));

    EXPECT_TRUE(file.IsUnchanged());
    std::filesystem::resize_file(dir.Path("m"), 2);  // under the reader's hands
    EXPECT_FALSE(file.IsUnchanged());
    EXPECT_EQ(file.ReadBytes(1, 3, &bytes), kMovieSystem);
    EXPECT_EQ(file.ReasonFor(kMovieSystem).code, ReasonCode::kEndsEarly);
}

Mp4Result open_on(TestHost& host, Mp4ReadSession** session, uint32_t* flags) {
    return mp4_open_read(host, host.File(), {0, 50, 0}, session, flags);
}

// A session on bytes, for the length of a test.
class OpenMovie {
public:
    explicit OpenMovie(Bytes bytes) : m_host(std::move(bytes)) {
        m_result = open_on(m_host, &m_session, &m_flags);
    }
    ~OpenMovie() {
        if (m_session) {
            EXPECT_EQ(mp4_close_read(m_host, m_session), FF4_RET_OK);
        }
    }
    operator Mp4ReadSession*() { return m_session; }
    Mp4Result result() const { return m_result; }
    uint32_t flags() const { return m_flags; }

private:
    TestHost m_host;
    Mp4ReadSession* m_session = nullptr;
    Mp4Result m_result;
    uint32_t m_flags = 0;
};

TEST(Session, PointersAreTestedFirst) {
    ExpectAllPointersTested(
        mp4_get_file_type, mp4_has_compatible_brand, mp4_get_compatible_brand, mp4_get_movie_header,
        mp4_get_movie_extent, mp4_get_movie_duration, mp4_get_track_count, mp4_get_track_header,
        mp4_get_media_header, mp4_get_handler, mp4_get_tables_duration, mp4_get_track_duration,
        mp4_get_track_fragment_defaults, mp4_open_edit_list, mp4_get_edit_count, mp4_get_edit_entry,
        mp4_close_edit_list, mp4_open_data_refs, mp4_get_data_ref, mp4_close_data_refs,
        mp4_open_sample_entries, mp4_get_sample_entry_count, mp4_close_sample_entries,
        mp4_get_sample_entry, mp4_get_video_entry, mp4_get_audio_entry, mp4_get_decoder_config_size,
        mp4_get_avc_config_info, mp4_get_sps_size, mp4_get_pps_size, mp4_open_meta_texts,
        mp4_open_meta_files, mp4_close_meta_list, mp4_get_meta_text, mp4_get_meta_file,
        mp4_get_meta_data, mp4_find_meta_text, mp4_get_track_role, mp4_get_profile_counts,
        mp4_get_file_profile, mp4_get_video_profile, mp4_get_audio_profile, mp4_get_sample_count,
        mp4_get_sample_info, mp4_get_total_sample_count, mp4_get_range_bytes, mp4_get_alike_samples,
        mp4_next_sync_number, mp4_get_numbered_sample, mp4_find_sample_at_time,
        mp4_get_sample_number_at_time, mp4_next_sync_sample, mp4_find_sync_after_time,
        mp4_get_sample_info_at_time);
    for (const auto function : {mp4_open_track, mp4_close_track}) {
        EXPECT_EQ(function(nullptr, 1), FF4_RET_ARGS);
        EXPECT_EQ(function(OpenMovie(Atom("moov")), 0), FF4_RET_ARGS);
    }
}

TEST(Session, FlagsTellWhatWasFound) {
    const Bytes extra = Be32({0x508E0CF1, 0x21864CCF, 0xAAB26344, 0xD2498006});
    const std::tuple<Bytes, uint32_t> cases[] = {
        {Bytes{}, 0},
        {Ftyp("isom", 0, {}), kFileType},
        {Join(Atom("free"), Atom("moov")), kFileMovie},
        {Join(Atom("free"), Atom("moov", Mvhd(), Atom("mvex", Mehd(9), Trex()))),
         kFileMovie | kFileMovieExtends | kFileTrackDefaults},
        {Join(Atom("free"), Prof(), Uuid("LICI"), Uuid("MTSD"), Atom("mdri"), Atom("uuid", extra)),
         kFileProfile | kFileLicence | kFileMtsd | kFileMdri | kFileExtra},
        {Join(Atom("free"), Atom("moov", Uuid("USMT"))), kFileMovie | kFileMovieUser},
    };
    for (const auto& [bytes, flags] : cases) {
        OpenMovie movie(bytes);
        EXPECT_EQ(movie.result(), FF4_RET_OK);
        EXPECT_EQ(movie.flags(), flags);
    }
}

TEST(Session, TracksOpenOnceAndCloseOnce) {
    OpenMovie movie(RichMovie().Build());
    ASSERT_EQ(mp4_open_track(movie, 1), FF4_RET_OK);
    ASSERT_EQ(mp4_open_track(movie, 1), FF4_RET_OK);
    ASSERT_EQ(mp4_open_track(movie, 2), FF4_RET_OK);
    EXPECT_EQ(mp4_close_track(movie, 1), FF4_RET_OK);
    EXPECT_EQ(mp4_close_track(movie, 1), FF4_RET_STATE);
    Mp4SampleInfo sample{};
    EXPECT_EQ(mp4_get_sample_info(movie, 1, 1, &sample), FF4_RET_STATE);
    EXPECT_EQ(mp4_get_sample_info(movie, 2, 1, &sample), FF4_RET_OK);
    ASSERT_EQ(mp4_open_track(movie, 1), FF4_RET_OK);
    EXPECT_EQ(mp4_get_sample_info(movie, 1, 1, &sample), FF4_RET_OK);
}

TEST(Session, DurationIsTheLongestCountingTrack) {
    MovieTrack video = VideoTrack(30);  // 1.001 s
    MovieTrack sound = SoundTrack(94);  // 94 * 1024 / 48000 = 2.005 s
    const auto duration_of = [](MovieBuilder builder) {
        OpenMovie movie(builder.Build());
        uint64_t duration = 0;
        EXPECT_EQ(mp4_get_movie_duration(movie, &duration), FF4_RET_OK);
        return duration;
    };
    EXPECT_EQ(duration_of({.tracks = {video, sound}}), 2005u);
    EXPECT_EQ(duration_of({.tracks = {video, sound}, .timescale = 0}), 0u);
    video.edits = {{500, -1}, {2500, 0}};
    EXPECT_EQ(duration_of({.tracks = {video, sound}}), 3000u) << "edits come before the tables";
    video.role = 2;
    EXPECT_EQ(duration_of({.tracks = {video, sound}}), 2005u) << "not the main picture";
    video.role = 1;
    EXPECT_EQ(duration_of({.tracks = {video, sound}}), 3000u);
}

TEST(Session, ListsHandOutTheirEntries) {
    MovieBuilder builder = RichMovie();
    builder.moov_extra =
        Atom("mvex", Trex({.track_id = 2, .description = 3, .duration = 4, .size = 5, .flags = 6}));
    OpenMovie movie(builder.Build());
    for (const uint32_t track : {1u, 2u, 3u})
        ASSERT_EQ(mp4_open_track(movie, track), FF4_RET_OK);

    Mp4TrackFragmentDefaults defaults{};
    EXPECT_EQ(mp4_get_track_fragment_defaults(movie, 1, &defaults), FF4_RET_NOTFOUND);
    EXPECT_EQ(mp4_get_track_fragment_defaults(movie, 9, &defaults), FF4_RET_NOTFOUND);
    Mp4TrackHeaderInfo header{};
    EXPECT_EQ(mp4_get_track_header(movie, 9, &header), FF4_RET_NOTFOUND);
    ASSERT_EQ(mp4_get_track_fragment_defaults(movie, 2, &defaults), FF4_RET_OK);
    EXPECT_EQ((std::vector{defaults.track_id, defaults.description_index, defaults.duration,
                           defaults.size, defaults.flags}),
              (std::vector<uint32_t>{2, 3, 4, 5, 6}));

    Mp4EditList* edits = nullptr;
    uint32_t count = 0;
    Mp4EditEntry edit{};
    ASSERT_EQ(mp4_open_edit_list(movie, 1, &edits), FF4_RET_OK);
    EXPECT_EQ(mp4_get_edit_count(movie, edits, &count), FF4_RET_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(mp4_get_edit_entry(movie, edits, 2, &edit), FF4_RET_OK);
    EXPECT_EQ(edit.segment_duration, 1200u);
    for (const uint32_t outside : {0u, 3u})
        EXPECT_EQ(mp4_get_edit_entry(movie, edits, outside, &edit), FF4_RET_NOTFOUND);
    EXPECT_EQ(mp4_close_edit_list(movie, edits), FF4_RET_OK);
}

TEST(Session, DescriptionsHandOutConfigurationsAndSets) {
    OpenMovie movie(RichMovie().Build());
    Mp4SampleEntries* of[4] = {};  // AVC and MPEG-4, AAC, PCM
    for (const uint32_t track : {1u, 2u, 3u}) {
        ASSERT_EQ(mp4_open_track(movie, track), FF4_RET_OK);
        ASSERT_EQ(mp4_open_sample_entries(movie, track, &of[track]), FF4_RET_OK);
    }
    uint32_t size = 0;
    uint8_t bytes[64];
    EXPECT_EQ(mp4_get_decoder_config_size(movie, of[1], 1, &size), FF4_RET_STATE) << "AVC";
    EXPECT_EQ(mp4_get_decoder_config_size(movie, of[3], 1, &size), FF4_RET_NOTFOUND) << "PCM";
    ASSERT_EQ(mp4_get_decoder_config_size(movie, of[2], 1, &size), FF4_RET_OK);
    EXPECT_EQ(size, 27u);
    EXPECT_EQ(mp4_get_decoder_config(movie, of[2], 1, size - 1, bytes), FF4_RET_ARGS);
    ASSERT_EQ(mp4_get_decoder_config(movie, of[2], 1, size, bytes), FF4_RET_OK);
    EXPECT_EQ(bytes[0], 3) << "the descriptor's own tag";
    EXPECT_EQ(bytes[23] << 8 | bytes[22], 0x9011) << "AAC-LC, 48 kHz, stereo";

    const auto expect_set = [&](auto get_size, auto get, uint32_t length, uint8_t first) {
        EXPECT_EQ(get_size(movie, of[1], 2, 1, &size), FF4_RET_STATE) << "MPEG-4";
        EXPECT_EQ(get_size(movie, of[1], 1, 2, &size), FF4_RET_NOTFOUND);
        ASSERT_EQ(get_size(movie, of[1], 1, 1, &size), FF4_RET_OK);
        EXPECT_EQ(size, length);
        EXPECT_EQ(get(movie, of[1], 1, 1, size - 1, bytes), FF4_RET_ARGS);
        ASSERT_EQ(get(movie, of[1], 1, 1, size, bytes), FF4_RET_OK);
        EXPECT_EQ(bytes[0], first);
    };
    expect_set(mp4_get_sps_size, mp4_get_sps, 23, 0x67);
    expect_set(mp4_get_pps_size, mp4_get_pps, 4, 0x68);
    Mp4VideoEntry video{};
    Mp4AudioEntry audio{};
    EXPECT_EQ(mp4_get_video_entry(movie, of[2], 1, &video), FF4_RET_STATE);
    EXPECT_EQ(mp4_get_audio_entry(movie, of[1], 1, &audio), FF4_RET_STATE);
    for (Mp4SampleEntries* entries : {of[1], of[2], of[3]})
        EXPECT_EQ(mp4_close_sample_entries(movie, entries), FF4_RET_OK);
}

Mp4Result visit_track(Mp4ReadSession* session, uint32_t track) {
    FF4_TRY(mp4_open_track(session, track));
    Mp4DataRefs* refs = nullptr;
    FF4_TRY(mp4_open_data_refs(session, track, &refs));
    FF4_TRY(mp4_close_data_refs(session, refs));
    Mp4MetaList* texts = nullptr;
    const Mp4Result opened = mp4_open_meta_texts(session, track, &texts);
    if (opened == FF4_RET_OK) FF4_TRY(mp4_close_meta_list(session, texts));
    if (opened != FF4_RET_OK && opened != FF4_RET_NOTFOUND) return opened;
    uint32_t count = 0;
    uint64_t start = 0;
    Mp4SampleInfo info{};
    FF4_TRY(mp4_get_total_sample_count(session, track, &count));
    for (const uint32_t number : {1u, count})
        FF4_TRY(mp4_get_numbered_sample(session, track, number, &start, &info));
    return FF4_RET_OK;
}

// Reads of a session all that it has.
Mp4Result visit_all(TestHost& host) {
    Mp4ReadSession* session = nullptr;
    uint32_t flags = 0, tracks = 0, chosen = 0;
    uint64_t duration = 0;
    CMovieInfoType info;
    FF4_TRY(open_on(host, &session, &flags));
    Mp4Result result = mp4_get_movie_duration(session, &duration);
    if (result == FF4_RET_OK) result = SelectTracks(session, true, &info, &chosen);
    if (result == FF4_RET_OK && chosen != 2) result = FF4_RET_INTERNAL;  // no fault loses a track
    FF4_TRY(mp4_get_track_count(session, &tracks));
    for (uint32_t track = 1; track <= tracks && result == FF4_RET_OK; ++track)
        result = visit_track(session, track);
    FF4_TRY(mp4_close_read(host, session));
    return result;
}

TEST(Session, EveryFaultIsReportedAndNothingLeaks) {
    ExpectFaultsTold({HostCall::kAlloc, HostCall::kRead, HostCall::kSeek, HostCall::kSize},
                     RichMovie(false).Build(), visit_all);
}

// A sample is looked up once and those like it follow from it: as if each were looked up.
TEST(Session, SamplesThatFollowFromOthersAreThoseOfTheTables) {
    const Bytes ftyp = Ftyp("isom", 0, {"isom"});
    const auto movie = [&](const Bytes& stts, const Bytes& ctts, const Bytes& sizes,
                           const Bytes& stss, const Bytes& rest = {}) {
        return Join(ftyp,
                    Atom("moov", Mvhd(),
                         Atom("trak", Tkhd(),
                              Atom("mdia", Mdhd({}), Hdlr("vide"),
                                   Atom("minf", MediaHeader("vide"), Atom("dinf", Dref()),
                                        Atom("stbl", Stsd({Avc1()}), stts, ctts,
                                             Stsc({{1, 5, 1}, {3, 2, 1}}), sizes,
                                             Stco({100, 500, 900, 950, 990}), stss)))),
                         rest.empty() ? rest : Atom("mvex", Trex({.duration = 7, .size = 3}))),
                    rest);
    };
    const Bytes times = Stts({{3, 10}, {9, 20}, {4, 0}});
    const std::vector<uint32_t> sizes = {4, 4, 4, 5, 5, 5, 5, 5, 0, 0, 9, 9, 9, 9, 9, 9};
    const Bytes runs = Moof(
        1, {Atom("traf", Tfhd(), Trun({.first_flags = 0x10000, .count = 4}), Trun({.count = 3}),
                 Trun({.row_flags = 0x200, .count = 2, .words = {8, 6}}))});
    const Bytes cases[] = {
        movie(times, {}, StszConstant(4, 16), {}),
        movie(times, Ctts({{7, 5}, {1, 6}, {8, 5}}), StszConstant(4, 16), Stss({})),
        movie(times, {}, Stsz(sizes), Stss({1, 2, 3, 7, 8, 12})),
        movie(Stts({{16, 1}}), {}, Stz2(4, sizes), Stss({4, 5})),
        movie(times, {}, StszConstant(4, 16), {}, runs),
    };
    for (const Bytes& bytes : cases) {
        OpenMovie walked(bytes), looked_up(bytes);
        uint32_t count = 0;
        ASSERT_EQ(mp4_open_track(walked, 1), FF4_RET_OK);
        ASSERT_EQ(mp4_get_total_sample_count(walked, 1, &count), FF4_RET_OK);
        EXPECT_EQ(count, &bytes == &cases[4] ? 25u : 16u);
        uint64_t sum = 0, bytes_in_all = 0;
        for (uint32_t n = 1; n <= count; ++n) {
            uint64_t start = 0, expected_start = 0;
            Mp4SampleInfo info{}, expected{};
            ASSERT_EQ(mp4_get_numbered_sample(walked, 1, n, &start, &info), FF4_RET_OK);
            ASSERT_EQ(mp4_open_track(looked_up, 1), FF4_RET_OK);  // anew, with nothing kept
            ASSERT_EQ(mp4_get_numbered_sample(looked_up, 1, n, &expected_start, &expected),
                      FF4_RET_OK);
            ASSERT_EQ(mp4_close_track(looked_up, 1), FF4_RET_OK);
            EXPECT_EQ(start, expected_start) << n;
            const auto all = [](const Mp4SampleInfo& i) {
                return std::tuple(i.size, i.offset, i.duration, i.isSync, i.compositionOffset,
                                  i.compositionSigned, i.descriptionIndex);
            };
            EXPECT_EQ(all(info), all(expected)) << n;
            sum += info.size;
        }
        EXPECT_EQ(mp4_get_range_bytes(walked, 1, 1, count, &bytes_in_all), FF4_RET_OK);
        EXPECT_EQ(bytes_in_all, sum);
    }
}

TEST(Session, OpeningTwentyGigabytesReadsHeadersOnly) {
    // The movie of a small clip after twenty gigabytes of nothing.
    const Bytes clip = MovieBuilder{.tracks = {VideoTrack(2000), SoundTrack(60)}}.Build();
    const size_t moov = AtomAt(clip, "moov");
    const uint64_t media = uint64_t{20} << 30;
    TempDir dir;
    dir.Write("long.mp4", "");
    XpFile file;
    ASSERT_EQ(file.Open(dir.Path("long.mp4"), XpFile::Mode::kReadWrite), 0);
    const Bytes head = Join(Ftyp("isom", 0, {}), Be32({1, fourcc("mdat")}), Be64({media}));
    const auto end = static_cast<off_t>(head.size() - 16 + media);
    ASSERT_GT(pwrite(file.Descriptor(), head.data(), head.size(), 0), 0);
    ASSERT_GT(pwrite(file.Descriptor(), &clip[moov], clip.size() - moov, end), 0);

    TestHost host;
    host.AddDescriptor(file.Descriptor());
    Mp4ReadSession* session = nullptr;
    uint32_t flags = 0;
    ASSERT_EQ(open_on(host, &session, &flags), FF4_RET_OK);
    EXPECT_LT(host.BytesRead(), 4096u) << "no table is read";
    EXPECT_EQ(mp4_close_read(host, session), FF4_RET_OK);
}

}  // namespace
}  // namespace tarn
