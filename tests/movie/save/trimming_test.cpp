#include "movie/save/trimming.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <utility>

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

std::unique_ptr<CMP4MovieRead> opened(const std::string& path) {
    auto movie = std::make_unique<CMP4MovieRead>();
    movie->SetPath(path);
    EXPECT_EQ(movie->Open(), kMovieOk);
    return movie;
}

// The left channel of a clip's whole sound, and the media time that its first edit shows first.
std::vector<int16_t> decode(const std::string& path, int64_t* shown_from) {
    const auto movie = opened(path);
    SoundTreatment sound;
    EXPECT_EQ(sound.Open(movie->GetInfo().audioDescriptions.at(0), {}, 0, 0), kMovieOk);
    EXPECT_EQ(GetEditOffset(movie->Session(), movie->GetInfo().audio, movie->GetInfo().timescale,
                            shown_from),
              FF4_RET_OK);
    std::vector<int16_t> left;
    CReadBuffer buffer;
    ReadSampleInfo info;
    while (movie->ReadAudioSample(&buffer, &info) == kMovieOk) {
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
        uint64_t actual_in, actual_out, pictures;
        bool gapless = true;  // the sound: its samples last as long as they decode to
    } cases[] = {
        {"cam_avc_2997_g12_b2_3s", 0, UINT64_MAX, false, 0, 3003, 90},
        {"cam_avc_2997_g12_b2_3s", 1300, 2700, false, 1201, 2802, 48},
        {"cam_avc_2997_g12_b2_3s", 1300, 2700, true, 1268, 2802, 48},
        {"cam_mp4v_25_g12_10s", 3100, 5000, false, 2880, 5280, 60},
        {"plain_vfr", 2500, 4000, false, 2080, 4120, 40},
        {"plain_frag_key", 2500, 4000, false, 2080, 4080, 50, false},
        {"plain_version1", 1100, 3900, false, 1068, 4070, 90},
        // The picture of the in point is decoded after it.
        {"../playback/negative_offsets", 1074, 2900, true, 1040, 3000, 50},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + (c.exact ? " exact" : "") + std::to_string(c.in));
        TempDir dir;
        MovieSegment s = segment(clip(c.name), dir.Path("out.mp4"), c.in, c.out);
        s.options.exact = c.exact;
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved), kMovieOk);
        EXPECT_EQ(saved.actualInMs, c.actual_in);
        EXPECT_EQ(saved.actualOutMs, c.actual_out);
        EXPECT_EQ(saved.videoSamples, c.pictures);
        EXPECT_EQ(saved.verifiedSamples, c.pictures) << "byte for byte the source's";
        // The actual points are whole milliseconds, 48 samples each.
        if (c.gapless) {
            EXPECT_NEAR(best_lag(s, saved), 0, 25);
        }
        EXPECT_EQ(dir.FileCount(), 1u);

        // What was cut once can be cut again, and the first picture of it is shown at 0.
        const auto result = opened(s.target);
        int64_t offset = 1;
        EXPECT_EQ(GetEditOffset(result->Session(), result->GetInfo().video,
                                result->GetInfo().timescale, &offset),
                  FF4_RET_OK);
        if (!c.exact) {
            EXPECT_EQ(offset, 0);
        }
        const auto& edit = result->GetInfo().video.edits.back();
        uint64_t shown = 0;
        ASSERT_EQ(mp4_mul_div(result->GetInfo().video.duration, result->GetInfo().timescale,
                              result->GetInfo().video.timescale, &shown),
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

// What the new file takes over from the source, and what it says of itself.
TEST(Trimming, CarriesWhatTheSourceSays) {
    for (const char* name : {"cam_mp4v_25_g12_10s", "cam_texts", "plain_vfr"}) {
        SCOPED_TRACE(name);
        TempDir dir;
        const MovieSegment s = segment(clip(name), dir.Path("out.mp4"), 500, 1500);
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved), kMovieOk) << ReasonText(saved.reason);
        const auto before = opened(s.source), after = opened(s.target);
        const CMovieInfoType &from = before->GetInfo(), &to = after->GetInfo();
        EXPECT_EQ(to.majorBrand, from.majorBrand);
        EXPECT_EQ(to.minorVersion, 0x146008Au);
        EXPECT_EQ(to.hasBrandMsnv, from.hasBrandMsnv);
        EXPECT_EQ(to.hasBrandIsom, from.hasBrandIsom);
        EXPECT_EQ(to.hasBrandMp42, from.hasBrandMp42);
        EXPECT_EQ(to.timescale, from.timescale);
        EXPECT_EQ(to.metaData.size(), from.metaData.size());
        EXPECT_EQ(to.fileProfile, from.fileProfile);
        EXPECT_EQ(to.videoProfile.average_bitrate, from.videoProfile.average_bitrate);
        EXPECT_EQ(to.audioProfile.average_bitrate, from.hasBrandMsnv ? 128u : 0u);
        EXPECT_EQ(to.audioProfile.max_bitrate, from.hasBrandMsnv ? 128u : 0u);
        EXPECT_EQ(to.video.role, from.video.role);
        EXPECT_EQ(to.video.roleDetail, from.video.roleDetail);
        ASSERT_EQ(to.videoDescriptions.size(), from.videoDescriptions.size());
        EXPECT_EQ(to.videoDescriptions[0].pixelAspect, from.videoDescriptions[0].pixelAspect);
        EXPECT_EQ(to.videoDescriptions[0].colour, from.videoDescriptions[0].colour);
        EXPECT_EQ(to.videoDescriptions[0].avcConfig, from.videoDescriptions[0].avcConfig);
        EXPECT_EQ(to.videoDescriptions[0].decoderConfig, from.videoDescriptions[0].decoderConfig);
        const CAudioSampleDescriptionInfo& sound = to.audioDescriptions.at(0);
        EXPECT_EQ(sound.entry.channel_count, 2);
        EXPECT_EQ(sound.entry.sample_size, 16);
        EXPECT_EQ(sound.entry.sample_rate, 48000u << 16);
        EXPECT_EQ(sound.averageBitRate, 128000u);
        for (const MovieTrackInfo* track : {&to.video, &to.audio})
            for (const MovieEdit& edit : track->edits)
                EXPECT_EQ(edit.rate, 0x10000u);
    }
}

std::string le32(uint32_t value) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i)
        bytes[static_cast<size_t>(i)] = static_cast<char>(value >> (8 * i));
    return bytes;
}

TEST(Trimming, WavHasTheSelectionToTheFrame) {
    using std::string_literals::operator""s;
    const struct {
        bool exact;
        int64_t first;  // sample of the movie's time
    } cases[] = {
        {false, 57658},  // 36 pictures are 1201.2 ms
        {true, 60861},   // 38 are 1267.93
    };
    for (const auto& c : cases) {
        TempDir dir;
        MovieSegment s = segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out.wav"), 1300, 2700);
        s.options.exact = c.exact;
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved, wav_editor()), kMovieOk);
        const std::string wav = dir.Read("out.wav");
        const auto size = static_cast<uint32_t>(saved.audioSamples * 4);
        ASSERT_EQ(wav.size(), 44 + size);
        EXPECT_EQ(saved.fileBytes, wav.size());
        EXPECT_EQ(saved.audioBytes, size);
        // The RIFF size counts the whole header.
        EXPECT_EQ(wav.substr(0, 44), "RIFF" + le32(size + 44) + "WAVEfmt \x10\0\0\0\1\0\2\0"s +
                                         le32(48000) + le32(192000) + "\4\0\x10\0data"s +
                                         le32(size));
        int64_t from = 0;
        const auto source = decode(s.source, &from);
        const auto at = static_cast<size_t>(from + c.first);
        for (size_t i = 0; i < 20000; ++i) {
            const auto value =
                static_cast<int16_t>(static_cast<uint8_t>(wav[44 + 4 * i]) | wav[45 + 4 * i] << 8);
            ASSERT_NEAR(value, source[at + i], 1) << i;
        }
    }
}

// `from` becomes `to` where it first stands after the last `after`.
std::string patched(const std::string& name, const std::string& after, const std::string& from,
                    const std::string& to) {
    std::ifstream in(clip(name), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const size_t at = bytes.find(from, bytes.rfind(after));
    EXPECT_NE(at, std::string::npos);
    return bytes.replace(at, from.size(), to);
}

// How many pictures lie together each time before sound comes; the sound keeps up with them.
std::vector<uint32_t> picture_runs(const std::string& path) {
    const auto movie = opened(path);
    std::map<uint64_t, std::pair<bool, double>> samples;  // by place: picture?, seconds
    for (const MovieTrackInfo* track : {&movie->GetInfo().video, &movie->GetInfo().audio}) {
        for (uint32_t n = 1; n <= track->sampleCount; ++n) {
            Mp4SampleInfo info{};
            EXPECT_EQ(mp4_get_sample_info(movie->Session(), track->trackNumber, n, &info),
                      FF4_RET_OK);
            samples[info.offset] = {track == &movie->GetInfo().video,
                                    info.duration / static_cast<double>(track->timescale)};
        }
    }
    std::vector<uint32_t> runs;
    double seconds[2] = {};  // of sound and of pictures so far
    bool before = false;
    for (const auto& [place, sample] : samples) {
        if (sample.first && !before) {
            EXPECT_NEAR(seconds[0], seconds[1], 0.1) << "before picture run " << runs.size();
            runs.push_back(0);
        }
        if (sample.first) ++runs.back();
        seconds[sample.first] += sample.second;
        before = sample.first;
    }
    return runs;
}

TEST(Trimming, PicturesAndSoundTakeTurns) {
    using std::string_literals::operator""s;
    const struct {
        std::string source;
        uint64_t in, out;
        std::vector<uint32_t> runs;
    } cases[] = {
        // A group of pictures at a time,
        {patched("cam_avc_2997_g12_b2_3s", "ftyp", "MSNV", "MSNV"),
         0,
         3003,
         {12, 12, 12, 12, 12, 12, 12, 6}},
        // of a long one a second in AVC
        {patched("plain_frag_key", "ftyp", "isom", "isom"), 2500, 4000, {25, 25}},
        // and five in other pictures; here only the first is a sync sample.
        {patched("cam_mp4v_25_g12_10s", "stss", "\0\0\0\0\0\0\0\x15"s, "\0\0\0\0\0\0\0\1"s),
         0,
         9000,
         {125, 125}},
    };
    for (const auto& c : cases) {
        TempDir dir;
        dir.Write("in.mp4", c.source);
        const MovieSegment s = segment(dir.Path("in.mp4"), dir.Path("out.mp4"), c.in, c.out);
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved), kMovieOk) << ReasonText(saved.reason);
        EXPECT_EQ(picture_runs(s.target), c.runs);
    }
}

TEST(Trimming, SoundAloneComesASecondAtATime) {
    const struct {
        uint64_t out, samples;
        char chunks;
    } cases[] = {
        {UINT64_MAX, 472, 11}, {1, 3, 1},  // a selection is never empty
    };
    for (const auto& c : cases) {
        TempDir dir;
        SavedSegment saved;
        ASSERT_EQ(save(segment(clip("cam_audio_only"), dir.Path("out.mp4"), 0, c.out), &saved),
                  kMovieOk);
        EXPECT_EQ(saved.audioSamples, c.samples);
        const std::string movie = dir.Read("out.mp4");
        EXPECT_EQ(movie.at(movie.rfind("stco") + 11), c.chunks);
    }
}

// Bytes of a file's only chunk of PCM.
std::string media_of(const std::string& movie) {
    const size_t at = movie.find("mdat") + 4;
    return movie.substr(at, movie.find("moov", at) - 4 - at);
}

TEST(Trimming, PcmKeepsItsByteOrder) {
    TempDir dir;
    dir.Write("big.mp4", patched("../playback/pcm", "stsd", "twos", "twos"));
    std::string little = patched("../playback/pcm", "stsd", "twos", "sowt");
    const size_t media = little.find(media_of(little));
    for (size_t i = media; i + 1 < media + 96000; i += 2)
        std::swap(little[i], little[i + 1]);
    dir.Write("little.mp4", little);
    for (const std::string name : {"big", "little"}) {
        MovieSegment s = segment(dir.Path(name + ".mp4"), dir.Path(name + "-out.mp4"), 0, 1000);
        SavedSegment saved;
        ASSERT_EQ(save(s, &saved), kMovieOk) << ReasonText(saved.reason);
        EXPECT_EQ(saved.audioSamples, 24000u);
        EXPECT_EQ(dir.Read(name + "-out.mp4").find("stss"), std::string::npos) << "all are sync";
        EXPECT_EQ(media_of(dir.Read(name + "-out.mp4")), media_of(dir.Read(name + ".mp4")));
        s.target = dir.Path(name + ".wav");
        ASSERT_EQ(save(s, &saved, wav_editor()), kMovieOk) << ReasonText(saved.reason);
        EXPECT_EQ(dir.Read(name + ".wav").substr(44), media_of(little)) << name;
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
}

TEST(Trimming, WhatCannotBeReadBackRightNeverGetsItsName) {
    using Entry = std::filesystem::directory_entry;
    const auto spoil = [](const Entry& entry) {
        if (entry.file_size() < 100000) return;  // not complete yet
        std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(2000);
        file << "spoilt";
    };
    const auto remove = [](const Entry& entry) { std::filesystem::remove(entry.path()); };
    const struct {
        std::function<void(const Entry&)> act;  // from the first step on
        MovieCode result;
        ReasonCode code;
        ReasonArgument argument;
    } cases[] = {
        {spoil, kMovieMismatch, ReasonCode::kPictureDiffers, uint64_t{1}},
        {remove, kMovieSystem, ReasonCode::kCantReadBack, ReasonError{ENOENT}},
    };
    for (const auto& c : cases) {
        TempDir dir;
        const MovieSegment s =
            segment(clip("cam_avc_2997_g12_b2_3s"), dir.Path("out.mp4"), 0, 3000);
        SavedSegment saved;
        Steps steps(0, [&] {
            for (const Entry& entry : std::filesystem::directory_iterator(dir.Path("")))
                c.act(entry);
        });
        EXPECT_EQ(save(s, &saved, {}, &steps), c.result);
        EXPECT_EQ(saved.reason, (Reason{c.code, ReasonSide::kTarget, s.target, {c.argument}}));
        EXPECT_EQ(dir.FileCount(), 0u);
    }
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

TEST(Trimming, RoomIsLookedForFirst) {
    using std::string_literals::operator""s;
    TempDir dir;
    // Each of 24000 samples of sound claims to take 2 GB.
    dir.Write("in.mp4",
              patched("../playback/pcm", "stsz", "\0\0\0\0\0\0\0\4"s, "\0\0\0\0\x7F\xFF\xFF\xFF"s));
    const MovieSegment s = segment(dir.Path("in.mp4"), dir.Path("out.mp4"), 0, 1000);
    SavedSegment saved;
    Steps steps(0);
    EXPECT_EQ(save(s, &saved, {}, &steps), kMovieSystem);
    EXPECT_EQ(saved.reason.code, ReasonCode::kTooLittleRoom);
    EXPECT_EQ(saved.reason.side, ReasonSide::kTarget);
    EXPECT_EQ(saved.reason.SystemError(), ENOSPC) << "a full disk to those who ask for the error";
    EXPECT_EQ(std::get<uint64_t>(saved.reason.arguments.at(0)) / 1000, 51539u)
        << "24000 * 2147483647 bytes";
    EXPECT_EQ(dir.FileCount(), 1u);
}

// Keeps what a job tells, and does something at its first progress, on the job's thread.
class Heard final : public IMp4MovieEditNotify {
public:
    void OnProgress(uint64_t done, uint64_t total) override {
        EXPECT_LE(done, total);
        if (auto act = std::exchange(at_first_progress, {})) act();
    }
    void OnComplete(Kind kind, MovieCode of, int32_t error, const SavedSegment* result) override {
        kinds.push_back(kind);
        code = of;
        system_error = error;
        if (result) saved = *result;
        ended = kind != kStarted && kind != kSegmentDone;
    }
    std::function<void()> at_first_progress;
    std::vector<Kind> kinds;
    MovieCode code = kMovieOk;
    int32_t system_error = 0;
    SavedSegment saved;
    std::atomic<bool> ended{false};
};

using Kind = IMp4MovieEditNotify::Kind;

TEST(TrimmingJob, RestsWhilePausedAndEndsAsItIsTold) {
    for (const bool cancel : {false, true}) {
        TempDir dir;
        Heard heard;
        XpEvent paused;
        Mp4MovieTrimmingEx job;
        heard.at_first_progress = [&] {
            job.Pause();
            paused.Set();
        };
        const MovieSegment s = segment(clip("cam_texts"), dir.Path("out.mp4"), 0, 2000);
        ASSERT_TRUE(job.SaveMp4(s, &heard, {}));
        paused.Wait();
        EXPECT_FALSE(job.SaveMp4(s, &heard, {})) << "one at a time";
        // In the time of the pause the same is saved three times.
        SavedSegment meanwhile;
        for (const char* name : {"a.mp4", "b.mp4", "c.mp4"})
            EXPECT_EQ(save(segment(s.source, dir.Path(name), 0, 2000), &meanwhile), kMovieOk);
        EXPECT_FALSE(heard.ended);
        cancel ? job.Cancel() : job.Resume();
        job.Join();
        if (cancel) {
            EXPECT_EQ(heard.kinds, (std::vector{Kind::kStarted, Kind::kCancelled}));
            EXPECT_EQ(dir.FileCount(), 3u);
            continue;
        }
        EXPECT_EQ(heard.kinds, (std::vector{Kind::kStarted, Kind::kSegmentDone, Kind::kAllDone}));
        EXPECT_EQ(heard.saved.videoSamples, 60u);
        EXPECT_EQ(heard.saved.fileBytes, dir.Read("out.mp4").size());
        EXPECT_FALSE(heard.saved.reason);
    }
}

TEST(TrimmingJob, HandsOverWhyItFailed) {
    TempDir dir;
    dir.Write("there.wav", "precious");
    const struct {
        std::string source, target;
        ReasonSide side;
        int error;
    } cases[] = {
        {dir.Path("none.mp4"), dir.Path("out.wav"), ReasonSide::kSource, ENOENT},
        {clip("cam_texts"), dir.Path("there.wav"), ReasonSide::kTarget, EEXIST},
        {clip("cam_texts"), dir.Path("no/out.wav"), ReasonSide::kTarget, ENOENT},
    };
    for (const auto& c : cases) {
        Heard heard;
        Mp4MovieTrimmingEx job;
        ASSERT_TRUE(job.SaveWav(segment(c.source, c.target, 0, 1000), &heard, {}));
        job.Join();
        EXPECT_EQ(heard.kinds, (std::vector{Kind::kStarted, Kind::kFailed}));
        EXPECT_EQ(heard.code, kMovieSystem);
        EXPECT_EQ(heard.system_error, c.error);
        EXPECT_EQ(heard.saved.reason.side, c.side);
        EXPECT_EQ(heard.saved.reason.file, c.side == ReasonSide::kSource ? c.source : c.target);
    }
    EXPECT_EQ(dir.Read("there.wav"), "precious");
}

TEST(Trimming, WhatCannotBeSavedIsNamedAndNotLeftOut) {
    using enum ReasonCode;
    using std::string_literals::operator""s;
    const auto texts = [](const char* after, const std::string& from, const std::string& to) {
        return patched("cam_texts", after, from, to);
    };
    const struct {
        ReasonCode code;
        std::string source;
        std::vector<ReasonArgument> arguments;
        uint64_t in = 0, out = 2000;
        bool wav = false;
    } cases[] = {
        {kPictureKind, patched("plain_hevc", "vmhd", "hev1", "hev1"), {"HEVC"}},
        {kPictureDamaged, texts("avcC", "\xFF\xE1"s, "\xFF\xFF"s), {}},
        {kPictureUnknown, patched("plain_hevc", "vmhd", "hev1", "\1\2\3\4"), {}},
        {kSoundKind, texts("stsd", "mp4a", "ac-3"), {"AC-3"}},
        {kSoundUnknown, texts("stsd", "mp4a", "\1\2\3\4"), {}},
        {kSoundNotDecoded, texts("esds", "\x40\x15"s, "\x6B\x15"s), {"MP3"}},
        {kSoundConfiguration, texts("esds", "\x11\x90"s, "\x01\x90"s), {}},
        {kNoSound, patched("../playback/picture_alone", "stsd", "avc1", "avc1"), {}, 0, 900, true},
        {kNoTimescale, texts("mvhd", "\0\1\x5F\x90"s, "\0\0\0\0"s), {}},
        {kInPastEnd, texts("stsd", "mp4a", "mp4a"), {ReasonTime{2005}}, 5000, 9000},
        {kOutBeforeIn, texts("stsd", "mp4a", "mp4a"), {}, 1500, 1000},
    };
    for (const auto& c : cases) {
        TempDir dir;
        dir.Write("in.mp4", c.source);
        const MovieSegment s = segment(dir.Path("in.mp4"), dir.Path("out"), c.in, c.out);
        SavedSegment saved;
        EXPECT_NE(save(s, &saved, c.wav ? wav_editor() : Mp4MovieEditor()), kMovieOk);
        EXPECT_EQ(saved.reason, (Reason{c.code, ReasonSide::kSource, s.source, c.arguments}))
            << ReasonName(c.code) << " and not " << ReasonName(saved.reason.code);
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

}  // namespace
}  // namespace tarn
