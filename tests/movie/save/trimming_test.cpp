#include "movie/save/trimming.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "movie/save/sound_treatment.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

std::string clip(const std::string& name) {
    return TARN_TEST_DATA "/clips/" + name + ".mp4";
}

// Goes on, or ends the job at its n-th step, or does something to the world there.
class Steps final : public IMp4MovieEditProgress {
public:
    explicit Steps(int last = -1, std::function<void()> act = {}) : m_last(last), m_act(act) {}
    bool OnStep(uint64_t, uint64_t) override {
        if (m_last < 0 || m_count++ < m_last) return true;
        if (m_act) m_act();
        return static_cast<bool>(m_act);
    }

private:
    int m_last, m_count = 0;
    std::function<void()> m_act;
};

MovieSegment segment(const std::string& source, const std::string& target, uint64_t in,
                     uint64_t out) {
    MovieSegment s;
    s.source = source;
    s.target = target;
    s.inMs = in;
    s.outMs = out;
    s.options.compensateDelay = true;
    s.verify = true;
    return s;
}

MovieCode save(const MovieSegment& s, SavedSegment* saved, Mp4MovieEditor editor = {},
               IMp4MovieEditProgress* steps = nullptr) {
    Steps all;
    XpSharedPtr<CMP4MovieRead> reader;
    MOVIE_TRY(editor.Prepare(s, &reader, saved));
    return editor.Save(s, reader, steps ? steps : &all, saved);
}

Mp4MovieEditor wav_editor() {
    Mp4MovieEditor editor;
    editor.SetWavOutput(true);
    return editor;
}

// The left channel of a clip's whole sound, and the media time that its first edit shows first.
std::vector<int16_t> decode(const std::string& path, int64_t* shown_from) {
    CMP4MovieRead movie;
    movie.SetPath(path);
    EXPECT_EQ(movie.Open(), kMovieOk);
    SoundTreatment sound;
    EXPECT_EQ(sound.Open(movie.GetInfo().audioDescriptions.at(0), {}, 0, 0), kMovieOk);
    EXPECT_EQ(GetEditOffset(movie.Session(), movie.GetInfo().audio, movie.GetInfo().timescale,
                            shown_from),
              FF4_RET_OK);
    std::vector<int16_t> left;
    CReadBuffer buffer;
    ReadSampleInfo info;
    while (movie.ReadAudioSample(&buffer, &info) == kMovieOk) {
        if (sound.Treat(buffer.data, 0) != kMovieOk) break;
        for (size_t i = 0; i < sound.Pcm().size(); i += 2)
            left.push_back(sound.Pcm()[i]);
    }
    return left;
}

// The shift, in samples, at which the output's sound is most like the source's, over a second.
int best_lag(const MovieSegment& s, const SavedSegment& saved) {
    int64_t source_from = 0, output_from = 0;
    const auto source = decode(s.source, &source_from);
    const auto output = decode(s.target, &output_from);
    const auto at = static_cast<int64_t>(saved.actualInMs) * 48 + source_from;
    int best = 1000;
    double best_sum = -1;
    for (int lag = -200; lag <= 200; ++lag) {
        double sum = 0;
        for (int64_t i = 4800; i < 52800; ++i)
            sum += static_cast<double>(source.at(at + i)) * output.at(output_from + i + lag);
        if (sum > best_sum) {
            best_sum = sum;
            best = lag;
        }
    }
    return best;
}

TEST(Trimming, KeepsPicturesAndSoundInStep) {
    const struct {
        const char* name;
        uint64_t in, out;
        bool exact;
        uint64_t actual_in, pictures;
        bool gapless = true;  // the sound: its samples last as long as they decode to
    } cases[] = {
        {"cam_avc_2997_g12_b2_3s", 0, 3000, false, 0, 90},
        {"cam_avc_2997_g12_b2_3s", 1300, 2700, false, 1201, 48},
        {"cam_avc_2997_g12_b2_3s", 1300, 2700, true, 1268, 48},
        {"cam_mp4v_25_g12_10s", 3100, 5000, false, 2880, 60},
        {"plain_vfr", 2500, 4000, false, 2080, 40},
        {"plain_frag_key", 2500, 4000, false, 2080, 50, false},
        {"plain_version1", 1100, 3900, false, 1068, 90},
        // The picture of the in point is decoded behind it.
        {"../playback/negative_offsets", 1074, 2900, true, 1040, 50},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + (c.exact ? " exact" : "") + std::to_string(c.in));
        TempDir dir;
        MovieSegment s = segment(clip(c.name), dir.Path("out.mp4"), c.in, c.out);
        s.options.exact = c.exact;
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved), kMovieOk);
        EXPECT_EQ(saved.actualInMs, c.actual_in);
        EXPECT_EQ(saved.videoSamples, c.pictures);
        EXPECT_EQ(saved.verifiedSamples, c.pictures) << "byte for byte the source's";
        // The actual points are whole milliseconds, 48 samples each.
        if (c.gapless) {
            EXPECT_NEAR(best_lag(s, saved), 0, 25);
        }
        EXPECT_EQ(dir.FileCount(), 1u);

        // What was cut once can be cut again, and the first picture of it is shown at 0.
        CMP4MovieRead result;
        result.SetPath(s.target);
        ASSERT_EQ(result.Open(), kMovieOk);
        int64_t offset = 1;
        EXPECT_EQ(GetEditOffset(result.Session(), result.GetInfo().video,
                                result.GetInfo().timescale, &offset),
                  FF4_RET_OK);
        if (!c.exact) {
            EXPECT_EQ(offset, 0);
        }
        const auto& edit = result.GetInfo().video.edits.back();
        uint64_t shown = 0;
        ASSERT_EQ(mp4_mul_div(result.GetInfo().video.duration, result.GetInfo().timescale,
                              result.GetInfo().video.timescale, &shown),
                  FF4_RET_OK);
        if (!c.exact) {
            EXPECT_NEAR(static_cast<double>(edit.segmentDuration), static_cast<double>(shown), 1)
                << "no picture is hidden at the end";
        }
    }
}

TEST(Trimming, TheRawFormLeavesTheCodecsDelay) {
    TempDir dir;
    MovieSegment s = segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out.mp4"), 0, 4000);
    s.options.compensateDelay = false;
    SavedSegment saved;
    ASSERT_EQ(save(s, &saved), kMovieOk);
    EXPECT_EQ(saved.audioSamples, 141u)
        << "one output for each input but the first, which is hidden";
    int64_t from = 0;
    const auto sound = decode(s.target, &from);
    EXPECT_EQ(sound.size(), 141u * 1024);
}

double rms(const std::vector<int16_t>& sound, int64_t first, int64_t count) {
    double sum = 0;
    for (int64_t i = first; i < first + count; ++i)
        sum +=
            static_cast<double>(sound.at(static_cast<size_t>(i))) * sound[static_cast<size_t>(i)];
    return std::sqrt(sum / static_cast<double>(count));
}

TEST(Trimming, EffectsFollowTheActualPoints) {
    for (const bool exact : {false, true}) {
        TempDir dir;
        MovieSegment s = segment(clip("cam_mp4v_25_g12_10s"), dir.Path("out.mp4"), 1100, 9200);
        s.options.exact = exact;
        Mp4MovieEditor editor;
        AMPEffectSettings effects;
        effects.fade = 1;
        effects.normalize = 1;
        effects.peak = 0.5f;
        editor.SetEffects(effects);
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved, editor), kMovieOk);
        int64_t source_from = 0, from = 0;
        const auto source = decode(s.source, &source_from);
        const auto output = decode(s.target, &from);
        source_from += static_cast<int64_t>(saved.actualInMs) * 48;
        const auto gain = [&](int64_t ms) {
            return rms(output, from + ms * 48, 2400) / rms(source, source_from + ms * 48, 2400);
        };
        // A second of silence and a rise over two; half way the gain's fourth power is a 16th.
        EXPECT_LT(gain(900), 0.001);
        EXPECT_NEAR(gain(1975), 2.0 / 16, 0.02);
        EXPECT_NEAR(gain(3100), 2.0, 0.1);
        const int64_t end =
            static_cast<int64_t>((exact ? 9200 : saved.actualOutMs) - saved.actualInMs);
        EXPECT_NEAR(gain(end - 2525), 2.0 / 16, 0.02);
        EXPECT_LT(gain(end - 990), 0.001);
    }
}

TEST(Trimming, WavHasTheSelectionToTheFrame) {
    TempDir dir;
    MovieSegment s = segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out.wav"), 1300, 2700);
    SavedSegment saved;
    ASSERT_EQ(save(s, &saved, wav_editor()), kMovieOk);
    const std::string wav = dir.Read("out.wav");
    ASSERT_EQ(wav.size(), 44 + saved.audioSamples * 4);
    int64_t from = 0;
    const auto source = decode(s.source, &from);
    // 1201.2 ms of the movie, by the tables of the picture: 57657.6 samples.
    const size_t at = static_cast<size_t>(from + 57658);
    for (size_t i = 0; i < 20000; ++i) {
        const auto value =
            static_cast<int16_t>(static_cast<uint8_t>(wav[44 + 4 * i]) | wav[45 + 4 * i] << 8);
        ASSERT_NEAR(value, source[at + i], 1) << i;
    }
}

TEST(Trimming, NothingIsLeftWhereASaveDoesNotEnd) {
    TempDir dir;
    SavedSegment saved;
    for (int step = 0; step < 4; ++step) {
        MovieSegment s = segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out.mp4"), 0, 3000);
        Steps cancel(step);
        EXPECT_EQ(save(s, &saved, {}, &cancel), kMovieCancelled);
        EXPECT_EQ(dir.FileCount(), 0u) << step;
    }

    MovieSegment s = segment(dir.Path("in.mp4"), dir.Path("out.mp4"), 0, 3000);
    for (const int step : {1, 2, 4}) {
        const auto damage = [&] {
            std::filesystem::resize_file(dir.Path("in.mp4"), 150000 + step);
        };
        std::filesystem::copy_file(clip("cam_avc_2997_g12_b2_3s"), dir.Path("in.mp4"),
                                   std::filesystem::copy_options::overwrite_existing);
        Steps change(step, damage);
        EXPECT_EQ(save(s, &saved, {}, &change), kMovieChanged) << step;
        EXPECT_EQ(dir.FileCount(), 1u) << "the source alone";
    }

    dir.Write("out.mp4", "precious");
    s.source = clip("cam_texts");
    EXPECT_EQ(save(s, &saved), kMovieSystem);
    EXPECT_EQ(saved.reason,
              (Reason{ReasonCode::kExists, ReasonSide::kTarget, s.target, {ReasonError{EEXIST}}}));
    EXPECT_EQ(dir.Read("out.mp4"), "precious");
    EXPECT_EQ(dir.FileCount(), 2u);
}

TEST(Trimming, WhatIsNotTheSourcesOnReadingBackNeverGetsItsName) {
    TempDir dir;
    // From the first step on the medium gives back other bytes than it was given.
    uint64_t spoilt = 0;
    const auto spoil = [&] {
        for (const auto& entry : std::filesystem::directory_iterator(dir.Path(""))) {
            if (entry.file_size() < 100000) continue;  // not complete yet
            std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(2000);
            file << "spoilt";
            ++spoilt;
        }
    };
    MovieSegment s = segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out.mp4"), 0, 3000);
    SavedSegment saved;
    Steps steps(0, spoil);
    EXPECT_EQ(save(s, &saved, {}, &steps), kMovieMismatch);
    EXPECT_GT(spoilt, 0u);
    EXPECT_EQ(saved.reason,
              (Reason{ReasonCode::kPictureDiffers, ReasonSide::kTarget, s.target, {uint64_t{1}}}));
    EXPECT_EQ(dir.FileCount(), 0u);
}

TEST(Trimming, EveryFullDiskIsToldAndLeavesNothing) {
    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    TempDir dir;
    for (const bool wav : {false, true}) {
        for (rlim_t limit = 0; limit < 100000; limit += 9001) {
            const struct rlimit small = {limit, before.rlim_max};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
            MovieSegment s = segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out"), 0, 3000);
            SavedSegment saved;
            EXPECT_EQ(save(s, &saved, wav ? wav_editor() : Mp4MovieEditor()), kMovieSystem)
                << limit;
            EXPECT_EQ(
                saved.reason,
                (Reason{ReasonCode::kNoRoom, ReasonSide::kTarget, s.target, {ReasonError{EFBIG}}}))
                << limit;
            EXPECT_EQ(dir.FileCount(), 0u) << limit;
        }
    }
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
}

// Counts what a job tells.
class Heard final : public IMp4MovieEditNotify {
public:
    void OnProgress(uint64_t done, uint64_t total) override { EXPECT_LE(done, total); }
    void OnComplete(Kind kind, MovieCode, int32_t, const SavedSegment*) override {
        kinds.push_back(kind);
        if (kind == kStarted) started.Set();
    }
    std::vector<Kind> kinds;
    XpEvent started{XpEvent::Reset::kManual};
};

TEST(TrimmingJob, RunsPausesAndEnds) {
    using Kind = IMp4MovieEditNotify::Kind;
    TempDir dir;
    {
        Heard heard;
        Mp4MovieTrimmingEx job;
        ASSERT_TRUE(
            job.SaveMp4(segment(clip("cam_texts"), dir.Path("a.mp4"), 0, 2000), &heard, {}));
        job.Join();
        EXPECT_EQ(heard.kinds,
                  (std::vector<Kind>{Kind::kStarted, Kind::kSegmentDone, Kind::kAllDone}));
    }
    {
        Heard heard;
        Mp4MovieTrimmingEx job;
        job.Pause();
        ASSERT_TRUE(
            job.SaveMp4(segment(clip("cam_texts"), dir.Path("b.mp4"), 0, 2000), &heard, {}));
        job.Pause();
        heard.started.Wait();
        job.Cancel();
        job.Join();
        EXPECT_FALSE(std::filesystem::exists(dir.Path("b.mp4")) &&
                     heard.kinds.back() == Kind::kCancelled);
    }
    {
        Heard heard;
        Mp4MovieTrimmingEx job;
        ASSERT_TRUE(
            job.SaveWav(segment(dir.Path("none.mp4"), dir.Path("c.wav"), 0, 1), &heard, {}));
        job.Join();
        EXPECT_EQ(heard.kinds, (std::vector<Kind>{Kind::kStarted, Kind::kFailed}));
    }
}

// `from` becomes `to` where it first stands behind the last `behind`.
std::string patched(const std::string& name, const std::string& behind, const std::string& from,
                    const std::string& to) {
    std::ifstream in(clip(name), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const size_t at = bytes.find(from, bytes.rfind(behind));
    EXPECT_NE(at, std::string::npos);
    return bytes.replace(at, from.size(), to);
}

TEST(Trimming, WhatCannotBeSavedIsNamedAndNotLeftOut) {
    using std::string_literals::operator""s;
    const struct {
        const char* behind;
        std::string from, to;
        const char* words;
    } cases[] = {
        {"stsd", "mp4a", "ac-3", "the sound (AC-3) can't be re-encoded"},
        {"stsd", "mp4a", "\1\2\3\4", "the sound is of a kind that can't be re-encoded"},
        {"esds", "\x40\x15"s, "\x6B\x15"s, "the sound is MP3"},
        {"avcC", "\xFF\xE1"s, "\xFF\xFF"s, "the picture is damaged and can't be carried"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.words);
        TempDir dir;
        dir.Write("in.mp4", patched("cam_texts", c.behind, c.from, c.to));
        MovieSegment s = segment(dir.Path("in.mp4"), dir.Path("out.mp4"), 0, 2000);
        SavedSegment saved;
        EXPECT_EQ(save(s, &saved), movie_code(FF4_RET_FORMAT));
        EXPECT_NE(ReasonText(saved.reason).find(c.words), std::string::npos);
        EXPECT_EQ(dir.FileCount(), 1u);
    }
}

TEST(Trimming, AWavIsNoLongerThanItsSamplesCanBe) {
    using std::string_literals::operator""s;
    TempDir dir;
    // Each of the 94 samples claims 2^31 frames: 6 days of sound, more than any disk would hold.
    dir.Write("in.mp4", patched("cam_texts", "stts", "\0\0\4\0"s, "\x7F\xFF\xFF\xFF"s));
    MovieSegment s = segment(dir.Path("in.mp4"), dir.Path("out.wav"), 0, UINT64_MAX);
    SavedSegment saved;
    EXPECT_EQ(save(s, &saved, wav_editor()), kMovieOk) << ReasonText(saved.reason);
    EXPECT_LE(saved.audioSamples, 94u * 2048);
}

TEST(Trimming, ASelectionIsNeverEmpty) {
    TempDir dir;
    MovieSegment s = segment(clip("cam_audio_only"), dir.Path("out.mp4"), 0, 1);
    SavedSegment saved;
    ASSERT_EQ(save(s, &saved), kMovieOk);
    EXPECT_GE(saved.audioSamples, 1u) << "a selection is never empty";
}

TEST(Trimming, RefusalsAreInPlainWords) {
    const struct {
        const char* clip;
        uint64_t in, out;
        const char* words;
    } cases[] = {
        {"plain_hevc", 0, 1000, "HEVC"},
        {"cam_texts", 5000, 9000, "at or after the end"},
        {"cam_texts", 1500, 1000, "before the in point"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.words);
        TempDir dir;
        MovieSegment s = segment(clip(c.clip), dir.Path("out"), c.in, c.out);
        SavedSegment saved;
        EXPECT_NE(save(s, &saved), kMovieOk);
        EXPECT_NE(ReasonText(saved.reason).find(c.words), std::string::npos);
        EXPECT_EQ(dir.FileCount(), 0u);
    }
}

}  // namespace
}  // namespace tarn
