#include "mp4format/tables/sample_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "support/atoms.h"
#include "support/fault_check.h"
#include "support/table_lookups.h"

namespace tarn {
namespace {

constexpr uint64_t kPool = 131072;
constexpr uint64_t kRoomy = 1 << 20;  // a file that holds every sample of a constant size

Bytes Trak(const std::vector<Bytes>& tables) {
    return Atom("trak", Atom("mdia", Atom("minf", Atom("stbl", JoinAll(tables)))));
}

Mp4Result ReadTables(TestHost& host, Mp4TrackTables* tables) {
    const uint64_t size = host.Content(host.File()).size();
    return mp4_read_track_tables(host, host.File(), {8, size - 8}, kRoomy, tables);
}

// The tables of a 'trak', behind a window pool of so many bytes.
struct OpenTables {
    OpenTables(const Bytes& trak, uint64_t budget) : host(trak) {
        opened = ReadTables(host, &tables);
        if (opened != FF4_RET_OK) return;
        host->enabled = 1;
        host->limitClass1 = 1 << 20;
        host->limitClass2 = budget;
        opened = mp4_add_track_cache(host, &list, tables, &cache);
    }
    ~OpenTables() { mp4_free_track_caches(host, &list); }
    Mp4TableReader Reader() { return {host, host.File(), &tables, cache}; }

    Mp4TrackTables tables{};
    TestHost host;
    Mp4TrackCacheList list{};
    Mp4TrackCache* cache = nullptr;
    Mp4Result opened;
};

uint64_t SmallestBudget(const Bytes& trak) {
    uint64_t budget = 0;
    while (OpenTables(trak, budget).opened == FF4_RET_NOMEM)
        ++budget;
    return budget;
}

// One sample as a player would want it.
struct Sample {
    uint64_t time, chunk_offset;
    uint32_t delta, chunk, first_in_chunk, in_chunk, description, size;
    int32_t offset;
    bool sync;
};

struct Clip {
    std::vector<Sample> samples;
    Bytes trak;
};

void AddToRun(std::vector<tarn::Run>* runs, uint32_t value) {
    if (runs->empty() || runs->back().value != value) runs->push_back({0, value});
    ++runs->back().count;
}

// Samples by chance, in chunks of up to `longest`, and the tables that tell of them.
Clip MakeClip(uint64_t seed, uint32_t count, uint32_t longest) {
    std::mt19937_64 engine(seed);
    const auto up = [&](uint64_t to) { return static_cast<uint32_t>(engine() % (to + 1)); };
    const uint32_t bits = 4u << up(3), constant = bits == 32 && up(1) == 0 ? 1 + up(5000) : 0;
    Clip clip;
    std::vector<tarn::Run> stts, ctts;
    std::vector<ChunkRun> stsc;
    std::vector<uint32_t> sizes, stss;
    std::vector<uint64_t> chunks;
    Sample s{};
    for (uint32_t n = 1; n <= count; ++n) {
        s.time += s.delta;
        s.delta = up(3);
        s.offset = static_cast<int32_t>(up(8)) - 2;
        s.size = constant ? constant : up(std::min<uint64_t>((uint64_t{1} << bits) - 1, 70000));
        s.sync = n == 1 || up(4) == 0;
        if (n == 1 || n == s.first_in_chunk + s.in_chunk) {
            s.first_in_chunk = n;
            s.in_chunk = 1 + up(std::min(longest - 1, count - n));
            s.description = 1 + up(1);
            s.chunk_offset = uint64_t{up(1)} << 40 | up(UINT32_MAX);
            chunks.push_back(s.chunk_offset);
            s.chunk = static_cast<uint32_t>(chunks.size());
            if (stsc.empty() || stsc.back().samples != s.in_chunk ||
                stsc.back().description != s.description || up(2) == 0)
                stsc.push_back({s.chunk, s.in_chunk, s.description});
        }
        AddToRun(&stts, s.delta);
        AddToRun(&ctts, static_cast<uint32_t>(s.offset));
        sizes.push_back(s.size);
        if (s.sync) stss.push_back(n);
        clip.samples.push_back(s);
    }
    clip.trak = Trak({Stts(stts), Ctts(ctts, 1), Stsc(stsc),
                      constant     ? StszConstant(constant, count)
                      : bits == 32 ? Stsz(sizes)
                                   : Stz2(static_cast<uint8_t>(bits), sizes),
                      Co64(chunks), Stss(stss)});
    return clip;
}

// All that the tables say of sample n, and of the `count` samples from there.
void ExpectSample(const Mp4TableReader& tables, const Clip& clip, uint32_t n, uint32_t count) {
    const Sample& s = clip.samples[n - 1];
    const auto sample = clip.samples.begin() + n - 1;
    Mp4TimeRun run{}, at{};
    Mp4ChunkPlace place{};
    int32_t offset = 0;
    uint64_t chunk_offset = 0, sum = 0;
    uint32_t size = 0, next = 0;
    bool sync = false;
    ASSERT_EQ(mp4_lookup_sample_time(tables, n, &run), FF4_RET_OK);
    EXPECT_EQ(run.first_time + uint64_t{n - run.first_sample} * run.sample_delta, s.time);
    EXPECT_EQ(run.sample_delta, s.delta);
    if (s.delta > 0) {
        ASSERT_EQ(mp4_lookup_time_sample(tables, s.time + s.delta - 1, &at), FF4_RET_OK);
        EXPECT_EQ(at.first_sample, run.first_sample);
    }
    ASSERT_EQ(mp4_lookup_composition_offset(tables, n, &offset), FF4_RET_OK);
    EXPECT_EQ(offset, s.offset);
    ASSERT_EQ(mp4_lookup_chunk(tables, n, &place), FF4_RET_OK);
    EXPECT_EQ(place.chunk, s.chunk);
    EXPECT_EQ(place.first_sample, s.first_in_chunk);
    EXPECT_EQ(place.sample_count, s.in_chunk);
    EXPECT_EQ(place.description_index, s.description);
    ASSERT_EQ(mp4_lookup_chunk_offset(tables, s.chunk, &chunk_offset), FF4_RET_OK);
    EXPECT_EQ(chunk_offset, s.chunk_offset);
    ASSERT_EQ(mp4_lookup_sample_size(tables, n, &size), FF4_RET_OK);
    EXPECT_EQ(size, s.size);
    ASSERT_EQ(mp4_lookup_size_sum(tables, n, count, &sum), FF4_RET_OK);
    EXPECT_EQ(sum, std::accumulate(sample, sample + count, uint64_t{0},
                                   [](uint64_t a, const Sample& b) { return a + b.size; }));
    ASSERT_EQ(mp4_lookup_is_sync(tables, n, &sync), FF4_RET_OK);
    EXPECT_EQ(sync, s.sync);
    const auto later = std::find_if(sample + 1, clip.samples.end(),
                                    [](const Sample& other) { return other.sync; });
    const bool none = later == clip.samples.end();
    ASSERT_EQ(mp4_lookup_next_sync(tables, n, &next), none ? FF4_RET_NOTFOUND : FF4_RET_OK);
    EXPECT_EQ(next, none ? 0 : later - clip.samples.begin() + 1);
}

// Up, down and anywhere: what is found depends on the tables alone.
void ExpectClip(const Clip& clip, const std::vector<uint64_t>& budgets) {
    const auto count = static_cast<uint32_t>(clip.samples.size());
    std::vector<uint32_t> order(count);
    std::iota(order.begin(), order.end(), 1);
    order.insert(order.end(), order.rbegin(), order.rend());
    std::shuffle(order.begin() + count, order.end(), std::mt19937_64(count));
    std::reverse_copy(order.begin(), order.begin() + count, std::back_inserter(order));
    for (const uint64_t budget : budgets) {
        OpenTables open(clip.trak, budget);
        ASSERT_EQ(open.opened, FF4_RET_OK) << budget;
        for (const uint32_t n : order) {
            SCOPED_TRACE(testing::Message() << "sample " << n << ", budget " << budget);
            ASSERT_NO_FATAL_FAILURE(ExpectSample(open.Reader(), clip, n, n * 7 % (count - n + 2)));
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_LE(open.host->usedClass2, budget);
    }
}

TEST(SampleTables, EverySampleThroughAnyWindow) {
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        const Clip clip = MakeClip(seed, 1 + static_cast<uint32_t>(seed * 37 % 200), 6);
        const uint64_t smallest = SmallestBudget(clip.trak);
        ExpectClip(clip, {smallest, smallest + 1 + seed, smallest + 900, kPool});
    }
}

// Several reads a window, checkpoints, and running sums over long chunks.
TEST(SampleTables, LongTables) {
    for (const uint64_t seed : {1, 2, 5}) {
        const Clip clip = MakeClip(seed, 3000, 1500);
        ExpectClip(clip, {SmallestBudget(clip.trak), 20000, kPool});
    }
}

// One figure spoilt: a small window that is asked in another order finds what a large one does.
TEST(SampleTables, BrokenTablesAreBrokenForAnyWindow) {
    std::mt19937_64 dice(1);
    for (uint64_t seed = 1; seed <= 200; ++seed) {
        Clip clip = MakeClip(seed, 1 + static_cast<uint32_t>(seed * 31 % 150), 6);
        const uint32_t odd[] = {0, 1, 2, 100, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        const size_t stbl = AtomAt(clip.trak, "trak/mdia/minf/stbl") + 8;
        const size_t words = (clip.trak.size() - stbl) / 4;
        put_be32(&clip.trak[stbl + dice() % words * 4], odd[dice() % std::size(odd)]);
        OpenTables large(clip.trak, kPool);
        if (large.opened != FF4_RET_OK) continue;  // a head was hit
        OpenTables small(clip.trak, SmallestBudget(clip.trak));
        std::vector<std::pair<Lookup, uint64_t>> questions;
        for (uint64_t n = 0; n < clip.samples.size() + 3; ++n)
            for (int lookup = 0; lookup < kLookups; ++lookup)
                questions.emplace_back(static_cast<Lookup>(lookup), n);
        for (const uint64_t far : {uint64_t{UINT32_MAX}, UINT64_MAX - 1})
            questions.emplace_back(Lookup::kAtTime, far);
        std::vector<Answer> answers;
        for (const auto& [lookup, n] : questions)
            answers.push_back(Ask(large.Reader(), lookup, n, n % 11));
        for (size_t i = questions.size(); i-- > 0;) {
            const auto& [lookup, n] = questions[i];
            ASSERT_EQ(Ask(small.Reader(), lookup, n, n % 11), answers[i])
                << "seed " << seed << ", lookup " << static_cast<int>(lookup) << " of " << n;
        }
    }
}

// 3 samples of 10 units, 2 of 20; chunks of 2, 2 and 1 samples.
TEST(SampleTables, FiguresByHand) {
    const Bytes trak = Trak({Stts({{3, 10}, {2, 20}}), Ctts({{1, 5}, {4, 0xFFFFFFFD}}),
                             Stsc({{1, 2, 1}, {3, 1, 2}}), Stz2(4, {1, 2, 3, 4, 15}),
                             Co64({100, 200, uint64_t{1} << 33}), Stss({1, 4})});
    const struct {
        const char* name;
        Lookup lookup;
        uint64_t a, b;
        Answer answer;
    } cases[] = {
        {"no sample 6", Lookup::kTime, 6, 0, {FF4_RET_NOTFOUND}},
        {"no sample 0", Lookup::kTime, 0, 0, {FF4_RET_ARGS}},
        {"time 29 is the first run's", Lookup::kAtTime, 29, 0, {FF4_RET_OK, {0, 1, 3, 10}}},
        {"time 70 is past it", Lookup::kAtTime, 70, 0, {FF4_RET_NOTFOUND}},
        {"duration", Lookup::kDuration, 0, 0, {FF4_RET_OK, {70}}},
        {"offsets are signed", Lookup::kOffset, 2, 0, {FF4_RET_OK, {UINT64_MAX - 2}}},
        {"two chunks in the first run", Lookup::kRun, 4, 0, {FF4_RET_OK, {1, 1, 2, 1, 2}}},
        {"one chunk in the last", Lookup::kRun, 5, 0, {FF4_RET_OK, {5, 3, 1, 2, 1}}},
        {"64-bit chunk offset", Lookup::kChunk, 3, 0, {FF4_RET_OK, {uint64_t{1} << 33}}},
        {"no chunk 4", Lookup::kChunk, 4, 0, {FF4_RET_NOTFOUND}},
        {"low nibble of the first byte", Lookup::kSize, 2, 0, {FF4_RET_OK, {2}}},
        {"high nibble of the second", Lookup::kSize, 3, 0, {FF4_RET_OK, {3}}},
        {"half a byte at the end", Lookup::kSize, 5, 0, {FF4_RET_OK, {15}}},
        {"sum", Lookup::kSum, 2, 3, {FF4_RET_OK, {9}}},
        {"sum past the end", Lookup::kSum, 2, 5, {FF4_RET_FORMAT}},
        {"next sync is strictly above", Lookup::kNext, 1, 0, {FF4_RET_OK, {4}}},
        {"none above the last", Lookup::kNext, 4, 0, {FF4_RET_NOTFOUND}},
    };
    for (const uint64_t budget : {SmallestBudget(trak), kPool}) {
        OpenTables open(trak, budget);
        for (const auto& c : cases)
            EXPECT_EQ(Ask(open.Reader(), c.lookup, c.a, c.b), c.answer) << c.name << budget;
    }
}

// Four samples in two chunks of two, but for the tables named. What is wrong is put down to an
// atom.
TEST(SampleTables, WhatNoTableMaySay) {
    const uint32_t most = 0xFFFFFFFF;
    const Bytes pairs = Stsc({{1, 2, 1}});
    const Bytes none_in_it = Stts({{2, 1}, {0, 1}, {2, 1}});
    // All samples that there can be, then chunks of none.
    const Bytes empty_at_the_end = Stsc({{1, most, 1}, {2, 0, 1}, {3, 0, 1}});
    const struct {
        const char* name;
        std::vector<Bytes> tables;
        Lookup lookup;
        uint64_t a;
        Mp4Result result;
        FourCC atom;
    } cases[] = {
        {"a run of none", {none_in_it}, Lookup::kTime, 3, FF4_RET_FORMAT, "stts"},
        {"what is before it", {none_in_it}, Lookup::kTime, 2, FF4_RET_OK, 0u},
        {"2^32 samples", {Stts({{1, 1}, {most, 1}})}, Lookup::kTime, 2, FF4_RET_FORMAT, "stts"},
        {"fewer than samples", {Stts({{3, 1}})}, Lookup::kDuration, 0, FF4_RET_FORMAT, "stts"},
        {"fewer offsets", {Ctts({{3, 1}})}, Lookup::kOffset, 4, FF4_RET_FORMAT, "ctts"},
        {"chunk 0", {Stsc({{0, 2, 1}})}, Lookup::kRun, 1, FF4_RET_FORMAT, "stsc"},
        {"chunks that fall",
         {Stsc({{2, 2, 1}, {1, 2, 1}})},
         Lookup::kRun,
         1,
         FF4_RET_FORMAT,
         "stsc"},
        {"chunks that stand",
         {Stsc({{1, 2, 1}, {1, 2, 1}})},
         Lookup::kRun,
         1,
         FF4_RET_FORMAT,
         "stsc"},
        {"an empty chunk", {Stsc({{1, 0, 1}})}, Lookup::kRun, 1, FF4_RET_FORMAT, "stsc"},
        {"a huge chunk", {Stsc({{2, most, 1}})}, Lookup::kRun, 4, FF4_RET_OK, 0u},
        {"two of them", {Stsc({{1, most, 1}})}, Lookup::kRun, 1, FF4_RET_FORMAT, "stsc"},
        {"empty chunks after all samples",
         {empty_at_the_end, Stco({1, 2, 3, 4})},
         Lookup::kRun,
         4,
         FF4_RET_OK,
         0u},
        {"falling sync samples", {Stss({3, 1})}, Lookup::kNext, 3, FF4_RET_FORMAT, "stss"},
        {"no sync table", {}, Lookup::kSync, 1, FF4_RET_FORMAT, "stss"},
        {"compact sizes past the end",
         {Stz2(8, {1, 2, 3, 4})},
         Lookup::kSum,
         5,
         FF4_RET_NOTFOUND,
         0u},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // The first of its kind counts.
        OpenTables open(
            Trak({JoinAll(c.tables), Stts({{4, 10}}), pairs, Stsz({5, 6, 7, 8}), Stco({100, 200})}),
            kPool);
        EXPECT_EQ(Ask(open.Reader(), c.lookup, c.a, 4).result, c.result);
        EXPECT_EQ(mp4_fault_atom(open.host), c.atom.value);
    }
}

TEST(SampleTables, AMissingTableIsNamed) {
    const std::pair<FourCC, Bytes> tables[] = {{"stts", Stts({{1, 10}})},
                                               {"stsc", Stsc({{1, 1, 1}})},
                                               {"stsz", Stsz({5})},
                                               {"stco", Stco({100})}};
    for (const auto& [missing, without] : tables) {
        Bytes others;
        for (const auto& [type, bytes] : tables)
            if (type.value != missing.value) Append(&others, bytes);
        OpenTables open(Trak({others}), kPool);
        Mp4Result first = FF4_RET_OK;
        for (const Lookup lookup : {Lookup::kTime, Lookup::kRun})
            if (first == FF4_RET_OK) first = Ask(open.Reader(), lookup, 1).result;
        EXPECT_EQ(first, FF4_RET_FORMAT);
        EXPECT_EQ(mp4_fault_atom(open.host), missing.value);
        mp4_clear_fault(open.host);
        EXPECT_EQ(mp4_fault_atom(open.host), 0u);
    }
}

TEST(SampleTables, AFailedReadLeavesTheWindowAsItWas) {
    const Clip clip = MakeClip(2, 500, 6);
    for (int i = 0; i < kLookups; ++i) {
        const auto lookup = static_cast<Lookup>(i);
        for (const auto& [here, there] : {std::pair<uint64_t, uint64_t>{5, 480}, {480, 5}}) {
            SCOPED_TRACE(testing::Message() << "lookup " << i << " of " << here);
            OpenTables open(clip.trak, 1000);
            const Answer truth = Ask(open.Reader(), lookup, here, 1);
            for (const Fault fault : {Fault::kFail, Fault::kShort}) {
                open.host.FailAt(HostCall::kRead, 1, fault);
                const Mp4Result result = Ask(open.Reader(), lookup, there, 1).result;
                if (open.host.FaultMet()) {
                    EXPECT_EQ(result, FF4_RET_FILE);
                }
            }
            open.host.FailAt(HostCall::kRead, 1);
            EXPECT_EQ(Ask(open.Reader(), lookup, here, 1), truth);
        }
    }
}

TEST(SampleTables, EveryFaultIsReportedAndNothingLeaks) {
    const Clip clip = MakeClip(2, 3000, 1500);
    const auto walk = [&](TestHost& host) {
        host->limitClass2 = 2000;
        Mp4TrackTables tables{};
        Mp4TrackCacheList list{};
        Mp4TrackCache* cache = nullptr;
        Mp4Result result = ReadTables(host, &tables);
        if (result == FF4_RET_OK) result = mp4_add_track_cache(host, &list, tables, &cache);
        const Mp4TableReader reader{host, host.File(), &tables, cache};
        for (uint64_t n = 1; n < 3000 && result == FF4_RET_OK; n += 1400)
            for (const Lookup lookup : {Lookup::kTime, Lookup::kRun, Lookup::kNext, Lookup::kSum})
                if (result == FF4_RET_OK) result = Ask(reader, lookup, n, 1).result;
        if (result == FF4_RET_OK) result = Ask(reader, Lookup::kSum, 1, 2999).result;
        mp4_free_track_caches(host, &list);
        return result;
    };
    ExpectFaultsTold({HostCall::kRead, HostCall::kSeek, HostCall::kAlloc}, clip.trak, walk, 9);
}

// Bytes read, not time: a walk reads a table once, and a jump no more than a read or two.
TEST(SampleTables, WalksAndJumpsReadLittle) {
    constexpr uint32_t kSamples = 100000;
    std::vector<tarn::Run> runs;
    for (uint32_t i = 0; i < kSamples; ++i)
        runs.push_back({1, i % 7});
    OpenTables open(Trak({Stts(runs), Ctts(runs), Stsc({{1, kSamples, 1}}),
                          Stz2(16, std::vector<uint32_t>(kSamples, 9)), Stco({1000})}),
                    30000);
    const auto read_by = [&](Lookup lookup, uint64_t step, uint64_t steps) {
        open.host.ResetCounts();
        for (uint64_t i = 0; i < steps; ++i)
            EXPECT_EQ(Ask(open.Reader(), lookup, 1 + i * step % kSamples).result, FF4_RET_OK);
        return open.host.BytesRead();
    };
    for (const auto& [lookup, entry] :
         {std::pair{Lookup::kTime, 8u}, {Lookup::kOffset, 8}, {Lookup::kSize, 2}}) {
        SCOPED_TRACE(static_cast<int>(lookup));
        EXPECT_LE(read_by(lookup, 1, kSamples), entry * kSamples * 11 / 10);
        EXPECT_LE(read_by(lookup, kSamples - 1, kSamples), entry * kSamples * 11 / 10);
        EXPECT_LE(read_by(lookup, 38197, 1000), 1000u * 2 * 8000);
    }
}

}  // namespace
}  // namespace tarn
