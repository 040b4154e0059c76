#include "mp4format/fragments/fragments.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "mp4format/io.h"
#include "support/fault_check.h"
#include "support/movie_builder.h"

namespace tarn {
namespace {

// A file whose fragments are open; `track` is in use, behind `samples` of its tables.
class Clip {
public:
    explicit Clip(const Bytes& bytes, uint32_t samples = 0, uint64_t time = 0, uint32_t track = 1)
        : host(bytes), m_track(track) {
        EXPECT_EQ(mp4_scan_file(host, host.File(), bytes.size(), {}, &index), FF4_RET_OK);
        EXPECT_EQ(mp4_open_fragments(host, host.File(), bytes.size(), &index, &state), FF4_RET_OK);
        EXPECT_EQ(mp4_begin_fragment_track(state, track, samples, time), FF4_RET_OK);
        Share(16384);
    }
    ~Clip() {
        mp4_close_fragments(state);
        mp4_free_file_index(host, &index);
    }

    void Share(uint64_t share) {
        EXPECT_EQ(mp4_set_fragment_share(state, m_track, share), FF4_RET_OK);
    }
    Mp4Result At(uint32_t number, Mp4FragmentSample* sample) {
        return mp4_get_fragment_sample(state, m_track, number, sample);
    }
    Mp4Result AtTime(uint64_t time, Mp4FragmentSample* sample, bool numbered = false) {
        return mp4_get_fragment_sample_at_time(state, m_track, time, numbered, sample);
    }
    Mp4FragmentSample Sample(uint32_t number) {
        Mp4FragmentSample sample{};
        EXPECT_EQ(At(number, &sample), FF4_RET_OK) << number;
        return sample;
    }
    uint32_t Count() {
        uint32_t count = 0;
        EXPECT_EQ(mp4_count_fragment_samples(state, m_track, &count), FF4_RET_OK);
        return count;
    }
    uint64_t End() {
        uint64_t end = 0;
        EXPECT_EQ(mp4_get_fragment_end(state, m_track, &end), FF4_RET_OK);
        return end;
    }

    TestHost host;
    Mp4FileIndex index{};
    Mp4FragmentState* state = nullptr;

private:
    uint32_t m_track;
};

// --- whole files

struct Row {
    uint32_t number;
    uint64_t offset, size, start, duration;
    int64_t composition;
    uint32_t sync;
    bool operator==(const Row&) const = default;
};

Row RowOf(const Mp4FragmentSample& s) {
    return {s.number, s.offset, s.size, s.start_time, s.duration, s.composition_offset, s.is_sync};
}

// All samples, to and fro, by number and by time, from memory of the given size.
void CompareAll(Clip& clip, const std::vector<Row>& rows, uint64_t share) {
    SCOPED_TRACE(share);
    clip.Share(share);
    Mp4FragmentSample sample{};
    for (const Row& row : rows)
        ASSERT_EQ(RowOf(clip.Sample(row.number)), row) << row.number;
    for (size_t i = rows.size(); i-- > 0;)
        ASSERT_EQ(RowOf(clip.Sample(rows[i].number)), rows[i]) << rows[i].number;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i * 37 % rows.size()];
        for (const uint64_t time : {row.start, row.start + row.duration - 1}) {
            ASSERT_EQ(clip.AtTime(time, &sample, true), FF4_RET_OK) << time;
            ASSERT_EQ(RowOf(sample), row) << time;
            ASSERT_EQ(clip.AtTime(time, &sample), FF4_RET_OK) << time;
            ASSERT_EQ(sample.offset, row.offset) << time;
        }
    }
    EXPECT_EQ(clip.At(rows.back().number + 1, &sample), FF4_RET_NOTFOUND);
    EXPECT_EQ(clip.AtTime(rows.back().start + rows.back().duration, &sample), FF4_RET_NOTFOUND);
    EXPECT_EQ(clip.Count(), rows.size());
    EXPECT_EQ(clip.End(), rows.back().start + rows.back().duration);
}

Bytes ReadFile(const std::string& name) {
    std::ifstream in(std::string(TARN_TEST_DATA) + "/fragments/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What an independent reader lists of a track, from sample `first` on.
std::vector<Row> ReadFacts(const std::string& name, uint32_t track, uint32_t first) {
    std::ifstream in(std::string(TARN_TEST_DATA) + "/fragments/" + name);
    std::vector<Row> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        uint32_t id = 0;
        Row row{};
        if (fields >> id >> row.number >> row.offset >> row.size >> row.start >> row.duration >>
                row.composition >> row.sync &&
            id == track && row.number >= first)
            rows.push_back(row);
    }
    return rows;
}

TEST(Fragments, FilesOfAllBasesListEverySample) {
    const struct {
        const char* name;
        uint32_t track, table_samples;
        uint64_t table_time;
    } cases[] = {
        {"stated_base", 1, 0, 0}, {"stated_base", 2, 0, 0},  {"moof_base", 1, 0, 0},
        {"moof_base", 2, 0, 0},   {"chained_base", 1, 0, 0}, {"chained_base", 2, 0, 0},
        {"track_each", 1, 0, 0},  {"track_each", 2, 0, 0},   {"behind_tables", 1, 12, 12 * 512},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " track " + std::to_string(c.track));
        const std::string name = c.name;
        const std::vector<Row> rows = ReadFacts(name + ".txt", c.track, c.table_samples + 1);
        ASSERT_GT(rows.size(), 30u);
        Clip clip(ReadFile(name + ".mp4"), c.table_samples, c.table_time, c.track);
        CompareAll(clip, rows, 16384);
        CompareAll(clip, rows, 200);  // a run with a few of its rows
    }
}

TEST(Fragments, ManyFragmentsAndFewBytes) {
    // 1,500 fragments are more than there are checkpoints; runs of 2 rows and of 1.
    MovieBuilder movie{.tracks = {VideoTrack(2999, 12, 2), SoundTrack(40)}, .fragment_samples = 2};
    const Bytes bytes = movie.Build();
    std::vector<Row> rows;
    for (const MovieSample& s : movie.tracks[0].samples)
        rows.push_back({static_cast<uint32_t>(rows.size() + 1), s.offset, s.size, s.time,
                        s.duration, s.composition, s.sync ? 1u : 0u});
    Clip clip(bytes);
    for (const uint64_t share : {160, 170, 180, 1000})  // around a run with one or two rows
        CompareAll(clip, rows, share);
    const uint64_t before = clip.host.LiveBytes();
    for (const Row& row : rows)
        (void)clip.Sample(row.number);
    EXPECT_LE(clip.host.LiveBytes(), before + 1000);

    // A jump in either direction reads its neighbourhood, not the file.
    clip.host.ResetCounts();
    (void)clip.Sample(100);
    (void)clip.Sample(2000);
    EXPECT_LT(clip.host.BytesRead(), 20000u);
}

// --- single rules

constexpr uint32_t kBaseIsMoof = 0x20000;

Bytes Tfdt(uint64_t time, uint8_t version = 1) {
    return FullAtom("tfdt", version, 0,
                    version ? Be64({time}) : Be32({static_cast<int64_t>(time)}));
}

Bytes MovieHead(const Bytes& trex = Join(Trex(), Trex({.track_id = 2}))) {
    return Join(Ftyp("isom", 0, {}), Atom("moov", Mvhd(), Atom("trak", Tkhd()),
                                          Atom("trak", Tkhd({.track_id = 2})), Atom("mvex", trex)));
}

// One fragment of track 1 whose runs follow `head`.
Bytes Fragment(const TfhdFields& head, const Bytes& rest) {
    return Moof(1, {Atom("traf", Tfhd(head), rest)});
}

Bytes PlainRun(uint32_t count) {
    return Trun({.data_offset = 100, .count = count});
}

const TfhdFields kTenTicks{.duration = 10, .size = 5, .more_flags = kBaseIsMoof};

TEST(Fragments, DefaultsAndFlags) {
    const Bytes trex = Trex({.description = 3, .duration = 40, .size = 7, .flags = 0x10000});
    const Bytes bytes = Join(
        MovieHead(trex), Fragment({.base_offset = 1000}, Trun({.first_flags = 0, .count = 2})),
        Fragment(
            {.base_offset = 2000, .description = 4, .flags = 0},
            Join(Trun({.data_offset = -9, .row_flags = 0x400, .count = 2, .words = {0x10000, 0}}),
                 Trun({.row_flags = 0x800, .count = 1, .words = {0xFFFFFFFF}, .version = 1}))));
    Clip clip(bytes);
    clip.Share(256);  // the runs with rows take the room of those without
    const struct {
        uint64_t offset, start;
        uint32_t sync, description;
        int32_t composition;
    } expected[] = {{1000, 0, 1, 3, 0},
                    {1007, 40, 0, 3, 0},
                    {1991, 80, 0, 4, 0},
                    {1998, 120, 1, 4, 0},
                    {2005, 160, 1, 4, -1}};
    for (uint32_t n = 1; n <= 5; ++n) {
        SCOPED_TRACE(n);
        const Mp4FragmentSample sample = clip.Sample(n);
        EXPECT_EQ(sample.offset, expected[n - 1].offset);
        EXPECT_EQ(sample.start_time, expected[n - 1].start);
        EXPECT_EQ(sample.is_sync, expected[n - 1].sync);
        EXPECT_EQ(sample.description_index, expected[n - 1].description);
        EXPECT_EQ(sample.composition_offset, expected[n - 1].composition);
        EXPECT_EQ(sample.composition_signed, n == 5 ? 1u : 0u);
        EXPECT_EQ(sample.size, 7u);
        EXPECT_EQ(sample.duration, 40u);
    }
    Mp4FragmentSample sample{};
    EXPECT_EQ(clip.At(0, &sample), FF4_RET_ARGS);
    EXPECT_EQ(mp4_get_fragment_sample(clip.state, 2, 1, &sample), FF4_RET_STATE);
}

TEST(Fragments, StatedTimes) {
    // 0..20, a gap, 100..120 (a rounded 118..138 follows), and a time of the past.
    const Bytes bytes = Join(MovieHead(), Fragment(kTenTicks, Join(Tfdt(0), PlainRun(2))),
                             Fragment(kTenTicks, Join(Tfdt(100, 0), PlainRun(2))),
                             Fragment(kTenTicks, Join(Tfdt(118), PlainRun(2))),
                             Fragment(kTenTicks, Join(Tfdt(5), PlainRun(1), Tfdt(500))));
    Clip clip(bytes);
    const uint64_t starts[] = {0, 10, 100, 110, 118, 128, 138};
    for (uint32_t n = 1; n <= 7; ++n)
        EXPECT_EQ(clip.Sample(n).start_time, starts[n - 1]);
    EXPECT_EQ(clip.End(), 148u);

    // The sample behind a gap answers for it, so that a walk by duration gets on. Every order of
    // asking gives the same.
    const std::pair<uint64_t, uint32_t> times[] = {{9, 1},   {19, 2},  {20, 3},  {99, 3}, {109, 3},
                                                   {119, 4}, {120, 5}, {129, 6}, {147, 7}};
    Mp4FragmentSample sample{};
    for (int i = 0; i < 81; ++i) {
        const auto& [time, number] = times[i * 20 % 81 % 9];
        ASSERT_EQ(clip.AtTime(time, &sample), FF4_RET_OK) << time;
        EXPECT_EQ(sample.number, number) << time;
    }
}

TEST(Fragments, TheIndexLeadsAhead) {
    Bytes bytes = MovieHead();
    std::vector<TfraEntry> entries;
    for (uint32_t i = 0; i < 300; ++i) {
        entries.push_back({.time = i * 10, .moof_offset = bytes.size()});
        Append(&bytes, Fragment(kTenTicks, Join(Tfdt(i * 10), PlainRun(1))));
    }
    const Bytes with_index = Join(bytes, Mfra({Tfra(1, entries)}));
    for (TfraEntry& entry : entries)
        entry.moof_offset += 3;  // no atom begins there
    const Bytes with_wrong_index = Join(bytes, Mfra({Tfra(1, entries)}));

    Mp4FragmentSample sample{};
    Clip led(with_index);
    led.host.ResetCounts();
    ASSERT_EQ(led.AtTime(2505, &sample), FF4_RET_OK);
    EXPECT_EQ(sample.start_time, 2500u);
    EXPECT_EQ(led.End(), 3000u);
    EXPECT_LT(led.host.Calls(HostCall::kRead), 60u) << "300 without the index";
    ASSERT_EQ(led.AtTime(2505, &sample, true), FF4_RET_OK);
    EXPECT_EQ(sample.number, 251u);
    EXPECT_EQ(led.Count(), 300u);

    Clip misled(with_wrong_index);
    ASSERT_EQ(misled.AtTime(2505, &sample), FF4_RET_OK);
    EXPECT_EQ(sample.start_time, 2500u);
    EXPECT_EQ(sample.number, 251u);
}

TEST(Fragments, HostileAndBrokenFragments) {
    const Bytes rows = Trun({.row_flags = 0x200, .count = 0xFFFFFFFF, .words = {1, 2, 3}});
    const Bytes late = Fragment(kTenTicks, Join(Tfdt(UINT64_MAX - 10), PlainRun(1)));
    const Bytes good = Fragment(kTenTicks, PlainRun(2));
    const auto cut = [](Bytes bytes) { return Bytes(bytes.begin(), bytes.end() - 10); };
    const struct {
        const char* name;
        Bytes fragments;
        Mp4Result result;  // of the walk to the end
        uint32_t samples;
    } cases[] = {
        {"none", {}, FF4_RET_OK, 0},
        {"more rows than bytes", Fragment(kTenTicks, rows), FF4_RET_OK, 3},
        {"no tfhd", Moof(1, {Atom("traf", PlainRun(3))}), FF4_RET_OK, 0},
        {"no runs", Join(Fragment(kTenTicks, {}), Moof(1, {}), good), FF4_RET_OK, 2},
        {"runs of nothing", Fragment(kTenTicks, Join(PlainRun(0), PlainRun(1))), FF4_RET_OK, 1},
        {"a track that is not there", Fragment({.track_id = 9}, PlainRun(1)), FF4_RET_FORMAT, 0},
        {"tfhd without its fields", Moof(1, {Atom("traf", FullAtom("tfhd", 0, 1, Be32({1})))}),
         FF4_RET_FORMAT, 0},
        {"trun without its count", Fragment(kTenTicks, FullAtom("trun", 0, 0)), FF4_RET_FORMAT, 0},
        {"a place before the file",
         Fragment({.size = 1, .more_flags = kBaseIsMoof}, Trun({.data_offset = -5000, .count = 1})),
         FF4_RET_FORMAT, 0},
        {"places that wrap", Fragment({.base_offset = UINT64_MAX, .size = 5}, Trun({.count = 1})),
         FF4_RET_FORMAT, 0},
        {"times that wrap", Join(good, late), FF4_RET_FORMAT, 0},
        {"cut in the last fragment", Join(good, cut(good)), FF4_RET_OK, 2},
        {"cut between rows", Join(good, cut(Fragment(kTenTicks, rows))), FF4_RET_OK, 2},
        {"a bad size in the middle", Join(good, Be32({5, 0}), good), FF4_RET_FORMAT, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes bytes = Join(MovieHead(), c.fragments);
        Clip clip(bytes);
        uint32_t count = 0;
        EXPECT_EQ(mp4_count_fragment_samples(clip.state, 1, &count), c.result);
        EXPECT_EQ(count, c.samples);
        EXPECT_LT(clip.host.LargestBlock(), 100000u);
    }

    // Without rows there is no more than a byte of the file for each sample.
    const Bytes many = Join(MovieHead(), Fragment({.duration = 1}, PlainRun(0xFFFFFFFF)));
    Clip clip(many);
    EXPECT_EQ(clip.Count(), many.size());
    EXPECT_EQ(clip.Sample(static_cast<uint32_t>(many.size())).start_time, many.size() - 1);
    clip.Share(100);
    Mp4FragmentSample sample{};
    EXPECT_EQ(clip.At(1, &sample), FF4_RET_NOMEM) << "no run fits";
}

TEST(Fragments, EveryFaultIsToldAndNothingIsLost) {
    const Bytes bytes = ReadFile("chained_base.mp4");
    const auto step = [&](TestHost& host) {
        Mp4FileIndex index{};
        Mp4FragmentState* state = nullptr;
        Mp4FragmentSample sample{};
        const auto begin = [&] {
            FF4_TRY(mp4_begin_fragment_track(state, 2, 0, 0));
            return mp4_set_fragment_share(state, 2, 16384);
        };
        const Mp4Result result = [&] {
            FF4_TRY(mp4_scan_file(host, host.File(), bytes.size(), {true, false}, &index));
            FF4_TRY(mp4_open_fragments(host, host.File(), bytes.size(), &index, &state));
            FF4_TRY(begin());
            FF4_TRY(mp4_get_fragment_sample(state, 2, 1, &sample));
            return mp4_get_fragment_sample(state, 2, 90, &sample);
        }();
        if (state && result != FF4_RET_OK) {
            // What failed once works when it is asked again.
            EXPECT_EQ(begin(), FF4_RET_OK);
            EXPECT_EQ(mp4_get_fragment_sample(state, 2, 90, &sample), FF4_RET_OK);
            EXPECT_EQ(sample.number, 90u);
        }
        mp4_close_fragments(state);
        mp4_free_file_index(host, &index);
        return result;
    };
    ExpectFaultsTold({HostCall::kAlloc, HostCall::kRead}, bytes, step, 11);
}

}  // namespace
}  // namespace tarn
