#include "mp4format/tables/sample_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "mp4format/movie/file_index.h"
#include "support/fault_check.h"
#include "support/movie_builder.h"
#include "support/table_lookups.h"

namespace tarn {
namespace {

constexpr uint64_t kPool = 131072;

Bytes MovieOf(const std::vector<Bytes>& tables) {
    return Atom("moov", Atom("trak", Atom("mdia", Atom("minf", Atom("stbl", JoinAll(tables))))));
}

// The tables of a file's n-th track, from 0, behind a window pool of so many bytes.
struct OpenTables {
    OpenTables(const Bytes& file, uint64_t budget, size_t n = 0) : host(file) {
        opened = mp4_scan_file(host, host.File(), file.size(), {}, &index);
        const Mp4TrackIndex* track = index.movie.tracks.head;
        for (; track && n > 0; --n)
            track = track->next;
        if (opened == FF4_RET_OK)
            opened = mp4_read_track_tables(host, host.File(), track->payload, 1 << 20, &tables);
        host->enabled = 1;
        host->limitClass1 = 1 << 20;
        host->limitClass2 = budget;
        if (opened == FF4_RET_OK) opened = mp4_add_track_cache(host, &list, tables, &cache);
    }
    ~OpenTables() {
        mp4_free_track_caches(host, &list);
        mp4_free_file_index(host, &index);
    }
    Mp4TableReader Reader() { return {host, host.File(), &tables, cache}; }

    TestHost host;
    Mp4FileIndex index{};
    Mp4TrackTables tables{};
    Mp4TrackCacheList list{};
    Mp4TrackCache* cache = nullptr;
    Mp4Result opened;
};

uint64_t SmallestBudget(const Bytes& file, size_t track = 0) {
    uint64_t budget = 0;
    while (OpenTables(file, budget, track).opened == FF4_RET_NOMEM)
        ++budget;
    return budget;
}

using Samples = std::vector<MovieSample>;

// All that the tables say of sample n, and of the `count` samples from there.
void ExpectSample(const Mp4TableReader& tables, const Samples& samples, uint32_t n,
                  uint32_t count) {
    const auto s = samples.begin() + n - 1;
    Mp4TimeRun run{}, at{};
    Mp4ChunkPlace place{};
    int32_t composition = 0;
    uint64_t offset = 0, before = 0, sum = 0;
    uint32_t size = 0, next = 0;
    bool sync = false;
    ASSERT_EQ(mp4_lookup_sample_time(tables, n, &run), FF4_RET_OK);
    EXPECT_EQ(run.first_time + uint64_t{n - run.first_sample} * run.sample_delta, s->time);
    EXPECT_EQ(run.sample_delta, s->duration);
    ASSERT_EQ(mp4_lookup_time_sample(tables, s->time + s->duration - 1, &at), FF4_RET_OK);
    EXPECT_EQ(at.first_sample, run.first_sample);
    ASSERT_EQ(mp4_lookup_composition_offset(tables, n, &composition), FF4_RET_OK);
    EXPECT_EQ(composition, s->composition);
    ASSERT_EQ(mp4_lookup_chunk(tables, n, &place), FF4_RET_OK);
    EXPECT_LT(n - place.first_sample, place.sample_count);
    EXPECT_EQ(place.description_index, s->description);
    ASSERT_EQ(mp4_lookup_chunk_offset(tables, place.chunk, &offset), FF4_RET_OK);
    ASSERT_EQ(mp4_lookup_size_sum(tables, place.first_sample, n - place.first_sample, &before),
              FF4_RET_OK);
    EXPECT_EQ(offset + before, s->offset);
    ASSERT_EQ(mp4_lookup_sample_size(tables, n, &size), FF4_RET_OK);
    EXPECT_EQ(size, s->size);
    ASSERT_EQ(mp4_lookup_size_sum(tables, n, count, &sum), FF4_RET_OK);
    EXPECT_EQ(sum, std::accumulate(s, s + count, uint64_t{0},
                                   [](uint64_t a, const MovieSample& b) { return a + b.size; }));
    if (!present(tables.at->stss)) return;
    ASSERT_EQ(mp4_lookup_is_sync(tables, n, &sync), FF4_RET_OK);
    EXPECT_EQ(sync, s->sync);
    const auto later = std::find_if(s + 1, samples.end(), [](const auto& o) { return o.sync; });
    const bool none = later == samples.end();
    ASSERT_EQ(mp4_lookup_next_sync(tables, n, &next), none ? FF4_RET_NOTFOUND : FF4_RET_OK);
    EXPECT_EQ(next, none ? 0 : later - samples.begin() + 1);
}

// Up, down and anywhere: what is found depends on the tables alone.
void ExpectTrack(const Bytes& file, size_t track, const Samples& samples,
                 const std::vector<uint64_t>& budgets) {
    const auto count = static_cast<uint32_t>(samples.size());
    std::vector<uint32_t> order(count);
    std::iota(order.begin(), order.end(), 1);
    std::vector<uint32_t> orders = order;
    orders.insert(orders.end(), order.rbegin(), order.rend());
    std::shuffle(order.begin(), order.end(), std::mt19937_64(count));
    orders.insert(orders.end(), order.begin(), order.end());
    for (const uint64_t budget : budgets) {
        OpenTables open(file, budget, track);
        ASSERT_EQ(open.opened, FF4_RET_OK) << budget;
        const uint64_t end = count ? samples.back().time + samples.back().duration : 0;
        EXPECT_EQ(Ask(open.Reader(), Lookup::kDuration, 0), (Answer{FF4_RET_OK, {end}}));
        for (const uint32_t n : orders) {
            SCOPED_TRACE(testing::Message() << "sample " << n << ", budget " << budget);
            ExpectSample(open.Reader(), samples, n, n * 7 % (count - n + 2));
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_LE(open.host->usedClass2, budget);
    }
}

TEST(SampleTables, EverySampleThroughAnyWindow) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        MovieBuilder movie = RandomMovie(seed);
        movie.fragment_samples = 0;
        const Bytes file = movie.Build();
        for (size_t t = 0; t < movie.tracks.size(); ++t) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", track " << t);
            const uint64_t least = SmallestBudget(file, t);
            ExpectTrack(file, t, movie.tracks[t].samples,
                        {least, least + seed, least + 900, kPool});
        }
    }
}

// A run for each sample and long chunks: several reads a window, checkpoints, running sums.
MovieBuilder LongMovie(uint32_t samples) {
    MovieBuilder movie{.tracks = {VideoTrack(samples, 5, 2)}};
    movie.tracks[0].chunks = {samples / 2};
    movie.tracks[0].merge = false;
    return movie;
}

TEST(SampleTables, LongTables) {
    MovieBuilder movie = LongMovie(3000);
    const Bytes file = movie.Build();
    ExpectTrack(file, 0, movie.tracks[0].samples, {SmallestBudget(file), 20000, kPool});
}

// Four samples in two chunks of two, but for the tables named. What is wrong is put down to an
// atom.
TEST(SampleTables, WhatNoTableMaySay) {
    const uint32_t most = 0xFFFFFFFF;
    const Bytes pairs = Stsc({{1, 2, 1}});
    const Bytes none_in_it = Stts({{2, 1}, {0, 1}, {2, 1}});
    // All samples that there can be, then chunks of none.
    const Bytes empty_at_the_end = Stsc({{1, most, 1}, {2, 0, 1}, {3, 0, 1}});
    const Bytes two_runs = Stsc({{2, 2, 1}, {1, 2, 1}}), same_run = Stsc({{1, 2, 1}, {1, 2, 1}});
    const Bytes eight_bits = Stz2(8, {1, 2, 3, 4});
    constexpr Mp4Result kOk = FF4_RET_OK, kBad = FF4_RET_FORMAT, kNone = FF4_RET_NOTFOUND;
    using enum Lookup;
    const std::tuple<const char*, std::vector<Bytes>, Lookup, uint64_t, Mp4Result, FourCC> cases[] =
        {
            {"sample 0", {}, kTime, 0, FF4_RET_ARGS, 0u},
            {"no sample 5", {}, kTime, 5, kNone, 0u},
            {"past the last time", {}, kAtTime, 40, kNone, 0u},
            {"no chunk 3", {}, kChunk, 3, kNone, 0u},
            {"a sum past the end", {}, kSum, 2, kBad, "stsz"},
            {"a run of none", {none_in_it}, kTime, 3, kBad, "stts"},
            {"what is before it", {none_in_it}, kTime, 2, kOk, 0u},
            {"2^32 samples", {Stts({{1, 1}, {most, 1}})}, kTime, 2, kBad, "stts"},
            {"fewer than samples", {Stts({{3, 1}})}, kDuration, 0, kBad, "stts"},
            {"fewer offsets", {Ctts({{3, 1}})}, kOffset, 4, kBad, "ctts"},
            {"chunk 0", {Stsc({{0, 2, 1}})}, kRun, 1, kBad, "stsc"},
            {"chunks that fall", {two_runs}, kRun, 1, kBad, "stsc"},
            {"chunks that stand", {same_run}, kRun, 1, kBad, "stsc"},
            {"an empty chunk", {Stsc({{1, 0, 1}})}, kRun, 1, kBad, "stsc"},
            {"a huge chunk", {Stsc({{2, most, 1}})}, kRun, 4, kOk, 0u},
            {"two of them", {Stsc({{1, most, 1}})}, kRun, 1, kBad, "stsc"},
            {"empty ones at the end", {empty_at_the_end, Stco({1, 2, 3, 4})}, kRun, 4, kOk, 0u},
            {"none above the last", {Stss({1, 3})}, kNext, 3, kNone, 0u},
            {"falling sync samples", {Stss({3, 1})}, kNext, 3, kBad, "stss"},
            {"no sync table", {}, kSync, 1, kBad, "stss"},
            {"compact sizes past the end", {eight_bits}, kSum, 5, kNone, 0u},
        };
    for (const auto& [name, tables, lookup, a, result, atom] : cases) {
        SCOPED_TRACE(name);
        // The first of its kind counts.
        OpenTables open(MovieOf({JoinAll(tables), Stts({{4, 10}}), pairs, Stsz({5, 6, 7, 8}),
                                 Stco({100, 200})}),
                        kPool);
        EXPECT_EQ(Ask(open.Reader(), lookup, a, 4).result, result);
        EXPECT_EQ(mp4_fault_atom(open.host), atom.value);
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
        OpenTables open(MovieOf({others}), kPool);
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
    const Bytes file = LongMovie(500).Build();
    for (int i = 0; i < kLookups; ++i) {
        const auto lookup = static_cast<Lookup>(i);
        for (const auto& [here, there] : {std::pair<uint64_t, uint64_t>{5, 480}, {480, 5}}) {
            SCOPED_TRACE(testing::Message() << "lookup " << i << " of " << here);
            OpenTables open(file, 1000);
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
    const Bytes file = LongMovie(3000).Build();
    const size_t trak = AtomAt(file, "moov/trak");
    const auto walk = [&](TestHost& host) {
        host->limitClass2 = 2000;
        const Mp4Span payload{trak + 8, get_be32(&file[trak]) - 8u};
        Mp4TrackTables tables{};
        Mp4TrackCacheList list{};
        Mp4TrackCache* cache = nullptr;
        FF4_TRY(mp4_read_track_tables(host, host.File(), payload, file.size(), &tables));
        FF4_TRY(mp4_add_track_cache(host, &list, tables, &cache));
        const Mp4TableReader reader{host, host.File(), &tables, cache};
        Mp4Result result = FF4_RET_OK;
        for (uint64_t n = 1; n < 2990 && result == FF4_RET_OK; n += 1400)
            for (const Lookup lookup : {Lookup::kTime, Lookup::kRun, Lookup::kNext, Lookup::kSum})
                if (result == FF4_RET_OK) result = Ask(reader, lookup, n, 1).result;
        if (result == FF4_RET_OK) result = Ask(reader, Lookup::kSum, 1, 2999).result;
        mp4_free_track_caches(host, &list);
        return result;
    };
    ExpectFaultsTold({HostCall::kRead, HostCall::kSeek, HostCall::kAlloc}, file, walk, 9);
}

// Bytes read, not time: a walk reads a table once, and a jump no more than a read or two.
TEST(SampleTables, WalksAndJumpsReadLittle) {
    constexpr uint32_t kSamples = 100000;
    std::vector<tarn::Run> runs;
    for (uint32_t i = 0; i < kSamples; ++i)
        runs.push_back({1, i % 7});
    OpenTables open(MovieOf({Stts(runs), Ctts(runs), Stsc({{1, kSamples, 1}}),
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
