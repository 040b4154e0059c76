#include "movie/objects/movie_reader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "movie/waveform/waveform_movie.h"
#include "support/failing_reads.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

// A movie on disk and a reader on it.
template <typename Reader>
struct Opened {
    explicit Opened(const Bytes& bytes) {
        dir.Write("movie.mp4", {bytes.begin(), bytes.end()});
        size = bytes.size();
        reader.SetPath(dir.Path("movie.mp4"));
        code = reader.Open();
    }
    TempDir dir;
    Reader reader;
    MovieCode code;
    size_t size;
};

// Opens a movie and reads all of it.
MovieCode read_all(CMP4MovieRead* movie, uint32_t* samples) {
    *samples = 0;
    MOVIE_TRY(movie->Open());
    CReadBuffer buffer;
    ReadSampleInfo info;
    for (const auto next : {&CMP4MovieRead::ReadVideoSample, &CMP4MovieRead::ReadAudioSample}) {
        for (;; ++*samples) {
            const MovieCode code = (movie->*next)(&buffer, &info);
            if (code == kMovieEndOfSamples) break;
            MOVIE_TRY(code);
        }
    }
    return kMovieOk;
}

TEST(MovieReader, DamagedFilesAnswerAsExpected) {
    std::ifstream lines(TARN_TEST_DATA "/broken/expected.jsonl");
    std::string line;
    int files = 0;
    while (std::getline(lines, line)) {
        const auto expected = nlohmann::json::parse(line);
        SCOPED_TRACE(line);
        CMP4MovieReader reader;
        reader.SetPath(TARN_TEST_DATA "/broken/" + expected["file"].get<std::string>());
        const MovieCode code = reader.Open();
        ++files;
        WFMP4Reader waveform;
        EXPECT_TRUE(waveform.Open(reader.Path(), 1120))
            << "whatever is in it, something comes back";
        EXPECT_LT(waveform.GetCount(), 1000000u);
        EXPECT_EQ(!waveform.GetReason(), waveform.Fault() == WaveformFault::kNone);
        if (expected["load"].is_number()) {
            EXPECT_EQ(code, expected["load"]);
        }
        if (code != kMovieOk || expected["tracks"].is_null()) continue;
        EXPECT_EQ(reader.GetInfo().video.trackNumber, expected["tracks"][0]);
        EXPECT_EQ(reader.GetInfo().audio.trackNumber, expected["tracks"][1]);
    }
    EXPECT_GT(files, 80);
}

using Figures = std::vector<uint64_t>;

TEST(MovieReader, OnlyTheChosenTracksCanRefuseAClip) {
    MovieTrack texts{.handler = "text", .timescale = 1, .samples = {{4, 1}}};
    Bytes good = MovieBuilder{.tracks = {texts, VideoTrack(24), SoundTrack(9)},
                              .moov_extra = Atom("trak", Atom("mdia", Hdlr("text")))}
                     .Build();
    good[AtomAt(good, "moov/trak/mdia/mdhd") + 23] = 0;
    const auto with = [&](const std::string& table, size_t at, uint8_t number) {
        Bytes bytes = good;
        bytes[AtomAt(bytes, "moov/trak:2/mdia/minf/stbl/" + table) + at] = number;
        return bytes;
    };
    // damaged: atom, 0: none
    const std::tuple<const char*, Bytes, uint32_t> cases[] = {
        {"tracks of text without time or tables", good, 0},
        {"times that go on after the last sample", with("stts", 19, 99), 0},
        {"sync samples out of order", with("stss", 19, 20), fourcc("stss")},
        {"a description that is not there", with("stsc", 27, 2), fourcc("stsc")}};
    for (const auto& [name, clip, damaged] : cases) {
        SCOPED_TRACE(name);
        Opened<CMP4MovieReader> shown(clip);
        Opened<CMP4MovieRead> walked(clip);
        ASSERT_EQ(shown.code, damaged ? movie_code(FF4_RET_FORMAT) : kMovieOk);
        ASSERT_EQ(walked.code, shown.code);
        if (damaged != 0) {
            EXPECT_EQ(walked.reader.GetReason().arguments.at(0),
                      ReasonArgument(ReasonAtom{damaged}));
            continue;
        }
        uint64_t in = 0, out = 24 * 1001 / 30 + 500;
        EXPECT_EQ(walked.reader.SelectRange(&in, &out, false), kMovieOk);
        EXPECT_EQ(walked.reader.GetSelectedSampleCount(), 24u);
    }
}

TEST(MovieReader, TheRecordHoldsWhatTheFileSays) {
    MovieBuilder builder = RichMovie();
    builder.tracks[1].edits = {{1280, 1024, 3}};
    const Opened<CMP4MovieRead> movie(builder.Build());
    ASSERT_EQ(movie.code, kMovieOk);
    const CMovieInfoType& info = movie.reader.GetInfo();
    const Mp4Date& made = info.creationDate;
    EXPECT_EQ((Figures{made.year, made.month, made.day, made.hour, made.minute, made.second}),
              (Figures{2008, 9, 24, 14, 32, 32}));
    const MovieTrackInfo &video = info.video, &audio = info.audio;
    // The picture's edits are the longest: 100 and 1200 ms.
    EXPECT_EQ((Figures{info.timescale, info.editTimescale, info.duration, info.editDuration,
                       movie.reader.GetDurationMs(), info.videoDurationMovie}),
              (Figures{1000, 1000, 1300, 1300, 1300, 40040}));
    const auto of = [](const MovieTrackInfo& track) {
        return Figures{track.duration,        track.timescale,      track.sampleCount,
                       track.defaultDuration, track.averageBitRate, track.maximumBitRate};
    };
    EXPECT_EQ(of(video), (Figures{40040, 30000, 40, 1001, 3000, 4000}));
    EXPECT_EQ(of(audio), (Figures{61440, 48000, 60, 1024, 96, 128}));
    ASSERT_EQ(video.edits.size() * 10 + audio.edits.size(), 21u);
    EXPECT_EQ(video.edits[0].segmentDuration, 100u);
    EXPECT_EQ(video.edits[0].mediaTime, -1);
    EXPECT_EQ(video.edits[1].rate, 0x10000u);
    EXPECT_EQ(audio.edits[0].mediaTime, 1024);
    EXPECT_EQ(audio.edits[0].rate, 0x30000u);

    ASSERT_EQ(info.videoDescriptions.size() * 10 + info.audioDescriptions.size(), 21u);
    EXPECT_EQ(movie.reader.FindVideoDescription(2), 2u);
    EXPECT_EQ(movie.reader.FindVideoDescription(3), 0u);
    EXPECT_FALSE(info.videoDescriptions[1].decoderConfig.empty());
    ASSERT_EQ(info.metaData.size() * 10 + info.metaTypes.size(), 21u);
    EXPECT_EQ(info.metaData[0].data, Be16({'H', 'i'}));
    EXPECT_EQ(info.metaData[1].index, 2u);
    EXPECT_EQ(info.metaTypes[0].data, Be16({'H', 'i'}));
    EXPECT_EQ(movie.reader.GetFileSize(), static_cast<int64_t>(movie.size));
}

template <typename T>
MovieTrack with(MovieTrack track, T MovieTrack::*member, std::type_identity_t<T> value) {
    track.*member = std::move(value);
    return track;
}

TEST(MovieReader, ChoosesTheFirstServedTrackOfEachKind) {
    const auto entry = &MovieTrack::entries, refs = &MovieTrack::refs;
    const auto role = &MovieTrack::role;
    const MovieTrack video = VideoTrack(10), sound = SoundTrack(10);
    const MovieTrack hevc = with(video, entry, {VisualEntry({.format = "hvc1"})});
    const MovieTrack ac3 = with(sound, entry, {AudioEntry({.format = "ac-3"})});
    const MovieTrack sowt = with(sound, entry, {AudioEntry({.format = "sowt"})});
    const MovieTrack elsewhere = with(video, refs, {Url("file:x")});
    const MovieTrack here = with(video, refs, {FullAtom("url ", 0, 0, TextZ(""))});
    const MovieTrack second = with(video, role, 2), main_video = with(video, role, 1);
    const MovieTrack main_sound = with(sound, role, 1);
    const MovieTrack data = with(video, &MovieTrack::handler, "meta");
    const std::tuple<const char*, std::vector<MovieTrack>, MovieCode, uint32_t, uint32_t, bool>
        cases[] = {
            {"both", {video, sound}, kMovieOk, 1, 2, false},
            {"sound first", {sound, video}, kMovieOk, 2, 1, false},
            {"two of a kind", {video, video, sound, sound}, kMovieOk, 1, 3, false},
            {"sound alone", {sound}, kMovieOk, 0, 1, false},
            {"PCM", {with(sound, entry, {Twos()})}, kMovieOk, 0, 1, false},
            {"little-endian PCM", {sowt}, kMovieOk, 0, 1, false},
            {"nothing served", {hevc, ac3}, kMovieNoTrack, 0, 0, false},
            {"one that is off", {with(video, &MovieTrack::flags, 6), video}, kMovieOk, 2, 0, false},
            {"a served one behind", {hevc, video}, kMovieOk, 2, 0, false},
            {"samples elsewhere", {elsewhere, sound}, kMovieOk, 0, 2, false},
            {"an empty location is here", {here}, kMovieOk, 1, 0, false},
            {"no reference is here", {with(video, refs, {})}, kMovieOk, 1, 0, false},
            {"other roles are passed over", {second, main_video, main_sound}, kMovieOk, 2, 3, true},
            {"no role ends the choice", {main_sound, video}, kMovieOk, 0, 1, true},
            {"another kind of track", {data, sound}, kMovieOk, 0, 2, false},
            {"none", {}, kMovieNoTrack, 0, 0, false},
        };
    for (const auto& [name, tracks, code, due_video, audio, camera] : cases) {
        SCOPED_TRACE(name);
        const Opened<CMP4MovieReader> movie(
            MovieBuilder{.tracks = tracks, .camera = camera}.Build());
        EXPECT_EQ(movie.code, code);
        if (movie.code != kMovieOk) continue;
        EXPECT_EQ(movie.reader.GetInfo().video.trackNumber, due_video);
        EXPECT_EQ(movie.reader.GetInfo().audio.trackNumber, audio);
    }
}

TEST(MovieRead, NamesTheAtomAtFaultAndWhoseItIs) {
    // path: of the atom, then the four bytes that are changed, and to what
    const std::tuple<const char*, MovieTrack, const char*, size_t, uint32_t, ReasonCode, uint32_t>
        cases[] = {
            {"a second run of empty chunks", SoundTrack(30), "moov/trak/mdia/minf/stbl/stsc", 32, 0,
             ReasonCode::kDamagedSoundAtom, fourcc("stsc")},
            {"no timescale", VideoTrack(3), "moov/trak/mdia/mdhd", 20, 0,
             ReasonCode::kDamagedPictureAtom, fourcc("mdhd")},
        };
    for (const auto& [name, track, path, at, value, code, atom] : cases) {
        SCOPED_TRACE(name);
        Bytes bytes = MovieBuilder{.tracks = {track}}.Build();
        put_be32(&bytes[AtomAt(bytes, path) + at], value);
        Opened<CMP4MovieRead> movie(bytes);
        uint32_t samples = 0;
        EXPECT_NE(read_all(&movie.reader, &samples), kMovieOk);
        EXPECT_EQ(movie.reader.GetReason(),
                  (Reason{code, ReasonSide::kSource, movie.reader.Path(), {ReasonAtom{atom}}}));
    }
}

TEST(MovieRead, WalksEverySampleOfBothKindsOfFile) {
    for (const uint32_t fragment : {0u, 7u}) {
        SCOPED_TRACE(fragment);
        MovieBuilder builder{.tracks = {VideoTrack(40, 12, 2), SoundTrack(50)}};
        builder.fragment_samples = fragment;
        builder.plain_samples = 12;
        Opened<CMP4MovieRead> movie(builder.Build());
        ASSERT_EQ(movie.code, kMovieOk);
        EXPECT_EQ(movie.reader.GetSelectedSampleCount(), 40u);
        CReadBuffer buffer;
        ReadSampleInfo info;
        const auto& truth = builder.tracks[0].samples;
        for (size_t i = 0; i < truth.size(); ++i) {
            ASSERT_EQ(movie.reader.ReadVideoSample(&buffer, &info), kMovieOk) << i;
            EXPECT_EQ(buffer.data, SampleContent(1, i + 1, truth[i].size));
            EXPECT_EQ(
                std::tuple(info.duration, info.compositionOffset, info.isSync, info.description),
                std::tuple(truth[i].duration, truth[i].composition, truth[i].sync, 1u));
        }
        EXPECT_EQ(movie.reader.ReadVideoSample(&buffer, &info), kMovieEndOfSamples);
        EXPECT_EQ(movie.reader.ReadAudioSample(&buffer, &info), kMovieOk)
            << "the tracks have cursors of their own";
        movie.reader.UnreadSample(CMP4MovieRead::Track::kAudio);
        EXPECT_EQ(movie.reader.ReadAudioSample(&buffer, &info), kMovieOk);
        EXPECT_EQ(buffer.data, SampleContent(2, 1, buffer.size())) << "given back, read again";
    }
}

TEST(MovieRead, ASamplePastTheEndOfTheFileIsRefused) {
    Bytes bytes = MovieBuilder{.tracks = {VideoTrack(5)}, .moov_first = true}.Build();
    put_be32(&bytes[AtomAt(bytes, "moov/trak/mdia/minf/stbl/stsz") + 20 + 4 * 4], 0x7FFFFFFF);
    Opened<CMP4MovieRead> movie(bytes);
    ASSERT_EQ(movie.code, kMovieOk);
    CReadBuffer buffer;
    ReadSampleInfo info;
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(movie.reader.ReadVideoSample(&buffer, &info), kMovieOk);
    EXPECT_EQ(movie.reader.ReadVideoSample(&buffer, &info), movie_code(FF4_RET_FORMAT));
    EXPECT_LT(buffer.data.capacity(), 1u << 20);
    EXPECT_EQ(movie.reader.GetReason().code, ReasonCode::kDamagedSample);
    EXPECT_EQ(movie.reader.GetReason().arguments, std::vector<ReasonArgument>{uint64_t{5}});
    EXPECT_EQ(movie.reader.GetCursor(CMP4MovieRead::Track::kVideo).currentSample, 5u);
}

TEST(MovieRead, EveryFailedReadIsToldAndTheNextOpenIsWhole) {
    Opened<CMP4MovieRead> movie(MovieBuilder{.tracks = {VideoTrack(4), SoundTrack(3)}}.Build());
    uint32_t samples = 0;
    for (uint64_t n = 1;; ++n) {
        SCOPED_TRACE(n);
        std::optional<FailingReads> fail(n);
        const MovieCode code = read_all(&movie.reader, &samples);
        fail.reset();
        if (!FailingReads::Met()) {
            EXPECT_GT(n, 30u);
            break;
        }
        if (code == kMovieOk) {  // it was read ahead in vain, and then by itself
            EXPECT_EQ(samples, 7u);
            continue;
        }
        EXPECT_TRUE(code == kMovieSystem || code == movie_code(FF4_RET_FILE)) << code;
        const std::string path = movie.reader.Path();
        EXPECT_EQ(movie.reader.GetReason(),
                  (Reason{ReasonCode::kCantRead, ReasonSide::kSource, path, {ReasonError{EIO}}}));
        if (!movie.reader.Session()) {
            TrackCursor cursor{1};
            CReadBuffer buffer;
            ReadSampleInfo info;
            EXPECT_EQ(movie.reader.ReadSample(&cursor, &buffer, &info), movie_code(FF4_RET_STATE));
        }
        ASSERT_EQ(read_all(&movie.reader, &samples), kMovieOk);
        EXPECT_EQ(samples, 7u);
    }
}

TEST(MovieRead, AnObjectThatIsOpenedAgainForgetsTheFirstFile) {
    Opened<CMP4MovieRead> movie(MovieBuilder{.tracks = {VideoTrack(40), SoundTrack(60)}}.Build());
    uint64_t in = 500, out = 700;
    ASSERT_EQ(movie.reader.SelectRange(&in, &out, false), kMovieOk);
    const Bytes other = MovieBuilder{.tracks = {SoundTrack(5)}}.Build();
    movie.dir.Write("other.mp4", {other.begin(), other.end()});
    movie.reader.SetPath(movie.dir.Path("other.mp4"));
    ASSERT_EQ(movie.reader.Open(), kMovieOk);
    EXPECT_FALSE(movie.reader.HasVideo());
    EXPECT_EQ(movie.reader.GetSelectedSampleCount(), 5u);

    movie.reader.SetPath(movie.dir.Path("none"));
    EXPECT_EQ(movie.reader.Open(), kMovieSystem);
    EXPECT_FALSE(movie.reader.HasAudio());
    EXPECT_EQ(movie.reader.GetSelectedSampleCount(), 0u);
    EXPECT_EQ(movie.reader.SelectRange(&in, &out, false), movie_code(FF4_RET_STATE));
}

TEST(Samples, ByTimeAndSyncInTablesAndFragments) {
    // step: samples in each; from one sync sample to the next
    const std::tuple<SyncTable, uint32_t, uint32_t> cases[] = {
        {SyncTable::kAlways, 0, 12}, {SyncTable::kAlways, 7, 12}, {SyncTable::kNever, 0, 1}};
    for (const auto& [table, fragment, step] : cases) {
        SCOPED_TRACE(testing::Message() << fragment << ' ' << step);
        MovieBuilder builder{.tracks = {with(VideoTrack(24), &MovieTrack::sync_table, table)}};
        builder.fragment_samples = fragment;
        Opened<CMP4MovieRead> movie(builder.Build());
        ASSERT_EQ(movie.code, kMovieOk);
        Mp4ReadSession* session = movie.reader.Session();
        const uint64_t end = 24 * 1001;
        uint64_t start = 0, sync = 0;
        uint32_t next = 0;
        Mp4SampleInfo info{};
        for (const uint64_t time : {uint64_t{0}, uint64_t{1000}, uint64_t{1001}, end - 1}) {
            ASSERT_EQ(mp4_get_sample_info_at_time(session, 1, time, &start, &info), FF4_RET_OK);
            EXPECT_EQ(start, time / 1001 * 1001);
            EXPECT_EQ(info.offset, builder.tracks[0].samples[time / 1001].offset);
            EXPECT_EQ(info.isSync, time < 1001 || step == 1);
        }
        EXPECT_EQ(mp4_get_sample_info_at_time(session, 1, end, &start, &info), FF4_RET_NOTFOUND);
        ASSERT_EQ(mp4_find_sync_after_time(session, 1, 0, &sync), FF4_RET_OK);
        EXPECT_EQ(sync, step * 1001u) << "the sync sample at the time itself does not count";
        EXPECT_EQ(mp4_find_sync_after_time(session, 1, 23 * 1001, &sync), FF4_RET_NOTFOUND);
        if (fragment > 0) continue;  // what follows asks the tables alone
        ASSERT_EQ(mp4_next_sync_sample(session, 1, 1, &next, &sync), FF4_RET_OK);
        EXPECT_EQ(next, 1 + step);
        EXPECT_EQ(sync, step * 1001u);
        EXPECT_EQ(mp4_next_sync_sample(session, 1, 24, &next, &sync), FF4_RET_NOTFOUND);
    }
}

TEST(Language, OfNewTracks) {
    const std::tuple<const char*, uint16_t> cases[] = {
        {"ja_JP.UTF-8", 0x2A0E}, {"de", 0x10B5}, {"pt-BR", 0x41F2},  {"sv_SE@euro", 0x4EE5},
        {"C", 0x15C7},           {"", 0x15C7},   {"dex_XX", 0x15C7}, {"zh_TW", 0x690F},
    };
    for (const auto& [locale, packed] : cases)
        EXPECT_EQ(PackedLanguage(locale), packed) << locale;
}

}  // namespace
}  // namespace tarn
