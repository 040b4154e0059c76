#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "mp4format/fragments/fragment_atoms.h"
#include "mp4format/fragments/fragments.h"
#include "mp4format/io.h"
#include "support/atoms.h"
#include "support/fault_check.h"
#include "support/movie_builder.h"
#include "support/writer_rig.h"

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
    for (const std::string name :
         {"stated_base", "moof_base", "chained_base", "track_each", "behind_tables"})
        for (const uint32_t track : {1, 2}) {
            const uint32_t tables = name == "behind_tables" ? 12 : 0;
            if (tables && track == 2) continue;
            SCOPED_TRACE(name + " track " + std::to_string(track));
            const std::vector<Row> rows = ReadFacts(name + ".txt", track, tables + 1);
            ASSERT_GT(rows.size(), 30u);
            Clip clip(ReadFile(name + ".mp4"), tables, tables * 512, track);
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

    // One run of 3,000 rows is read once, whichever way it is walked.
    movie.fragment_samples = 3000;
    const Bytes single = movie.Build();
    Clip run(single);
    run.Share(400);
    run.host.ResetCounts();
    for (uint32_t i = 1; i <= 2 * 2999; ++i)
        (void)run.Sample(i <= 2999 ? i : 2 * 2999 + 1 - i);
    EXPECT_LT(run.host.BytesRead(), 200000u);

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
    const Row rows[] = {{1, 1000, 7, 0, 40, 0, 1},
                        {2, 1007, 7, 40, 40, 0, 0},
                        {3, 1991, 7, 80, 40, 0, 0},
                        {4, 1998, 7, 120, 40, 0, 1},
                        {5, 2005, 7, 160, 40, -1, 1}};
    for (const Row& row : rows) {
        const Mp4FragmentSample sample = clip.Sample(row.number);
        EXPECT_EQ(RowOf(sample), row) << row.number;
        EXPECT_EQ(sample.description_index, row.number > 2 ? 4u : 3u);
        EXPECT_EQ(sample.composition_signed, row.number == 5 ? 1u : 0u);
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
    for (const uint32_t off : {0, 3}) {  // 3: no atom begins there
        for (TfraEntry& entry : entries)
            entry.moof_offset += off;
        Clip clip(Join(bytes, Mfra({Tfra(1, entries)})));
        clip.host.ResetCounts();
        Mp4FragmentSample sample{};
        ASSERT_EQ(clip.AtTime(2505, &sample), FF4_RET_OK);
        EXPECT_EQ(sample.start_time, 2500u);
        EXPECT_EQ(clip.End(), 3000u);
        if (off == 0) {
            EXPECT_LT(clip.host.Calls(HostCall::kRead), 60u) << "300 without the index";
        }
        ASSERT_EQ(clip.AtTime(2505, &sample, true), FF4_RET_OK);
        EXPECT_EQ(sample.number, 251u);
        EXPECT_EQ(clip.Count(), 300u);
    }
}

TEST(Fragments, HostileAndBrokenFragments) {
    const auto bare = [](const Bytes& traf) { return Moof(1, {Atom("traf", traf)}); };
    const auto ticks = [](const Bytes& rest) { return Fragment(kTenTicks, rest); };
    const auto cut = [](Bytes bytes) { return Bytes(bytes.begin(), bytes.end() - 10); };
    const Bytes rows = Trun({.row_flags = 0x200, .count = 0xFFFFFFFF, .words = {1, 2, 3}});
    const Bytes late = ticks(Join(Tfdt(UINT64_MAX - 10), PlainRun(1))), good = ticks(PlainRun(2));
    const TfhdFields moof_base{.size = 1, .more_flags = kBaseIsMoof};
    const Bytes before = Fragment(moof_base, Trun({.data_offset = -5000, .count = 1}));
    const Bytes past = Fragment({.base_offset = UINT64_MAX, .size = 5}, Trun({.count = 1}));
    constexpr Mp4Result kOk = FF4_RET_OK, kBad = FF4_RET_FORMAT;
    // result: of the walk to the end
    const std::tuple<const char*, Bytes, Mp4Result, uint32_t> cases[] = {
        {"none", {}, kOk, 0},
        {"more rows than bytes", ticks(rows), kOk, 3},
        {"no tfhd", bare(PlainRun(3)), kOk, 0},
        {"no fragment", Join(Atom("free", Atom("traf", Tfhd(kTenTicks), PlainRun(3))), good), kOk,
         2},
        {"no runs", Join(ticks({}), Moof(1, {}), good), kOk, 2},
        {"runs of nothing", ticks(Join(PlainRun(0), PlainRun(1))), kOk, 1},
        {"a track that is not there", Fragment({.track_id = 9}, PlainRun(1)), kBad, 0},
        {"tfhd without its fields", bare(FullAtom("tfhd", 0, 1, Be32({1}))), kBad, 0},
        {"trun without its count", ticks(FullAtom("trun", 0, 0)), kBad, 0},
        {"a place before the file", before, kBad, 0},
        {"places that wrap", past, kBad, 0},
        {"times that wrap", Join(good, late), kBad, 0},
        {"cut in the last fragment", Join(good, cut(good)), kOk, 2},
        {"cut between rows", Join(good, cut(ticks(rows))), kOk, 2},
        {"a bad size in the middle", Join(good, Be32({5, 0}), good), kBad, 0},
    };
    for (const auto& [name, fragments, result, samples] : cases) {
        SCOPED_TRACE(name);
        const Bytes bytes = Join(MovieHead(), fragments);
        Clip clip(bytes);
        uint32_t count = 0;
        EXPECT_EQ(mp4_count_fragment_samples(clip.state, 1, &count), result);
        EXPECT_EQ(count, samples);
        EXPECT_LT(clip.host.LargestBlock(), 100000u);
    }

    // Without rows there is no more than a byte of the file for each sample, over all runs.
    const Bytes endless = Join(PlainRun(30), PlainRun(0xFFFFFFFF), PlainRun(0xFFFFFFFF));
    const Bytes many = Join(MovieHead(), Fragment({.duration = 1}, endless));
    Clip clip(many);
    EXPECT_EQ(clip.Count(), many.size());
    EXPECT_EQ(clip.Sample(static_cast<uint32_t>(many.size())).start_time, many.size() - 1);
    clip.Share(100);
    Mp4FragmentSample sample{};
    EXPECT_EQ(clip.At(1, &sample), FF4_RET_NOMEM) << "no run fits";
}

TEST(Fragments, ManyTracksDoNotGoThroughManyFragmentsEach) {
    constexpr uint32_t kMany = 300;
    Bytes traks, trexs, moofs;
    for (uint32_t id = 1; id <= kMany; ++id) {
        Append(&traks, Atom("trak", Tkhd({.track_id = id})));
        Append(&trexs, Trex({.track_id = id}));
        Append(&moofs, Moof(id, {Atom("traf", Tfhd({.track_id = id}), PlainRun(1))}));
    }
    Clip clip(Join(Atom("moov", Mvhd(), traks, Atom("mvex", trexs)), moofs));
    Mp4Result result = FF4_RET_OK;
    uint32_t id = 1;
    for (uint64_t end = 0; result == FF4_RET_OK && ++id <= kMany;) {
        ASSERT_EQ(mp4_begin_fragment_track(clip.state, id, 0, 0), FF4_RET_OK);
        result = mp4_get_fragment_end(clip.state, id, &end);
    }
    EXPECT_EQ(result, FF4_RET_FORMAT);
    EXPECT_GT(id, 20u) << "as many as a recording might have";
}

TEST(Fragments, EveryFaultIsToldAndNothingIsLost) {
    MovieBuilder movie = RichMovie(true);
    const Bytes bytes = movie.Build();
    const uint64_t time = movie.tracks[0].samples[39].time;
    const auto step = [&](TestHost& host) {
        Mp4FileIndex index{};
        Mp4FragmentState* state = nullptr;
        Mp4FragmentSample sample{};
        const auto last = [&] {
            FF4_TRY(mp4_begin_fragment_track(state, 1, 30, 30 * 1001));
            FF4_TRY(mp4_set_fragment_share(state, 1, 16384));
            FF4_TRY(mp4_get_fragment_sample_at_time(state, 1, time, true, &sample));
            return mp4_get_fragment_sample(state, 1, 31, &sample);
        };
        const Mp4Result result = [&] {
            FF4_TRY(mp4_scan_file(host, host.File(), bytes.size(), {true, true}, &index));
            FF4_TRY(mp4_open_fragments(host, host.File(), bytes.size(), &index, &state));
            return last();
        }();
        if (state && result != FF4_RET_OK) {
            EXPECT_EQ(last(), FF4_RET_OK) << "what failed once works when it is asked again";
        }
        mp4_close_fragments(state);
        mp4_free_file_index(host, &index);
        return result;
    };
    ExpectFaultsTold({HostCall::kAlloc, HostCall::kRead, HostCall::kSeek}, bytes, step, 20);
}

TEST(FragmentAtoms, EveryFieldOfAMoof) {
    const Mp4FragmentRow rows[] = {{10, 100, 0x10000, 5}, {11, 101, 0, -5}};
    const Mp4FragmentRow plain[] = {{0, 7, 0, 0}, {0, 8, 0, 0}, {0, 9, 0, 0}};
    const Mp4TrunBuild full[] = {{0xF05, -8, 0x2000000, rows, 2}};
    const Mp4TrunBuild bare[] = {{0, 0, 0, plain, 3}, {kTrunSize, 0, 0, plain, 3}};
    const Mp4TrafBuild trafs[] = {{{0x3B, 1, 0x100000000, 2, 3, 4, 5}, full, 1},
                                  {{0x020000, 2, 0, 0, 0, 0, 0}, bare, 2}};
    const Mp4MoofBuild moof{9, trafs, 2};
    TestHost host;
    const Bytes first = Atom(
        "traf",
        Tfhd({.base_offset = 0x100000000, .description = 2, .duration = 3, .size = 4, .flags = 5}),
        Trun({.data_offset = -8,
              .first_flags = 0x2000000,
              .row_flags = 0xF00,
              .count = 2,
              .words = {10, 100, 0x10000, 5, 11, 101, 0, 0xFFFFFFFB},
              .version = 1}));
    const Bytes second =
        Atom("traf", Tfhd({.track_id = 2, .more_flags = 0x20000}), Trun({.count = 3}),
             Trun({.row_flags = 0x200, .count = 3, .words = {7, 8, 9}}));
    EXPECT_EQ(Written(host, mp4_write_moof, moof), Moof(9, {first, second}));
}

}  // namespace
}  // namespace tarn
