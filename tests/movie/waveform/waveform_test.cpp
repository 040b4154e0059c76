#include "movie/waveform/waveform_movie.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "movie/umc/aac_config.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using Row = std::vector<int8_t>;

// The waveform of a movie whose sound samples hold the given bytes, laid end to end.
struct Waveform {
    Waveform(MovieBuilder movie, const Bytes& sound) {
        Bytes file = movie.Build();
        size_t at = 0;
        for (const MovieSample& sample : movie.tracks.back().samples)
            for (uint32_t i = 0; i < sample.size && at < sound.size(); ++i)
                file[sample.offset + i] = sound[at++];
        Read(file);
    }
    explicit Waveform(const Bytes& file) { Read(file); }

    void Read(const Bytes& file) {
        dir.Write("clip.mp4", {file.begin(), file.end()});
        EXPECT_TRUE(reader.Open(dir.Path("clip.mp4"), 1120));
        left = {reader.GetLeft(), reader.GetLeft() + reader.GetCount()};
        right = {reader.GetRight(), reader.GetRight() + reader.GetCount()};
    }
    TempDir dir;
    WFMP4Reader reader;
    Row left, right;
};

MovieTrack Sound(const Bytes& entry, uint32_t rate, uint32_t count, MovieSample sample) {
    return {.handler = "soun",
            .timescale = rate,
            .samples = std::vector<MovieSample>(count, sample),
            .entries = {entry}};
}

// Frames whose left samples count up from 1 in the high byte, with a low byte of 0xFF; the right
// ones count down from -1.
Bytes CountingSound(uint32_t frames, uint32_t channels, bool little) {
    Bytes sound;
    for (uint32_t f = 1; f <= frames; ++f)
        for (uint32_t c = 0; c < channels; ++c) {
            const auto high = static_cast<uint8_t>(c == 0 ? f : 0x100 - f - 10 * (c - 1));
            sound.push_back(little ? 0xFF : high);
            sound.push_back(little ? high : 0xFF);
        }
    return sound;
}

TEST(Waveform, PcmIsPickedAsItLies) {
    const AudioFields twos{.format = "twos", .rate = 2240};
    const auto entry = [](AudioFields fields) { return AudioEntry(fields); };
    AudioFields sowt = twos, mono = twos, surround = twos, bytes = twos, unnamed = twos;
    sowt.format = "sowt", mono.channels = 1, surround.channels = 6, bytes.bits = 8;
    unnamed.rate = 0;
    const Row odd = {1, 3, 5, 7, 9}, minus = {-1, -3, -5, -7, -9};
    const struct {
        const char* name;
        MovieTrack track;
        bool camera;
        uint32_t channels;
        Row left, right;
    } cases[] = {
        {"every second frame", Sound(entry(twos), 2240, 10, {4, 1}), true, 2, odd, minus},
        {"not the camera's", Sound(entry(twos), 2240, 10, {4, 1}), false, 2, odd, minus},
        {"little-endian", Sound(entry(sowt), 2240, 10, {4, 1}), true, 2, odd, minus},
        {"mono", Sound(entry(mono), 2240, 10, {2, 1}), false, 1, odd, odd},
        {"the front pair", Sound(entry(surround), 2240, 10, {12, 1}), false, 6, odd, minus},
        {"frames in groups", Sound(entry(twos), 2240, 2, {20, 5}), false, 2, odd, minus},
        {"a rate too high for the entry", Sound(entry(unnamed), 2240, 10, {4, 1}), false, 2, odd,
         minus},
        {"8 bits", Sound(entry(bytes), 2240, 10, {2, 1}), false, 1, {}, {}},
    };
    for (const auto& c : cases)
        for (const uint32_t chunk : {1u, 3u, 100u}) {
            SCOPED_TRACE(testing::Message() << c.name << ", chunks of " << chunk);
            MovieBuilder movie{.tracks = {VideoTrack(3), c.track}, .camera = c.camera};
            movie.tracks.back().chunks = {chunk};
            if (c.camera)
                for (MovieTrack& track : movie.tracks)
                    track.role = 1;
            const bool little = c.track.entries[0] == AudioEntry(sowt);
            const Waveform wave(movie, CountingSound(10, c.channels, little));
            EXPECT_EQ(wave.left, c.left);
            EXPECT_EQ(wave.right, c.right);
        }
}

// Old files call every frame a sample of one byte.
TEST(Waveform, PcmFramesOfOneByteAreWhole) {
    MovieTrack track = Sound(AudioEntry({.format = "sowt", .rate = 1120}), 1120, 4, {1, 1});
    track.size_bits = 0;
    track.chunks = {4};
    MovieBuilder movie{.tracks = {track}, .moov_first = true};
    Bytes file = movie.Build();
    file.resize(movie.tracks[0].samples[0].offset);
    Append(&file, CountingSound(4, 2, true));
    EXPECT_EQ(Waveform(file).left, (Row{1, 2, 3, 4}));
}

TEST(Waveform, TheProfileSaysWhetherThereIsOne) {
    MovieTrack track = Sound(Twos(), 48000, 480, {4, 1});
    MovieBuilder movie{.tracks = {VideoTrack(3), track}, .top_extra = Prof({Aprf(1)})};
    EXPECT_EQ(Waveform(movie, {}).left.size(), 0u);
    EXPECT_EQ(Waveform(movie, {}).reader.Fault(), WaveformFault::kNoSound);
    movie.top_extra = Prof({Aprf(2)});
    EXPECT_EQ(Waveform(movie, {}).left.size(), 11u);
    movie.tracks.pop_back();
    EXPECT_EQ(Waveform(movie, {}).reader.Fault(), WaveformFault::kNoSound);
}

// A header may claim hours: the file holds ten frames.
TEST(Waveform, RowsAreNoLongerThanTheFileCanHold) {
    MovieTrack track = Sound(Twos(), 48000, 10, {4, 0x7FFFFFFF});
    const auto points = [&](const Bytes& entry) {
        track.entries = {entry};
        return Waveform(MovieBuilder{.tracks = {track}}, {}).left.size();
    };
    const size_t bytes = MovieBuilder{.tracks = {track}}.Build().size();
    EXPECT_EQ(points(Twos()), bytes / 4 * 1120 / 48000);
    EXPECT_EQ(points(Mp4a()), 10 * 2048 * 1120 / 7350u);
    EXPECT_EQ(points(AudioEntry({.format = "twos", .rate = 1})), bytes);
}

Bytes ReadData(const std::string& name) {
    std::ifstream in(TARN_TEST_DATA "/aac/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// An AAC clip of the frames of an ADTS file.
struct AacClip {
    AacClip(const std::string& name, const Bytes& config, uint32_t rate)
        : track(Sound(AudioEntry({.rate = rate, .children = Esds({.specific_info = config})}), rate,
                      0, {})) {
        const Bytes stream = ReadData(name + ".aac");
        for (size_t at = 0; at < stream.size();) {
            const std::span<const uint8_t> rest(stream.data() + at, stream.size() - at);
            const uint32_t length = UMC::AdtsFrameLength(rest);
            if (length == 0) break;
            samples.emplace_back(rest.begin() + 7, rest.begin() + length);
            at += length;
        }
    }
    Waveform Read() {
        Bytes all;
        track.samples.clear();
        for (const Bytes& sample : samples) {
            track.samples.push_back({static_cast<uint32_t>(sample.size()), 1024});
            Append(&all, sample);
        }
        return Waveform(MovieBuilder{.tracks = {track}}, all);
    }
    std::vector<Bytes> samples;
    MovieTrack track;
};

// The high byte of a reference sample, which may be one unit of 16 bits off.
int Reference(const Bytes& pcm, size_t frame, size_t channels, size_t channel) {
    const size_t at = 2 * (frame * channels + channel) + 1;
    return at < pcm.size() ? static_cast<int8_t>(pcm[at]) : 0;
}

void ExpectPoints(const Row& row, const std::string& name, uint32_t rate, size_t channels,
                  size_t channel, size_t first, size_t end) {
    const Bytes pcm = ReadData(name + ".pcm");
    int apart = 0, loudest = 0;
    for (size_t p = 0; p < row.size(); ++p) {
        const size_t frame = p * rate / 1120;
        if (frame < first || frame >= end) continue;
        const int expected = Reference(pcm, frame, channels, channel);
        apart = std::max(apart, std::abs(row[p] - expected));
        loudest = std::max(loudest, std::abs(expected));
    }
    EXPECT_LE(apart, 1);
    EXPECT_GT(loudest, 4);  // or there is nothing to compare
}

TEST(Waveform, AacIsPickedFromWhatIsDecoded) {
    const struct {
        const char* name;
        Bytes config;
        uint32_t rate;
        size_t channels, right;
    } cases[] = {
        {"stereo_48k", {0x11, 0x90}, 48000, 2, 1}, {"stereo_44k", {0x12, 0x10}, 44100, 2, 1},
        {"mono_48k", {0x11, 0x88}, 48000, 1, 0},   {"surround_48k", {0x11, 0xb0}, 48000, 6, 1},
        {"loud_32k", {0x12, 0x90}, 32000, 2, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AacClip clip(c.name, c.config, c.rate);
        const Waveform wave = clip.Read();
        const size_t frames = 1024 * clip.samples.size();
        EXPECT_EQ(wave.reader.Fault(), WaveformFault::kNone) << ReasonText(wave.reader.GetReason());
        EXPECT_EQ(wave.left.size(), frames * 1120 / c.rate);
        ExpectPoints(wave.left, c.name, c.rate, c.channels, 0, 0, frames);
        ExpectPoints(wave.right, c.name, c.rate, c.channels, c.right, 0, frames);
    }
}

// A sample's time may be longer than what is decoded of it: the rest is silence.
TEST(Waveform, AacSamplesKeepTheirTime) {
    AacClip clip("stereo_48k", {0x11, 0x90}, 48000);
    const Row whole = clip.Read().left;
    clip.track.samples.clear();
    Bytes all;
    for (const Bytes& sample : clip.samples) {
        clip.track.samples.push_back({static_cast<uint32_t>(sample.size()), 3000});
        Append(&all, sample);
    }
    const Row spread = Waveform(MovieBuilder{.tracks = {clip.track}}, all).left;
    ASSERT_EQ(spread.size(), clip.samples.size() * 70);  // 3000 frames are 70 points
    for (size_t p = 0; p < spread.size(); ++p) {
        const size_t frame = p % 70 * 48000 / 1120, at = p / 70 * 1024 + frame;
        if (frame >= 1024) {
            ASSERT_EQ(spread[p], 0) << p;
        } else if (at * 1120 % 48000 == 0) {
            ASSERT_EQ(spread[p], whole[at * 1120 / 48000]) << p;
        }
    }
}

// Another unit of time and a wrong rate in the entry: the points stay where they are.
TEST(Waveform, AacRateIsTheDecoders) {
    AacClip clip("stereo_48k", {0x11, 0x90}, 48000);
    Bytes all;
    for (const Bytes& sample : clip.samples) {
        clip.track.samples.push_back({static_cast<uint32_t>(sample.size()), 512});
        Append(&all, sample);
    }
    clip.track.timescale = 24000;
    clip.track.entries = {
        AudioEntry({.rate = 24000, .children = Esds({.specific_info = {0x11, 0x90}})})};
    const Waveform wave(MovieBuilder{.tracks = {clip.track}}, all);
    EXPECT_EQ(wave.left, AacClip("stereo_48k", {0x11, 0x90}, 48000).Read().left);
}

TEST(Waveform, BrokenFramesEndItAndEmptyOnesDoNot) {
    AacClip clip("stereo_48k", {0x11, 0x90}, 48000);
    ASSERT_GT(clip.samples.size(), 6u);
    AacClip holed = clip;
    // The decoder misses a frame and the one after it needs the missing one.
    holed.samples[3].clear();
    holed.samples.back().clear();
    const Waveform with_hole = holed.Read();
    EXPECT_EQ(with_hole.reader.Fault(), WaveformFault::kNone);
    ExpectPoints(with_hole.left, "stereo_48k", 48000, 2, 0, 0, 3 * 1024);
    ExpectPoints(with_hole.left, "stereo_48k", 48000, 2, 0, 6 * 1024,
                 1024 * (clip.samples.size() - 1));
    EXPECT_EQ(with_hole.left[72], 0);  // frame 3085, the first point in the hole

    clip.samples[3] = Bytes(clip.samples[3].size(), 0xFF);
    const Waveform broken = clip.Read();
    EXPECT_EQ(broken.reader.Fault(), WaveformFault::kCutShort);
    EXPECT_EQ(broken.reader.GetReason().code, ReasonCode::kSoundBroken);
    EXPECT_EQ(broken.reader.GetReason().file, broken.dir.Path("clip.mp4"));
    EXPECT_EQ(broken.reader.GetEndMs(), 64u);  // three frames of 1024
    EXPECT_EQ(broken.left.size(), with_hole.left.size());
    ExpectPoints(broken.left, "stereo_48k", 48000, 2, 0, 0, 3 * 1024);
    EXPECT_TRUE(std::all_of(broken.left.begin() + 72, broken.left.end(),
                            [](int8_t point) { return point == 0; }));
}

// Whatever is in a damaged file, something comes back.
TEST(Waveform, DamagedFiles) {
    std::ifstream list(TARN_TEST_DATA "/broken/expected.jsonl");
    int files = 0;
    for (std::string line; std::getline(list, line); ++files) {
        const size_t at = line.find(".mp4"), start = line.rfind('"', at) + 1;
        WFMP4Reader reader;
        EXPECT_TRUE(
            reader.Open(TARN_TEST_DATA "/broken/" + line.substr(start, at + 4 - start), 1120));
        EXPECT_LT(reader.GetCount(), 1000000u) << line;
        EXPECT_EQ(!reader.GetReason(), reader.Fault() == WaveformFault::kNone);
    }
    EXPECT_GT(files, 80);
}

}  // namespace
}  // namespace tarn
