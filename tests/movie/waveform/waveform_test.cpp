#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "movie/umc/aac_config.h"
#include "movie/waveform/peaks.h"
#include "movie/waveform/wave_reader.h"
#include "movie/waveform/waveform_movie.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Row = WaveformRow;

// The waveform of a movie whose sound samples hold the given bytes, laid end to end.
struct Waveform {
    static Bytes Filled(MovieBuilder movie, const Bytes& sound) {
        Bytes file = movie.Build();
        size_t at = 0;
        for (const MovieSample& sample : movie.tracks.back().samples)
            for (uint32_t i = 0; i < sample.size && at < sound.size(); ++i)
                file[sample.offset + i] = sound[at++];
        return file;
    }
    Waveform(const MovieBuilder& movie, const Bytes& sound) : Waveform(Filled(movie, sound)) {}
    explicit Waveform(const Bytes& file) {
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
    AudioFields sowt = twos, mono = twos, surround = twos, bytes = twos, unnamed = twos;
    sowt.format = "sowt", mono.channels = 1, surround.channels = 6, bytes.bits = 8;
    unnamed.rate = 0;
    const Row odd = {1, 3, 5, 7, 9}, minus = {-1, -3, -5, -7, -9};
    const struct {
        const char* name;
        const AudioFields& entry;
        MovieSample sample;
        Row left, right;
    } cases[] = {
        {"every second frame", twos, {4, 1}, odd, minus},
        {"little-endian", sowt, {4, 1}, odd, minus},
        {"mono", mono, {2, 1}, odd, odd},
        {"the front pair", surround, {12, 1}, odd, minus},
        {"frames in groups", twos, {20, 5}, odd, minus},
        {"a rate too high for the entry", unnamed, {4, 1}, odd, minus},
        {"8 bits", bytes, {2, 1}, {}, {}},
    };
    for (const auto& c : cases)
        for (const uint32_t chunk : {1u, 3u, 100u}) {
            SCOPED_TRACE(testing::Message() << c.name << ", chunks of " << chunk);
            MovieTrack track = Sound(AudioEntry(c.entry), 2240, 10 / c.sample.duration, c.sample);
            track.chunks = {chunk};
            const Waveform wave({.tracks = {VideoTrack(3), track}},
                                CountingSound(10, c.entry.channels, &c.entry == &sowt));
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
        return Waveform({.tracks = {track}}, {}).left.size();
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
    explicit AacClip(const std::string& name, const Bytes& config = {0x11, 0x90},
                     uint32_t rate = 48000)
        : track(Sound(AudioEntry({.rate = rate, .children = Esds({.specific_info = config})}), rate,
                      0, {})) {
        const Bytes stream = ReadData(name + ".aac");
        std::span<const uint8_t> rest(stream);
        while (const uint32_t length = UMC::AdtsFrameLength(rest)) {
            samples.emplace_back(rest.begin() + 7, rest.begin() + length);
            rest = rest.subspan(length);
        }
    }
    Waveform Read(uint32_t duration = 1024) {
        Bytes all;
        track.samples.clear();
        for (const Bytes& sample : samples) {
            track.samples.push_back({static_cast<uint32_t>(sample.size()), duration});
            Append(&all, sample);
        }
        return Waveform({.tracks = {track}}, all);
    }
    std::vector<Bytes> samples;
    MovieTrack track;
};

// The reference may be one unit of 16 bits off.
TEST(Waveform, AacIsPickedFromWhatIsDecoded) {
    const std::tuple<const char*, Bytes, uint32_t, size_t, size_t> cases[] = {
        {"stereo_48k", {0x11, 0x90}, 48000, 2, 1}, {"stereo_44k", {0x12, 0x10}, 44100, 2, 1},
        {"mono_48k", {0x11, 0x88}, 48000, 1, 0},   {"surround_48k", {0x11, 0xb0}, 48000, 6, 1},
        {"loud_32k", {0x12, 0x90}, 32000, 2, 1},
    };
    for (const auto& [name, config, rate, channels, right] : cases) {
        SCOPED_TRACE(name);
        AacClip clip(name, config, rate);
        const Waveform wave = clip.Read();
        EXPECT_EQ(wave.reader.Fault(), WaveformFault::kNone) << ReasonText(wave.reader.GetReason());
        ASSERT_EQ(wave.left.size(), 1024 * clip.samples.size() * 1120 / rate);
        const Bytes pcm = ReadData(std::string(name) + ".pcm");
        int loudest = 0;
        for (size_t p = 0; p < wave.left.size(); ++p) {
            const size_t at = 2 * channels * (p * rate / 1120) + 1;  // of the high byte
            const int left = static_cast<int8_t>(pcm.at(at));
            ASSERT_LE(std::abs(wave.left[p] - left), 1) << p;
            ASSERT_LE(std::abs(wave.right[p] - static_cast<int8_t>(pcm.at(at + 2 * right))), 1);
            loudest = std::max(loudest, std::abs(left));
        }
        EXPECT_GT(loudest, 4);  // or there is nothing to compare
    }
}

// A sample's time may be longer than what is decoded of it: the rest is silence.
TEST(Waveform, AacSamplesKeepTheirTime) {
    AacClip clip("stereo_48k");
    const Row whole = clip.Read().left, spread = clip.Read(3000).left;
    ASSERT_EQ(spread.size(), clip.samples.size() * 70);  // 3000 frames are 70 points
    for (size_t p = 0; p < spread.size(); ++p) {
        const size_t frame = p % 70 * 48000 / 1120, at = p / 70 * 1024 + frame;
        if (frame >= 1024) {
            ASSERT_EQ(spread[p], 0) << p;
        } else if (at * 1120 % 48000 == 0) {
            ASSERT_EQ(spread[p], whole[at * 1120 / 48000]) << p;
        }
    }
    // Another unit of time: the points stay where they are.
    clip.track.timescale = 24000;
    EXPECT_EQ(clip.Read(512).left, whole);
}

TEST(Waveform, BrokenFramesEndItAndEmptyOnesDoNot) {
    AacClip clip("stereo_48k"), holed = clip;
    const Row whole = clip.Read().left;
    // The decoder misses a frame and the one after it needs the missing one.
    holed.samples[3].clear();
    holed.samples.back().clear();
    const Waveform with_hole = holed.Read();
    EXPECT_EQ(with_hole.reader.Fault(), WaveformFault::kNone);
    ASSERT_EQ(with_hole.left.size(), whole.size());
    const auto equal = [&](const Row& row, size_t first, size_t end) {
        return std::equal(row.begin() + first, row.begin() + end, whole.begin() + first);
    };
    // Points 72 and 144 are the first ones of the fourth and the seventh frame.
    EXPECT_TRUE(equal(with_hole.left, 0, 72));
    EXPECT_TRUE(equal(with_hole.left, 144, (clip.samples.size() - 1) * 1024 * 1120 / 48000));
    EXPECT_EQ(with_hole.left[72], 0);

    clip.samples[3] = Bytes(clip.samples[3].size(), 0xFF);
    const Waveform broken = clip.Read();
    EXPECT_EQ(broken.reader.Fault(), WaveformFault::kCutShort);
    EXPECT_EQ(broken.reader.GetReason().code, ReasonCode::kSoundBroken);
    EXPECT_EQ(broken.reader.GetEndMs(), 64u);  // three frames of 1024
    EXPECT_TRUE(equal(broken.left, 0, 72));
    EXPECT_EQ(Row(broken.left.begin() + 72, broken.left.end()), Row(whole.size() - 72));
}

// Three frames, at 1120 Hz three points: left 1, 2, -128, right -1, 0, 127.
const std::string kSound = WaveSound({0x017F, 0xFF7F, 0x0180, 0xFF80, 0x7F80, 0x7F7F});

TEST(WaveReader, TakesTheSoundThatIsThere) {
    const Row left = {1, 2, -128}, right = {-1, 0, 127};
    const std::string list = "LIST";
    const std::tuple<const char*, std::string, bool, Row, Row> cases[] = {
        {"plain", WaveFile({}, kSound), true, left, right},
        {"a chunk before it", WaveFile({.chunks = list + Le(2) + "xy"}, kSound), true, left, right},
        {"no pad byte", WaveFile({.chunks = list + Le(3) + "xyz"}, kSound), true, left, right},
        {"'a' in second place is enough", WaveFile({.name = "fact"}, kSound), true, left, right},
        {"'d' in second place is not", WaveFile({.name = "LdST"}, kSound), false, {}, {}},
        {"claims 4 GiB", WaveFile({.claimed = 0xFFFFFFFF}, kSound), true, left, right},
        {"ends inside a frame", WaveFile({.claimed = 10}, kSound), true, {1, 2}, {-1, 0}},
        {"half the points", WaveFile({.rate = 2240}, kSound), true, {1}, {-1}},
        {"no sound", WaveFile({}, ""), true, {}, {}},
        {"a rate of 0", WaveFile({.rate = 0}, kSound), false, {}, {}},
        {"a rate of no sound", WaveFile({.rate = 1}, kSound), false, {}, {}},
    };
    TempDir dir;
    for (const auto& [name, file, opens, due_left, due_right] : cases) {
        SCOPED_TRACE(name);
        dir.Write("a.wav", file);
        WFWaveReader reader;
        EXPECT_EQ(reader.Open(dir.Path("a.wav"), 1120), opens);
        EXPECT_EQ(!reader.GetReason(), opens);
        ASSERT_EQ(reader.GetCount(), due_left.size());
        EXPECT_EQ(Row(reader.GetLeft(), reader.GetLeft() + reader.GetCount()), due_left);
        EXPECT_EQ(Row(reader.GetRight(), reader.GetRight() + reader.GetCount()), due_right);
    }
}

// Positions start afresh every 26214400 frames, which hold 611669 points at 48 kHz.
TEST(WaveReader, StartsAfreshBehindAHundredMebibytes) {
    TempDir dir;
    constexpr uint32_t kBlock = 0x6400000;
    dir.Write("a.wav", WaveFile({.rate = 48000, .claimed = kBlock + 43 * 4}, ""));
    const std::string path = dir.Path("a.wav");
    const uint64_t head = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, head + kBlock + 43 * 4);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(head + kBlock)) << Le(0x2A00, 2) << Le(0x1500, 2);
    file.close();

    WFWaveReader reader;
    ASSERT_TRUE(reader.Open(path, 1120));
    ASSERT_EQ(reader.GetCount(), 611670u);
    EXPECT_EQ(reader.GetLeft()[611669], 0x2A);
    EXPECT_EQ(reader.GetRight()[611669], 0x15);
    reader.SetProgress([](uint32_t, uint32_t count) { return count != 611670; });
    EXPECT_TRUE(reader.Open(path, 1120));
    EXPECT_EQ(reader.Fault(), WaveformFault::kCancelled);
}

using Pairs = std::vector<PeakPair>;

std::unique_ptr<PeakSource> Peaks(const Row& left, const Row& right, int32_t columns) {
    struct RowReader final : WFFileReader {
        RowReader(const Row& left, const Row& right) { m_points = {left, right}; }
    } reader(left, right);
    return PeakSource::Create(&reader, columns);
}

Pairs Columns(const PeakSource& peaks, int channel) {
    const PeakPair* first = peaks.GetColumns(channel);
    return {first, first + peaks.GetColumnCount()};
}

TEST(PeakSource, ColumnsReachFromZero) {
    const auto peaks = Peaks({5, 3, -7, -2, 9, -9, 100}, {-1, -2, -3, -4, -5, -6, -7}, 3);
    EXPECT_EQ(Columns(*peaks, 0), (Pairs{{5, 0}, {0, -7}, {9, -9}}));
    EXPECT_EQ(Columns(*peaks, 1), (Pairs{{0, -2}, {0, -4}, {0, -6}}));
    // 7 points in 2 columns of 3, the second from point 3 on; 7 are too few for 8.
    EXPECT_EQ(Columns(*Peaks({1, 2, 3, 4, 5, 6, 7}, Row(7), 2), 0), (Pairs{{3, 0}, {6, 0}}));
    EXPECT_EQ(Columns(*Peaks({1, 2, 3, 4, 5, 6, 7}, Row(7), 8), 0), Pairs(8));
    EXPECT_EQ(Peaks({}, {}, -1)->GetColumnCount(), 0);
}

// Eight points a pair, 1.12 points a millisecond.
TEST(PeakSource, PairsOfACloseUp) {
    Row left(20), right(20, -3);
    left[7] = 1, left[8] = 2, left[16] = -4, left[19] = 8;
    const auto peaks = Peaks(left, right, 1);
    const auto pairs = [&](int channel, int32_t start, int32_t count) {
        Pairs read(static_cast<size_t>(count), {99, 99});
        EXPECT_TRUE(peaks->ReadPeaks(channel, read.data(), count, start));
        return read;
    };
    EXPECT_EQ(pairs(0, 0, 4), (Pairs{{1, 0}, {2, 0}, {8, -4}, {0, 0}}));
    EXPECT_EQ(pairs(0, 8, 3), (Pairs{{2, 0}, {8, -4}, {0, 0}})) << "8 ms is point 8";
    EXPECT_EQ(pairs(1, 8, 3), (Pairs{{0, -3}, {0, -3}, {0, 0}}));
    EXPECT_EQ(pairs(0, 2000000000, 1), Pairs(1)) << "after the end";
    EXPECT_EQ(pairs(0, -8, 3), (Pairs{{0, 0}, {1, 0}, {2, 0}})) << "before the start";
}

TEST(PeakSource, LargestMagnitude) {
    const auto largest = [](const Row& left, const Row& right) {
        return int{Peaks(left, right, 1)->GetMaxAbsolute()};
    };
    EXPECT_EQ(largest({1, -90}, {80, 7}), 90);
    EXPECT_EQ(largest({-128, 3}, {100, 2}), 3) << "-128 is replaced";
    EXPECT_EQ(largest({1, -128}, {100, 2}), -128) << "or the last";
    EXPECT_EQ(largest({1, 5}, {100, -128}), 5) << "the left point follows";
    EXPECT_EQ(largest({}, {}), 0);
}

// To -6 dB with a peak of 0.5: 12000 / 16300 of each level, rounded towards 0; 46.875 at most.
TEST(PeakSource, TreatedSoundTakesTheRawOnesPlace) {
    const auto peaks = Peaks({64, -64, 10, 127}, {-128, 0, 1, -10}, 2);
    AMPEffectSettings settings;
    settings.normalize = 3;
    settings.peak = 0.5f;
    peaks->ApplyEffects(settings);
    EXPECT_EQ(peaks->GetPoints(0), (Row{46, -46, 7, 46}));
    EXPECT_EQ(peaks->GetPoints(1), (Row{-46, 0, 0, -7}));
    EXPECT_EQ(Columns(*peaks, 0), (Pairs{{46, -46}, {46, 0}}));
    PeakPair pair;
    peaks->ReadPeaks(1, &pair, 1, 0);
    EXPECT_EQ(pair, (PeakPair{0, -46}));
    // Always from the raw points, never from the treated ones.
    peaks->ApplyEffects(settings);
    EXPECT_EQ(peaks->GetPoints(0), (Row{46, -46, 7, 46}));
}

TEST(PeakSource, FilesByWhatIsInThem) {
    TempDir dir;
    dir.Write("wave.mp4", WaveFile({}, WaveSound({0x2000, 0x1000})));
    dir.Write("mono.mp4", WaveFile({.channels = 1}, WaveSound({1})));
    dir.Write("text.wav", "RIFF");
    const auto peaks = PeakSource::Create(dir.Path("wave.mp4"), 1);
    ASSERT_NE(peaks, nullptr);
    EXPECT_EQ(Columns(*peaks, 0), (Pairs{{0x20, 0}}));
    EXPECT_EQ(PeakSource::Create(dir.Path("mono.mp4"), 1), nullptr);
    // What is no movie that can be read is an empty one.
    for (const char* name : {"text.wav", "none.mp4"}) {
        const auto empty = PeakSource::Create(dir.Path(name), 3);
        ASSERT_NE(empty, nullptr);
        EXPECT_EQ(empty->GetCount(), 0u);
        EXPECT_EQ(Columns(*empty, 0), Pairs(3));
    }
}

}  // namespace
}  // namespace tarn
