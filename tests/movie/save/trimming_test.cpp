#include "movie/save/trimming.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <tuple>
#include <utility>

#include "movie/save/sound_treatment.h"
#include "mp4format/bytes.h"
#include "support/failing_reads.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using std::string_literals::operator""s;

std::string clip(const std::string& name) {
    std::ifstream in(TARN_TEST_DATA "/clips/" + name + ".mp4", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A clip in which `from` becomes `to` where it first stands after the last `after`.
std::string patched(const std::string& name, const std::string& after, const std::string& from,
                    const std::string& to) {
    std::string bytes = clip(name);
    const size_t at = bytes.find(from, bytes.rfind(after));
    EXPECT_NE(at, std::string::npos);
    return bytes.replace(at, from.size(), to);
}

// One whose pictures lie over each other: each is a quarter of the file.
std::string overlapping() {
    std::string bytes = clip("cam_texts");
    const auto size = static_cast<uint32_t>(bytes.size() / 4);
    const auto* raw = reinterpret_cast<const uint8_t*>(bytes.data());
    size_t at = bytes.find("stsz") + 16;
    for (uint32_t left = get_be32(raw + at - 4); left > 0; --left, at += 4)
        put_be32(reinterpret_cast<uint8_t*>(bytes.data()) + at, size);
    return bytes;
}

const std::string kCamera = "cam_avc_2997_g12_b2_3s";

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

// A source in a folder of its own, to be saved there.
struct Rig {
    explicit Rig(const std::string& source, uint64_t in = 0, uint64_t out = UINT64_MAX,
                 const std::string& target = "out.mp4") {
        dir.Write("in.mp4", source);
        request = {.source = dir.Path("in.mp4"),
                   .target = dir.Path(target),
                   .inMs = in,
                   .outMs = out,
                   .options = {},
                   .verify = true};
        request.options.compensateDelay = true;
        editor.SetWavOutput(target.ends_with(".wav"));
    }
    MovieCode Save(Steps steps = Steps()) {
        XpSharedPtr<CMP4MovieRead> reader;
        MOVIE_TRY(editor.Prepare(request, &reader, &saved));
        return editor.Save(request, reader, &steps, &saved);
    }
    TempDir dir;
    MovieSegment request;
    Mp4MovieEditor editor;
    SavedSegment saved;
};

std::unique_ptr<CMP4MovieRead> opened(const std::string& path) {
    auto movie = std::make_unique<CMP4MovieRead>();
    movie->SetPath(path);
    EXPECT_EQ(movie->Open(), kMovieOk);
    return movie;
}

// The media time that a track's first edit shows first.
int64_t shown_from(const CMP4MovieRead& movie, const MovieTrackInfo& track) {
    int64_t from = 0;
    EXPECT_EQ(GetEditOffset(movie.Session(), track, movie.GetInfo().timescale, &from), FF4_RET_OK);
    return from;
}

// When the last picture that is shown is over, media units.
int64_t last_shown(const CMP4MovieRead& movie) {
    int64_t end = 0;
    for (uint32_t n = 1; n <= movie.GetInfo().video.sampleCount; ++n) {
        uint64_t time = 0;
        Mp4SampleInfo info{};
        EXPECT_EQ(mp4_get_numbered_sample(movie.Session(), movie.GetInfo().video.trackNumber, n,
                                          &time, &info),
                  FF4_RET_OK);
        end = std::max(end, static_cast<int64_t>(time) + info.compositionOffset + info.duration);
    }
    return end;
}

// The left channel of a clip's whole sound from what is shown first.
std::vector<int16_t> decode(const std::string& path) {
    const auto movie = opened(path);
    SoundTreatment sound;
    EXPECT_EQ(sound.Open(movie->GetInfo().audioDescriptions.at(0), {}, 0, 0), kMovieOk);
    std::vector<int16_t> left;
    CReadBuffer buffer;
    ReadSampleInfo info;
    while (movie->ReadAudioSample(&buffer, &info) == kMovieOk) {
        if (sound.Treat(buffer.data, 0) != kMovieOk) break;
        for (size_t i = 0; i < sound.Pcm().size(); i += 2)
            left.push_back(sound.Pcm()[i]);
    }
    left.erase(left.begin(), left.begin() + shown_from(*movie, movie->GetInfo().audio));
    return left;
}

// The shift, in samples, at which `output` is most like `source` over a second.
int64_t best_lag(const std::vector<int16_t>& source, int64_t at, const std::vector<int16_t>& output,
                 int64_t from) {
    std::map<double, int64_t> lags;
    const auto first = source.begin() + at;
    for (int64_t lag = -200; lag <= 200; ++lag)
        lags[std::inner_product(first, first + 48000, output.begin() + from + lag, 0.0)] = lag;
    return lags.rbegin()->second;
}

int64_t best_lag(const Rig& rig) {
    const auto in = static_cast<int64_t>(rig.saved.actualInMs) * 48;
    return best_lag(decode(rig.request.source), in + 4800, decode(rig.request.target), 4800);
}

// Bytes of a clip with `fill` over the sound samples from `first` to `last`.
std::string with_sound(const std::string& name, uint32_t first, uint32_t last, char fill) {
    const TempDir dir;
    std::string bytes = clip(name);
    dir.Write("clip.mp4", bytes);
    const auto movie = opened(dir.Path("clip.mp4"));
    Mp4SampleInfo info{};
    for (uint32_t n = first; n <= last; ++n) {
        EXPECT_EQ(
            mp4_get_sample_info(movie->Session(), movie->GetInfo().audio.trackNumber, n, &info),
            FF4_RET_OK);
        bytes.replace(info.offset, info.size, info.size, fill);
    }
    return bytes;
}

TEST(Trimming, KeepsPicturesAndSoundInStep) {
    // gapless: the sound: its samples last as long as they decode to
    const std::tuple<std::string, uint64_t, uint64_t, bool, uint64_t, uint64_t, uint64_t, bool>
        cases[] = {
            {kCamera, 0, UINT64_MAX, false, 0, 3003, 90, true},
            {kCamera, 1300, 2700, false, 1201, 2802, 48, true},
            {kCamera, 1300, 2700, true, 1268, 2802, 48, true},
            {"cam_mp4v_25_g12_10s", 3100, 5000, false, 2880, 5280, 60, true},
            {"plain_vfr", 2500, 4000, false, 2080, 4120, 40, true},
            {"plain_vfr", 0, UINT64_MAX, false, 0, 8000, 155, true},
            {"plain_frag_key", 2500, 4000, false, 2080, 4080, 50, false},
            {"plain_version1", 1100, 3900, false, 1068, 4070, 90, true},
            // The picture of the in point is decoded after it.
            {"../playback/negative_offsets", 1074, 2900, true, 1040, 3000, 50, true},
        };
    for (const auto& [name, in, out, exact, actual_in, actual_out, pictures, gapless] : cases) {
        SCOPED_TRACE(name + (exact ? " exact" : "") + std::to_string(in));
        Rig rig(clip(name), in, out);
        rig.request.options.exact = exact;
        ASSERT_EQ(rig.Save(), kMovieOk);
        EXPECT_EQ(rig.saved.actualInMs, actual_in);
        EXPECT_EQ(rig.saved.actualOutMs, actual_out);
        EXPECT_EQ(rig.saved.videoSamples, pictures);
        EXPECT_EQ(rig.saved.verifiedSamples, pictures) << "byte for byte the source's";
        // The actual points are whole milliseconds, 48 samples each.
        if (gapless) {
            EXPECT_NEAR(static_cast<double>(best_lag(rig)), 0, 25);
        }
        EXPECT_EQ(rig.dir.FileCount(), 2u);

        // What was cut once can be cut again, and the first picture of it is shown at 0.
        const auto result = opened(rig.request.target);
        const MovieTrackInfo& video = result->GetInfo().video;
        const int64_t offset = shown_from(*result, video);
        if (exact) continue;
        EXPECT_EQ(offset, 0);
        EXPECT_EQ(video.edits.size(), 1u) << "nothing to wait for";
        const auto shown = (last_shown(*result) - video.edits.back().mediaTime) *
                           static_cast<int64_t>(result->GetInfo().timescale);
        EXPECT_NEAR(static_cast<double>(video.edits.back().segmentDuration),
                    static_cast<double>(shown) / video.timescale, 1)
            << "no picture is hidden at the end";
    }
}

TEST(Trimming, SavesWhatThereIsOfAHurtRecording) {
    const struct {
        const char* what;
        std::string source;
        uint64_t pictures, sound, damaged;
        std::vector<ReasonCode> notes;
        MovieCode strict;
        ReasonCode why = ReasonCode::kNone;  // of the strict form
    } cases[] = {
        {"ended before their sound", with_sound(kCamera, 2, 4, '\xE0'), 90, 141, 0, {}, kMovieOk},
        {"undecodable",
         with_sound(kCamera, 48, 50, '\xFF'),
         90,
         141,
         3,
         {ReasonCode::kSoundSilenced},
         kMovieCodec,
         ReasonCode::kDamagedSample},
        {"a byte short",
         clip("plain_frag_key").substr(0, 376169),
         200,
         375,
         0,
         {ReasonCode::kSamplesMissing},
         movie_code(FF4_RET_FORMAT),
         ReasonCode::kDamagedSample},
        {"cut short",
         clip("../hurt/cut_short"),
         161,
         302,
         0,
         {ReasonCode::kSamplesMissing},
         movie_code(FF4_RET_FORMAT),
         ReasonCode::kDamagedSample},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Rig rig(c.source), wav(c.source, 0, UINT64_MAX, "out.wav"), strict(c.source);
        rig.request.reading = wav.request.reading = kRescueDamaged;
        for (Rig* save : {&rig, &wav}) {
            ASSERT_EQ(save->Save(), kMovieOk) << ReasonText(save->saved.reason);
            EXPECT_EQ(save->saved.soundSamples, c.sound);
            EXPECT_EQ(save->saved.damagedSoundSamples, c.damaged);
            std::vector<ReasonCode> notes;
            for (const Reason& note : save->saved.notes)
                notes.push_back(note.code);
            EXPECT_EQ(notes, c.notes);
        }
        EXPECT_EQ(rig.saved.videoSamples, c.pictures);
        EXPECT_EQ(rig.saved.verifiedSamples, c.pictures);
        rig.dir.Write("whole.mp4", c.pictures == 90 ? clip(kCamera) : c.source);
        const auto source = decode(rig.dir.Path("whole.mp4")), saved = decode(rig.request.target);
        EXPECT_EQ(best_lag(source, 54000, saved, 54000), 0) << "in step after the damage";
        EXPECT_EQ(strict.Save(), c.strict);
        EXPECT_EQ(strict.saved.reason.code, c.why);
        EXPECT_EQ(strict.dir.FileCount(), c.strict == kMovieOk ? 2u : 1u);
    }
    Rig mostly(with_sound(kCamera, 40, 120, '\xFF'));
    mostly.request.reading = kRescueDamaged;
    EXPECT_EQ(mostly.Save(), kMovieCodec);
    EXPECT_EQ(mostly.saved.reason, (Reason{ReasonCode::kSoundMostlyDamaged,
                                           ReasonSide::kSource,
                                           mostly.request.source,
                                           {uint64_t{141}}}));
    EXPECT_EQ(mostly.dir.FileCount(), 1u);
}

TEST(Trimming, SamplesWithoutDurationAreWrittenToo) {
    const std::string last = patched(kCamera, "stts", "\0\0\0\1\0\0\2\x80"s, "\0\0\0\1\0\0\0\0"s);
    for (const char* target : {"out.mp4", "out.wav"}) {
        Rig rig(last, 0, UINT64_MAX, target);
        ASSERT_EQ(rig.Save(), kMovieOk) << ReasonText(rig.saved.reason);
        EXPECT_EQ(rig.saved.soundSamples, 141u);
        const auto result = std::string(target) == "out.mp4" ? rig.saved.audioSamples : 143;
        EXPECT_EQ(result, 143u) << "and the two that the encoder held";
    }
}

TEST(Trimming, TheRawFormLeavesTheCodecsDelay) {
    Rig rig(clip(kCamera), 0, 4000);
    rig.request.options.compensateDelay = false;
    ASSERT_EQ(rig.Save(), kMovieOk);
    EXPECT_EQ(rig.saved.audioSamples, 141u) << "one for each input but the first, which is hidden";
    EXPECT_EQ(decode(rig.request.target).size(), 141u * 1024);
}

TEST(Trimming, EffectsFollowTheActualPoints) {
    for (const bool exact : {false, true}) {
        Rig rig(clip("cam_mp4v_25_g12_10s"), 1100, 9200);
        rig.request.options.exact = exact;
        AMPEffectSettings effects;
        effects.fade = effects.normalize = 1;
        effects.peak = 0.5f;
        rig.editor.SetEffects(effects);
        ASSERT_EQ(rig.Save(), kMovieOk);
        const auto source = decode(rig.request.source), output = decode(rig.request.target);
        const auto in = static_cast<int64_t>(rig.saved.actualInMs);
        const auto power = [](const std::vector<int16_t>& sound, int64_t ms) {
            const auto at = sound.begin() + ms * 48;
            return std::inner_product(at, at + 2400, at, 0.0);
        };
        const auto gain = [&](int64_t ms) {
            return std::sqrt(power(output, ms) / power(source, in + ms));
        };
        // A second of silence and a rise over two; half way the gain's fourth power is a 16th.
        EXPECT_LT(gain(900), 0.001);
        EXPECT_NEAR(gain(1975), 2.0 / 16, 0.02);
        EXPECT_NEAR(gain(3100), 2.0, 0.1);
        const int64_t end = (exact ? 9200 : static_cast<int64_t>(rig.saved.actualOutMs)) - in;
        EXPECT_NEAR(gain(end - 2525), 2.0 / 16, 0.02);
        EXPECT_LT(gain(end - 990), 0.001);
    }
}

// What a new file takes over from its source.
auto carried(const CMovieInfoType& info) {
    const CVideoSampleDescriptionInfo& picture = info.videoDescriptions.at(0);
    return std::tuple(info.majorBrand, info.hasBrandMsnv, info.hasBrandIsom, info.hasBrandMp42,
                      info.timescale, info.metaData.size(), info.fileProfile & ~kProfileFragmented,
                      info.videoProfile.average_bitrate, info.video.role, info.video.roleDetail,
                      info.videoDescriptions.size(), picture.pixelAspect, picture.colour,
                      picture.avcConfig, picture.decoderConfig);
}

// The sample entry of a clip of HEVC, with all that is in it.
std::string hevc_entry(const std::string& clip) {
    const size_t at = clip.rfind("hev1");
    if (at == std::string::npos) return {};
    const auto* size = reinterpret_cast<const uint8_t*>(clip.data() + at - 4);
    return clip.substr(at - 4, get_be32(size));
}

TEST(Trimming, CarriesWhatTheSourceSays) {
    const std::string texts =
        patched("cam_texts", "FPRF", "\0\0\0\0\0\0\0\0"s, "\0\0\0\0\x10\0\0\5"s);
    // With a child that nothing here knows.
    const std::string hevc = patched("plain_hevc", "hev1", "btrt", "dvvC");
    for (const std::string& source :
         {clip("cam_mp4v_25_g12_10s"), texts, clip("plain_vfr"), hevc}) {
        SCOPED_TRACE(source.size());
        Rig rig(source, 500, 1500);
        ASSERT_EQ(rig.Save(), kMovieOk) << ReasonText(rig.saved.reason);
        const auto before = opened(rig.request.source), after = opened(rig.request.target);
        const CMovieInfoType& to = after->GetInfo();
        EXPECT_EQ(carried(to), carried(before->GetInfo()));
        EXPECT_EQ(hevc_entry(rig.dir.Read("out.mp4")), hevc_entry(source));
        EXPECT_FALSE(after->IsFragmented()) << "also where the source says that it is";
        // And what it says of itself.
        const CAudioSampleDescriptionInfo& sound = to.audioDescriptions.at(0);
        const uint32_t rate = to.hasBrandMsnv ? 128 : 0;
        EXPECT_EQ(
            std::tuple(to.minorVersion, to.audioProfile.average_bitrate,
                       to.audioProfile.max_bitrate, sound.entry.channel_count,
                       sound.entry.sample_size, sound.entry.sample_rate, sound.averageBitRate),
            std::tuple(0x146008Au, rate, rate, 2, 16, 48000u << 16, 128000u));
        for (const MovieTrackInfo* track : {&to.video, &to.audio})
            for (const MovieEdit& edit : track->edits)
                EXPECT_EQ(edit.rate, 0x10000u);
    }
}

TEST(Trimming, WavHasTheSelectionToTheFrame) {
    // first: sample of the movie's time
    const std::tuple<bool, int64_t> cases[] = {
        {false, 57658},  // 36 pictures are 1201.2 ms
        {true, 60861},   // 38 are 1267.93
    };
    for (const auto& [exact, first] : cases) {
        Rig rig(clip(kCamera), 1300, 2700, "out.wav");
        rig.request.options.exact = exact;
        ASSERT_EQ(rig.Save(), kMovieOk);
        const std::string wav = rig.dir.Read("out.wav");
        const auto size = static_cast<uint32_t>(rig.saved.audioSamples * 4);
        ASSERT_EQ(wav.size(), 44 + size);
        EXPECT_EQ(rig.saved.fileBytes, wav.size());
        EXPECT_EQ(rig.saved.audioBytes, size);
        // The RIFF size counts the whole header.
        EXPECT_EQ(wav.substr(0, 44), "RIFF" + Le(size + 44) + "WAVEfmt \x10\0\0\0\1\0\2\0"s +
                                         Le(48000) + Le(192000) + "\4\0\x10\0data"s + Le(size));
        const auto source = decode(rig.request.source);
        for (size_t i = 0; i < 20000; ++i) {
            const int high = static_cast<int8_t>(wav[45 + 4 * i]);
            const int value = high * 256 + static_cast<uint8_t>(wav[44 + 4 * i]);
            ASSERT_NEAR(value, source[static_cast<size_t>(first) + i], 1) << i;
        }
    }
}

// How many pictures lie together each time before sound comes; the sound keeps up with them.
std::vector<uint32_t> picture_runs(const std::string& path) {
    const auto movie = opened(path);
    const MovieTrackInfo* const tracks[] = {&movie->GetInfo().audio, &movie->GetInfo().video};
    std::map<uint64_t, std::pair<bool, double>> samples;  // by place: picture?, seconds
    for (const bool picture : {false, true}) {
        const MovieTrackInfo& track = *tracks[picture];
        Mp4SampleInfo info{};
        for (uint32_t n = 1; n <= track.sampleCount; ++n) {
            if (mp4_get_sample_info(movie->Session(), track.trackNumber, n, &info) == FF4_RET_OK)
                samples[info.offset] = {picture, 1.0 * info.duration / track.timescale};
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
    // Here only the first is a sync sample.
    const std::string one_group =
        patched("cam_mp4v_25_g12_10s", "stss", "\0\0\0\0\0\0\0\x15"s, "\0\0\0\0\0\0\0\1"s);
    const std::tuple<std::string, uint64_t, uint64_t, std::vector<uint32_t>> cases[] = {
        // A group of pictures at a time, of a long one a second in AVC and five in others.
        {clip(kCamera), 0, 3003, {12, 12, 12, 12, 12, 12, 12, 6}},
        {clip("plain_frag_key"), 2500, 4000, {25, 25}},
        {one_group, 0, 9000, {125, 125}},
    };
    for (const auto& [source, in, out, runs] : cases) {
        Rig rig(source, in, out);
        ASSERT_EQ(rig.Save(), kMovieOk) << ReasonText(rig.saved.reason);
        EXPECT_EQ(picture_runs(rig.request.target), runs);
    }
}

TEST(Trimming, SoundAloneComesASecondAtATime) {
    const std::tuple<uint64_t, uint64_t, char> cases[] = {{UINT64_MAX, 472, 11},
                                                          {1, 3, 1}};  // a selection is never empty
    for (const auto& [out, samples, chunks] : cases) {
        Rig rig(clip("cam_audio_only"), 0, out);
        ASSERT_EQ(rig.Save(), kMovieOk);
        EXPECT_EQ(rig.saved.audioSamples, samples);
        const std::string movie = rig.dir.Read("out.mp4");
        EXPECT_EQ(movie.at(movie.rfind("stco") + 11), chunks);
    }
}

// Bytes of a file's only chunk of PCM.
std::string media_of(const std::string& movie) {
    const size_t at = movie.find("mdat") + 4;
    return movie.substr(at, movie.find("moov", at) - 4 - at);
}

TEST(Trimming, PcmKeepsItsByteOrder) {
    std::string little = patched("../playback/pcm", "stsd", "twos", "sowt");
    const size_t media = little.find(media_of(little));
    for (size_t i = media; i + 1 < media + 96000; i += 2)
        std::swap(little[i], little[i + 1]);
    for (const std::string& source : {clip("../playback/pcm"), little}) {
        Rig movie(source, 0, 1000), wav(source, 0, 1000, "out.wav");
        ASSERT_EQ(movie.Save(), kMovieOk) << ReasonText(movie.saved.reason);
        EXPECT_EQ(movie.saved.audioSamples, 24000u);
        const std::string out = movie.dir.Read("out.mp4");
        EXPECT_EQ(out.find("stss"), std::string::npos) << "all are sync";
        EXPECT_EQ(media_of(out), media_of(source));
        ASSERT_EQ(wav.Save(), kMovieOk) << ReasonText(wav.saved.reason);
        EXPECT_EQ(wav.dir.Read("out.wav").substr(44), media_of(little));
    }
}

TEST(Trimming, EachChunkOfPcmHasOneDescription) {
    for (const bool same : {true, false}) {
        MovieTrack sound{fourcc("soun"), 48000, {}, {300}};
        for (uint32_t n = 0; n < 4800; ++n)
            sound.samples.push_back({.size = 4, .duration = 1, .description = n < 1000 ? 1u : 2u});
        sound.size_bits = 0;
        sound.entries = {Twos(), same ? Twos() : AudioEntry({.format = "sowt"})};
        MovieBuilder movie{.tracks = {sound}};
        const Bytes bytes = movie.Build();
        Rig rig(std::string(bytes.begin(), bytes.end()));
        EXPECT_EQ(rig.Save(), same ? kMovieOk : kMovieCodec) << ReasonText(rig.saved.reason);
        EXPECT_EQ(rig.saved.reason.code, same ? ReasonCode::kNone : ReasonCode::kSoundChanges);
        if (!same) continue;
        const auto saved = opened(rig.request.target);
        Mp4SampleInfo info{};
        for (const uint32_t n : {1u, 1000u, 1001u, 4800u}) {
            ASSERT_EQ(mp4_get_sample_info(saved->Session(), 1, n, &info), FF4_RET_OK);
            EXPECT_EQ(info.descriptionIndex, n <= 1000 ? 1u : 2u) << n;
        }
    }
}

TEST(Trimming, NothingIsLeftWhereASaveDoesNotEnd) {
    for (int step = 0; step < 5; ++step) {
        Rig cancelled(clip(kCamera), 0, 3000), changed(clip(kCamera), 0, 3000);
        EXPECT_EQ(cancelled.Save(Steps(step)), kMovieCancelled);
        EXPECT_EQ(cancelled.dir.FileCount(), 1u) << "the source alone, " << step;
        const auto damage = [&] {
            std::filesystem::resize_file(changed.request.source, 150000 + step);
        };
        EXPECT_EQ(changed.Save(Steps(step, damage)), kMovieChanged) << step;
        EXPECT_EQ(changed.dir.FileCount(), 1u) << step;
    }
}

TEST(Trimming, WhatCannotBeReadBackRightNeverGetsItsName) {
    Rig rig(clip(kCamera), 0, 3000);
    // The output has no name yet: it is found among the open files.
    const auto spoil = [&] {
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const std::string file = std::filesystem::read_symlink(entry, ignored).string();
            const bool output = file.starts_with(rig.dir.Path("")) && file != rig.request.source;
            if (!output || entry.file_size(ignored) < 100000) continue;  // not complete yet
            std::fstream open(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
            open.seekp(2000);
            open << "spoilt";
        }
    };
    EXPECT_EQ(rig.Save(Steps(0, spoil)), kMovieMismatch);
    EXPECT_EQ(
        rig.saved.reason,
        (Reason{
            ReasonCode::kPictureDiffers, ReasonSide::kTarget, rig.request.target, {uint64_t{1}}}));
    EXPECT_EQ(rig.dir.FileCount(), 1u);
}

// Also while reading back, whose file is the target: no failed read counts as another picture.
TEST(Trimming, EveryFailedReadIsToldAndLeavesNothing) {
    for (uint64_t n = 1;; n += 5) {
        SCOPED_TRACE(n);
        Rig rig(clip(kCamera), 0, 1000);
        std::optional<FailingReads> fail(n);
        const MovieCode code = rig.Save();
        fail.reset();
        if (!FailingReads::Met()) {
            EXPECT_EQ(code, kMovieOk);
            EXPECT_GT(n, 100u);
            break;
        }
        if (code == kMovieOk) continue;  // texts are copied as far as they can be read
        EXPECT_EQ(rig.saved.reason.SystemError(), EIO) << ReasonName(rig.saved.reason.code);
        EXPECT_EQ(rig.dir.FileCount(), 1u);
    }
}

TEST(Trimming, EveryFullDiskIsToldAndLeavesNothing) {
    struct rlimit before {};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    for (const char* target : {"out.mp4", "out.wav"}) {
        Rig rig(clip(kCamera), 0, 3000, target);
        const std::vector<ReasonArgument> error{ReasonError{EFBIG}};
        const Reason full{ReasonCode::kNoRoom, ReasonSide::kTarget, rig.request.target, error};
        for (rlim_t limit = 0; limit < 100000; limit += 9001) {
            SCOPED_TRACE(limit);
            const struct rlimit small = {limit, before.rlim_max};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
            EXPECT_EQ(rig.Save(), kMovieSystem);
            EXPECT_EQ(rig.saved.reason, full);
            EXPECT_EQ(rig.dir.FileCount(), 1u);
        }
        setrlimit(RLIMIT_FSIZE, &before);
    }
    signal(SIGXFSZ, handler);
}

TEST(Trimming, RoomIsLookedForFirst) {
    // Each of 24000 samples of sound claims to take 2 GB.
    Rig rig(patched("../playback/pcm", "stsz", "\0\0\0\0\0\0\0\4"s, "\0\0\0\0\x7F\xFF\xFF\xFF"s), 0,
            1000);
    EXPECT_EQ(rig.Save(Steps(0)), kMovieSystem);
    EXPECT_EQ(rig.saved.reason.code, ReasonCode::kTooLittleRoom);
    EXPECT_EQ(rig.saved.reason.side, ReasonSide::kTarget);
    EXPECT_EQ(rig.saved.reason.SystemError(), ENOSPC) << "for those who ask for the error";
    EXPECT_EQ(std::get<uint64_t>(rig.saved.reason.arguments.at(0)) / 1000, 51539u)
        << "24000 * 2147483647 bytes";
    EXPECT_EQ(rig.dir.FileCount(), 1u);
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
        const Rig rig(clip("cam_texts"), 0, 2000);
        Heard heard;
        XpEvent paused;
        Mp4MovieTrimmingEx job;
        heard.at_first_progress = [&] {
            job.Pause();
            paused.Set();
        };
        ASSERT_TRUE(job.SaveMp4(rig.request, &heard, {}));
        paused.Wait();
        EXPECT_FALSE(job.SaveMp4(rig.request, &heard, {})) << "one at a time";
        // In the time of the pause the same is saved three times.
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Rig(clip("cam_texts"), 0, 2000).Save(), kMovieOk);
        EXPECT_FALSE(heard.ended);
        cancel ? job.Cancel() : job.Resume();
        job.Join();
        if (cancel) {
            EXPECT_EQ(heard.kinds, (std::vector{Kind::kStarted, Kind::kCancelled}));
            EXPECT_EQ(rig.dir.FileCount(), 1u);
            continue;
        }
        EXPECT_EQ(heard.kinds, (std::vector{Kind::kStarted, Kind::kSegmentDone, Kind::kAllDone}));
        EXPECT_EQ(heard.saved.videoSamples, 60u);
        EXPECT_EQ(heard.saved.fileBytes, rig.dir.Read("out.mp4").size());
        EXPECT_FALSE(heard.saved.reason);
    }
}

TEST(TrimmingJob, HandsOverWhyItFailed) {
    Rig rig(clip("cam_texts"), 0, 1000, "there.wav");
    rig.dir.Write("there.wav", "precious");
    Heard heard;
    Mp4MovieTrimmingEx job;
    ASSERT_TRUE(job.SaveWav(rig.request, &heard, {}));
    job.Join();
    EXPECT_EQ(heard.kinds, (std::vector{Kind::kStarted, Kind::kFailed}));
    EXPECT_EQ(heard.code, kMovieSystem);
    EXPECT_EQ(heard.system_error, EEXIST);
    EXPECT_EQ(heard.saved.reason.side, ReasonSide::kTarget);
    EXPECT_EQ(heard.saved.reason.file, rig.request.target);
    EXPECT_EQ(rig.dir.Read("there.wav"), "precious");
}

TEST(Trimming, WhatCannotBeSavedIsNamedAndNotLeftOut) {
    using enum ReasonCode;
    const std::string texts = "cam_texts", hevc = "plain_hevc";
    MovieTrack track = VideoTrack(10);
    track.entries = {Avc1(), VisualEntry({.format = "vp09"})};
    const Bytes two = MovieBuilder{.tracks = {track}}.Build();
    const struct {
        ReasonCode code;
        std::string source;
        std::vector<ReasonArgument> arguments;
        uint64_t in = 0, out = 2000;
        const char* target = "out.mp4";
    } cases[] = {
        {kPictureKind, patched(hevc, "vmhd", "hev1", "av01"), {"AV1"}},
        {kPictureDamaged, patched(hevc, "vmhd", "hvcC", "none"), {}},
        {kPictureKind, std::string(two.begin(), two.end()), {"VP9"}},
        {kPictureDamaged, patched(texts, "avcC", "\xFF\xE1"s, "\xFF\xFF"s), {}},
        {kPictureUnknown, patched(hevc, "vmhd", "hev1", "\1\2\3\4"), {}},
        {kSoundKind, patched(texts, "stsd", "mp4a", "ac-3"), {"AC-3"}},
        {kSoundUnknown, patched(texts, "stsd", "mp4a", "\1\2\3\4"), {}},
        {kSoundNotDecoded, patched(texts, "esds", "\x40\x15"s, "\x6B\x15"s), {"MP3"}},
        {kSoundConfiguration, patched(texts, "esds", "\x11\x90"s, "\x01\x90"s), {}},
        {kNoSound, clip("../playback/picture_alone"), {}, 0, 900, "out.wav"},
        {kNoTimescale, patched(texts, "mvhd", "\0\1\x5F\x90"s, "\0\0\0\0"s), {}},
        {kSamplesOverlap, overlapping(), {}},
        {kInPastEnd, clip(texts), {ReasonTime{2005}}, 5000, 9000},
        {kOutBeforeIn, clip(texts), {}, 1500, 1000},
    };
    for (const auto& c : cases) {
        Rig rig(c.source, c.in, c.out, c.target);
        EXPECT_NE(rig.Save(), kMovieOk);
        EXPECT_EQ(rig.saved.reason,
                  (Reason{c.code, ReasonSide::kSource, rig.request.source, c.arguments}))
            << ReasonName(c.code) << " and not " << ReasonName(rig.saved.reason.code);
        EXPECT_EQ(rig.dir.FileCount(), 1u);
    }
}

TEST(Trimming, AWavIsNoLongerThanItsSamplesCanBe) {
    // Each of the 94 samples claims 2^31 frames: 6 days of sound, more than any disk would hold.
    Rig rig(patched("cam_texts", "stts", "\0\0\4\0"s, "\x7F\xFF\xFF\xFF"s), 0, UINT64_MAX,
            "out.wav");
    EXPECT_EQ(rig.Save(), kMovieOk) << ReasonText(rig.saved.reason);
    EXPECT_LE(rig.saved.audioSamples, 94u * 2048);
}

}  // namespace
}  // namespace tarn
