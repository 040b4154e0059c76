#include "mp4format/tables/sample_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "mp4format/tables/table_budget.h"
#include "mp4format/tables/table_set.h"
#include "support/fault_check.h"

namespace tarn {
namespace {

constexpr uint64_t kPool = 131072;
constexpr uint64_t kRoomy = 1 << 20;  // a file that holds every sample of a constant size
constexpr Lookup kBySample[] = {Lookup::kTime, Lookup::kOffset, Lookup::kRun,
                                Lookup::kSize, Lookup::kSync,   Lookup::kNext};

Mp4Result ReadTables(TestHost& host, Mp4TrackTables* tables) {
    const uint64_t size = host.Content(host.File()).size();
    return mp4_read_track_tables(host, host.File(), {8, size - 8}, kRoomy, tables);
}

// One track's tables in a file, behind a window pool of so many bytes.
struct OpenTables {
    OpenTables(const TableSet& set, uint64_t budget) : host(set.Write()) {
        opened = ReadTables(host, &tables);
        if (opened != FF4_RET_OK) return;
        host->enabled = 1;
        host->limitClass1 = 1 << 20;
        host->limitClass2 = budget;
        opened = mp4_add_track_cache(host, &list, tables, &cache);
    }
    ~OpenTables() { mp4_free_track_caches(host, &list); }

    Answer Ask(Lookup lookup, uint64_t a, uint64_t b = 0) {
        return AskWindows({host, host.File(), &tables, cache}, lookup, a, b);
    }

    Mp4TrackTables tables{};
    TestHost host;
    Mp4TrackCacheList list{};
    Mp4TrackCache* cache = nullptr;
    Mp4Result opened;
};

struct Question {
    Lookup lookup;
    uint64_t a, b;
    Answer truth;
};

// Everything that can be asked about a set's samples, in rising order, with what is past them.
std::vector<Question> AllQuestions(const TableSet& set) {
    std::vector<Question> all;
    const auto ask = [&](Lookup lookup, uint64_t a, uint64_t b = 0) {
        all.push_back({lookup, a, b, set.Ask(lookup, a, b)});
    };
    const uint64_t samples = set.sizes.size();
    ask(Lookup::kNext, 0);
    for (uint64_t n = 1; n <= samples + 2; ++n) {
        for (const Lookup lookup : kBySample)
            ask(lookup, n);
        ask(Lookup::kSum, n, n % 11);
        ask(Lookup::kSum, 1 + n / 50 * 50, n % 50);
        ask(Lookup::kAtTime, n + n / 2);
        if (n <= set.chunks.size() + 2) ask(Lookup::kChunk, n);
    }
    ask(Lookup::kAtTime, UINT64_MAX - 1);
    ask(Lookup::kSync, UINT32_MAX);
    ask(Lookup::kNext, UINT32_MAX);
    ask(Lookup::kDuration, 0);
    return all;
}

uint64_t SmallestBudget(const TableSet& set) {
    uint64_t budget = 0;
    while (OpenTables(set, budget).opened != FF4_RET_OK)
        ++budget;
    return budget;
}

void ExpectTruth(OpenTables* open, const std::vector<Question>& questions) {
    for (const Question& q : questions) {
        const Answer answer = open->Ask(q.lookup, q.a, q.b);
        ASSERT_EQ(answer, q.truth)
            << "lookup " << static_cast<int>(q.lookup) << " of " << q.a << ", " << q.b;
    }
}

class Differential : public testing::TestWithParam<bool> {};

TEST_P(Differential, AnswersDependOnTheTablesAlone) {
    for (uint64_t seed = 1; seed <= 60; ++seed) {
        const TableSet set = RandomTables(seed, GetParam());
        std::vector<Question> orders[3];
        auto& [forward, backward, random] = orders;
        forward = random = AllQuestions(set);
        backward.assign(forward.rbegin(), forward.rend());
        std::shuffle(random.begin(), random.end(), std::mt19937_64(seed));

        const uint64_t smallest = SmallestBudget(set);
        for (const uint64_t budget : {smallest, smallest + 1 + seed, smallest + 900, kPool}) {
            for (const auto& order : orders) {
                SCOPED_TRACE(testing::Message() << "seed " << seed << " budget " << budget
                                                << " order " << (&order - orders));
                OpenTables open(set, budget);
                ASSERT_EQ(open.opened, FF4_RET_OK);
                ASSERT_NO_FATAL_FAILURE(ExpectTruth(&open, order));
                ASSERT_NO_FATAL_FAILURE(ExpectTruth(&open, random));  // on windows in use
                EXPECT_LE(open.host->usedClass2, budget);
            }
        }
    }
}
INSTANTIATE_TEST_SUITE_P(Tables, Differential, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Broken" : "Sound"; });

// Long enough for several reads a window, for checkpoints and for running sums: a run for each
// sample, and all of the samples in three chunks.
TableSet LongTables(uint32_t samples) {
    TableSet set;
    for (uint32_t i = 0; i < samples; ++i) {
        set.stts.push_back({1, i % 7});
        set.ctts.push_back({1, i});
        set.sizes.push_back(i * 37 % 65536);
        if (i % 2 == 0) set.stss.push_back(i + 1);
    }
    set.size_bits = 16;
    set.chunks = {1000, 2000, 3000};
    set.stsc = {{1, samples / 3, 1}, {3, samples - samples / 3 * 2, 2}};
    return set;
}

TEST(SampleTables, LongTablesAndJumps) {
    const TableSet set = LongTables(6000);
    std::mt19937_64 dice(1);
    std::vector<Question> questions;
    for (int i = 0; i < 2000; ++i) {
        const uint64_t n = 1 + dice() % 6000;
        const Lookup lookup = kBySample[dice() % std::size(kBySample)];
        questions.push_back({lookup, n, 0, set.Ask(lookup, n)});
        questions.push_back({Lookup::kAtTime, 2 * n, 0, set.Ask(Lookup::kAtTime, 2 * n)});
        const uint64_t count = dice() % (6001 - n);
        questions.push_back({Lookup::kSum, n, count, set.Ask(Lookup::kSum, n, count)});
    }
    for (const uint64_t budget : {SmallestBudget(set), uint64_t{20000}, kPool}) {
        SCOPED_TRACE(budget);
        OpenTables open(set, budget);
        ExpectTruth(&open, questions);
    }
}

// Worked out by hand: 3 samples of 10 units, 2 of 20; chunks of 2, 2 and 1 samples.
TEST(SampleTables, FiguresByHand) {
    TableSet set;
    set.stts = {{3, 10}, {2, 20}};
    set.ctts = {{1, 5}, {4, 0xFFFFFFFD}};
    set.stsc = {{1, 2, 1}, {3, 1, 2}};
    set.sizes = {1, 2, 3, 4, 15};
    set.size_bits = 4;
    set.chunks = {100, 200, uint64_t{1} << 33};
    set.co64 = true;
    set.stss = {1, 4};
    const struct {
        const char* name;
        Lookup lookup;
        uint64_t a, b;
        Answer answer;
    } cases[] = {
        {"the second run starts at sample 4", Lookup::kTime, 5, 0, {FF4_RET_OK, {30, 4, 2, 20}}},
        {"no sample 6", Lookup::kTime, 6, 0, {FF4_RET_NOTFOUND}},
        {"no sample 0", Lookup::kTime, 0, 0, {FF4_RET_ARGS}},
        {"time 29 is the first run's", Lookup::kAtTime, 29, 0, {FF4_RET_OK, {0, 1, 3, 10}}},
        {"time 69 is the last", Lookup::kAtTime, 69, 0, {FF4_RET_OK, {30, 4, 2, 20}}},
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
        {"the same sum grown", Lookup::kSum, 2, 4, {FF4_RET_OK, {24}}},
        {"and shrunk", Lookup::kSum, 2, 1, {FF4_RET_OK, {2}}},
        {"sum past the end", Lookup::kSum, 2, 5, {FF4_RET_FORMAT}},
        {"sync", Lookup::kSync, 4, 0, {FF4_RET_OK, {1}}},
        {"not sync", Lookup::kSync, 3, 0, {FF4_RET_OK, {0}}},
        {"next sync is strictly above", Lookup::kNext, 1, 0, {FF4_RET_OK, {4}}},
        {"none above the last", Lookup::kNext, 4, 0, {FF4_RET_NOTFOUND}},
    };
    for (const uint64_t budget : {SmallestBudget(set), kPool}) {
        OpenTables open(set, budget);
        for (const auto& c : cases) {
            EXPECT_EQ(open.Ask(c.lookup, c.a, c.b), c.answer) << c.name << ", " << budget;
            // The model that other tests rely on.
            if (c.a) {
                EXPECT_EQ(set.Ask(c.lookup, c.a, c.b), c.answer) << c.name << ", model";
            }
        }
    }
}

// Four samples in two chunks of two.
TEST(SampleTables, WhatNoTableMaySay) {
    const std::vector<tarn::Run> times = {{4, 10}};
    const std::vector<ChunkRun> pairs = {{1, 2, 1}};
    const struct {
        const char* name;
        std::vector<tarn::Run> stts;
        std::vector<ChunkRun> stsc;
        Lookup lookup;
        uint64_t a;
        Mp4Result result;
    } cases[] = {
        {"a run of none", {{2, 1}, {0, 1}, {2, 1}}, pairs, Lookup::kTime, 3, FF4_RET_FORMAT},
        {"what is before it", {{2, 1}, {0, 1}, {2, 1}}, pairs, Lookup::kTime, 2, FF4_RET_OK},
        {"2^32 samples", {{1, 1}, {0xFFFFFFFF, 1}}, pairs, Lookup::kTime, 2, FF4_RET_FORMAT},
        {"fewer than samples", {{3, 1}}, pairs, Lookup::kDuration, 0, FF4_RET_FORMAT},
        {"chunk 0", times, {{0, 2, 1}}, Lookup::kRun, 1, FF4_RET_FORMAT},
        {"chunks that fall", times, {{2, 2, 1}, {1, 2, 1}}, Lookup::kRun, 1, FF4_RET_FORMAT},
        {"chunks that stand", times, {{1, 2, 1}, {1, 2, 1}}, Lookup::kRun, 1, FF4_RET_FORMAT},
        {"an empty chunk", times, {{1, 0, 1}}, Lookup::kRun, 1, FF4_RET_FORMAT},
        {"a huge chunk", times, {{2, 0xFFFFFFFF, 1}}, Lookup::kRun, 4, FF4_RET_OK},
        {"two of them", times, {{1, 0xFFFFFFFF, 1}}, Lookup::kRun, 1, FF4_RET_FORMAT},
    };
    for (const auto& c : cases) {
        TableSet set;
        set.stts = c.stts;
        set.stsc = c.stsc;
        set.sizes = {5, 6, 7, 8};
        set.chunks = {100, 200};
        set.has_ctts = set.has_stss = false;
        EXPECT_EQ(OpenTables(set, kPool).Ask(c.lookup, c.a).result, c.result) << c.name;
    }
}

TEST(SampleTables, AFailedReadLeavesTheWindowAsItWas) {
    const TableSet set = LongTables(500);
    for (const Lookup lookup : kBySample) {
        for (const auto& [here, there] : {std::pair<uint64_t, uint64_t>{5, 480}, {480, 5}}) {
            SCOPED_TRACE(testing::Message() << "lookup " << static_cast<int>(lookup) << here);
            OpenTables open(set, 1000);
            const Answer truth = set.Ask(lookup, here);
            EXPECT_EQ(open.Ask(lookup, here), truth);
            for (const Fault fault : {Fault::kFail, Fault::kShort}) {
                open.host.FailAt(HostCall::kRead, 1, fault);
                const Mp4Result result = open.Ask(lookup, there).result;
                EXPECT_EQ(result, open.host.FaultMet() ? FF4_RET_FILE : FF4_RET_OK);
            }
            open.host.FailAt(HostCall::kRead, 1);
            EXPECT_EQ(open.Ask(lookup, here), truth);
        }
    }
}

TEST(SampleTables, EveryFaultIsReportedAndNothingLeaks) {
    const TableSet set = LongTables(3000);
    const auto walk = [&](TestHost& host) {
        host->limitClass2 = 2000;
        Mp4TrackTables tables{};
        Mp4TrackCacheList list{};
        Mp4TrackCache* cache = nullptr;
        Mp4Result result = ReadTables(host, &tables);
        if (result == FF4_RET_OK) result = mp4_add_track_cache(host, &list, tables, &cache);
        for (uint64_t n = 1; n < 3000 && result == FF4_RET_OK; n += 1400)
            for (const Lookup lookup : {Lookup::kTime, Lookup::kRun, Lookup::kNext, Lookup::kSum})
                if (result == FF4_RET_OK)
                    result = AskWindows({host, host.File(), &tables, cache}, lookup, n, 1).result;
        if (result == FF4_RET_OK)
            result = AskWindows({host, host.File(), &tables, cache}, Lookup::kSum, 1, 2999).result;
        mp4_free_track_caches(host, &list);
        return result;
    };
    ExpectFaultsTold({HostCall::kRead, HostCall::kSeek, HostCall::kAlloc}, set.Write(), walk, 9);
}

// Bytes read, not time: a walk reads a table once, and a jump no more than a read or two.
TEST(SampleTables, WalksAndJumpsReadLittle) {
    constexpr uint32_t kSamples = 100000;
    const TableSet set = LongTables(kSamples);
    OpenTables open(set, 30000);
    const auto read_by = [&](Lookup lookup, uint64_t step, uint64_t steps) {
        open.host.ResetCounts();
        for (uint64_t i = 0; i < steps; ++i)
            EXPECT_EQ(open.Ask(lookup, 1 + i * step % kSamples).result, FF4_RET_OK);
        return open.host.BytesRead();
    };
    const struct {
        Lookup lookup;
        uint64_t table_bytes;
    } cases[] = {{Lookup::kTime, 8 * kSamples},
                 {Lookup::kOffset, 8 * kSamples},
                 {Lookup::kSize, 2 * kSamples},
                 {Lookup::kSync, 2 * kSamples}};
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.lookup));
        EXPECT_LE(read_by(c.lookup, 1, kSamples), c.table_bytes * 11 / 10);
        EXPECT_LE(read_by(c.lookup, kSamples - 1, kSamples), c.table_bytes * 11 / 10);
        EXPECT_LE(read_by(c.lookup, 38197, 1000), 1000u * 2 * 8000);
    }
}

}  // namespace
}  // namespace tarn
