#include "mp4format/tables/table_set.h"

#include <random>

namespace tarn {
namespace {

__extension__ using Wide = unsigned __int128;

constexpr uint64_t kMaxSample = UINT32_MAX;

uint32_t Count(size_t n) {
    return static_cast<uint32_t>(n);
}

}  // namespace

Bytes TableSet::Write() const {
    const Bytes size_table = constant_size != 0 ? StszConstant(constant_size, Count(sizes.size()))
                             : size_bits == 32  ? Stsz(sizes)
                                                : Stz2(static_cast<uint8_t>(size_bits), sizes);
    const Bytes stbl =
        Atom("stbl", Stts(stts), has_ctts ? Ctts(ctts, 1) : Bytes(), Stsc(stsc), size_table,
             co64 ? Co64(chunks) : Stco(chunks), has_stss ? Stss(stss) : Bytes());
    return Atom("trak", Atom("mdia", Atom("minf", stbl)));
}

uint64_t TableSet::Sum(uint64_t sample, uint64_t count) const {
    if (constant_size != 0) return count * constant_size;
    uint64_t sum = 0;
    for (uint64_t i = 0; i < count; ++i)
        sum += sizes[sample - 1 + i];
    return sum;
}

Answer TableSet::Time(Mp4TableAxis axis, uint64_t target) const {
    if (stts.empty() || sizes.empty()) return {FF4_RET_NOTFOUND};
    const bool by_number = axis == kByNumber;
    if (by_number && target > sizes.size()) return {FF4_RET_NOTFOUND};
    uint64_t sample = 1, time = 0;
    for (const auto& [count, delta] : stts) {
        const uint64_t end = sample + count, end_time = time + uint64_t{count} * delta;
        if (count == 0 || end - 1 > kMaxSample) return {FF4_RET_FORMAT};
        if (target < (by_number ? end : end_time))
            return {FF4_RET_OK, {time, sample, count, delta}};
        sample = end;
        time = end_time;
    }
    return {by_number ? FF4_RET_FORMAT : FF4_RET_NOTFOUND};
}

Answer TableSet::Offset(uint64_t sample) const {
    if (sample > sizes.size()) return {FF4_RET_NOTFOUND};
    if (!has_ctts) return {FF4_RET_OK};
    uint64_t end = 1;
    for (const auto& [count, offset] : ctts) {
        end += count;
        if (end - 1 > kMaxSample) break;
        if (sample < end)
            return {FF4_RET_OK, {static_cast<uint64_t>(static_cast<int32_t>(offset))}};
    }
    return {FF4_RET_FORMAT};
}

Answer TableSet::Chunks(uint64_t sample) const {
    if (stsc.empty() || sizes.empty() || chunks.empty() || sample > sizes.size())
        return {FF4_RET_NOTFOUND};
    Wide first = 1;
    for (size_t i = 0; i < stsc.size(); ++i) {
        const uint64_t begin = stsc[i].first_chunk;
        const uint64_t end = i + 1 < stsc.size() ? stsc[i + 1].first_chunk : chunks.size() + 1;
        if (begin == 0 || end <= begin) break;
        const Wide end_sample = first + Wide{end - begin} * stsc[i].samples;
        if (end_sample - 1 > kMaxSample) break;
        if (sample < end_sample)
            return {FF4_RET_OK,
                    {static_cast<uint64_t>(first), begin, stsc[i].samples, stsc[i].description,
                     end - begin}};
        first = end_sample;
    }
    return {FF4_RET_FORMAT};
}

Answer TableSet::Sync(uint64_t sample, bool next) const {
    if (!has_stss) return {FF4_RET_FORMAT};
    uint32_t before = 0;
    for (const uint32_t number : stss) {
        if (number < before) return {FF4_RET_FORMAT};
        if (next && number > sample) return {FF4_RET_OK, {number}};
        if (!next && number >= sample) return {FF4_RET_OK, {number == sample}};
        before = number;
    }
    return {next ? FF4_RET_NOTFOUND : FF4_RET_OK};
}

Answer TableSet::Ask(Lookup lookup, uint64_t a, uint64_t b) const {
    switch (lookup) {
        case Lookup::kTime:
            return Time(kByNumber, a);
        case Lookup::kAtTime:
            return Time(kByTime, a);
        case Lookup::kDuration: {
            if (sizes.empty()) return {FF4_RET_OK};
            const Answer run = Time(kByNumber, sizes.size());
            if (run.result != FF4_RET_OK) return run;
            return {FF4_RET_OK, {run.values[0] + run.values[2] * run.values[3]}};
        }
        case Lookup::kOffset:
            return Offset(a);
        case Lookup::kRun:
            return Chunks(a);
        case Lookup::kChunk:
            if (a > chunks.size()) return {FF4_RET_NOTFOUND};
            return {FF4_RET_OK, {chunks[a - 1]}};
        case Lookup::kSize:
            if (a > sizes.size()) return {FF4_RET_NOTFOUND};
            return {FF4_RET_OK, {Sum(a, 1)}};
        case Lookup::kSum:
            if (a > sizes.size()) return {FF4_RET_NOTFOUND};
            if (a - 1 + b > sizes.size()) return {FF4_RET_FORMAT};
            return {FF4_RET_OK, {Sum(a, b)}};
        case Lookup::kSync:
            return Sync(a, false);
        case Lookup::kNext:
            return Sync(a, true);
    }
    return {FF4_RET_INTERNAL};
}

Answer AskWindows(const Mp4TableReader& tables, Lookup lookup, uint64_t a, uint64_t b) {
    const auto n = static_cast<uint32_t>(a);
    const auto answer = [](Mp4Result result, std::array<uint64_t, 5> values) {
        return result == FF4_RET_OK ? Answer{result, values} : Answer{result};
    };
    Mp4TimeRun time{};
    Mp4ChunkRun run{};
    int32_t offset = 0;
    uint64_t wide = 0;
    uint32_t word = 0;
    bool sync = false;
    Mp4Result result = FF4_RET_OK;
    switch (lookup) {
        case Lookup::kTime:
        case Lookup::kAtTime:
            result = lookup == Lookup::kTime ? mp4_lookup_sample_time(tables, n, &time)
                                             : mp4_lookup_time_sample(tables, a, &time);
            return answer(
                result, {time.first_time, time.first_sample, time.sample_count, time.sample_delta});
        case Lookup::kDuration:
            result = mp4_lookup_media_duration(tables, &wide);
            return answer(result, {wide});
        case Lookup::kOffset:
            result = mp4_lookup_composition_offset(tables, n, &offset);
            return answer(result, {static_cast<uint64_t>(offset)});
        case Lookup::kRun:
            result = mp4_lookup_chunk_run(tables, n, &run);
            return answer(result, {run.first_sample, run.first_chunk, run.samples_per_chunk,
                                   run.description_index, run.chunk_count});
        case Lookup::kChunk:
            result = mp4_lookup_chunk_offset(tables, n, &wide);
            return answer(result, {wide});
        case Lookup::kSize:
            result = mp4_lookup_sample_size(tables, n, &word);
            return answer(result, {word});
        case Lookup::kSum:
            result = mp4_lookup_size_sum(tables, n, static_cast<uint32_t>(b), &wide);
            return answer(result, {wide});
        case Lookup::kSync:
            result = mp4_lookup_is_sync(tables, n, &sync);
            return answer(result, {sync});
        case Lookup::kNext:
            result = mp4_lookup_next_sync(tables, n, &word);
            return answer(result, {word});
    }
    return {FF4_RET_INTERNAL};
}

namespace {

class Dice {
public:
    explicit Dice(uint64_t seed) : m_engine(seed) {}
    uint32_t Up(uint32_t to) { return std::uniform_int_distribution<uint32_t>(0, to)(m_engine); }
    bool OneIn(uint32_t n) { return Up(n - 1) == 0; }
    uint32_t Odd() {
        const uint32_t odd[] = {0, 0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return odd[Up(5)];
    }
    // Runs that add up to `total`, values to `limit`.
    std::vector<Run> Runs(uint32_t total, uint32_t longest, uint32_t limit) {
        std::vector<Run> runs;
        for (uint32_t left = total; left > 0; left -= runs.back().count)
            runs.push_back({1 + Up(std::min(longest, left) - 1), Up(limit)});
        return runs;
    }
    template <typename T>
    T* Any(std::vector<T>* list) {
        return list->empty() ? nullptr : &(*list)[Up(Count(list->size()) - 1)];
    }

private:
    std::mt19937_64 m_engine;
};

void SpoilOne(Dice* dice, TableSet* set) {
    const uint32_t odd = dice->OneIn(3) ? dice->Up(300) : dice->Odd();
    const uint32_t which = dice->Up(7);
    if (auto* p = which < 2 ? dice->Any(&set->stts) : nullptr)
        (which == 0 ? p->count : p->value) = odd;
    if (auto* p = which == 2 ? dice->Any(&set->ctts) : nullptr) p->count = odd;
    if (auto* p = which == 3 || which == 4 ? dice->Any(&set->stsc) : nullptr)
        (which == 3 ? p->first_chunk : p->samples) = odd;
    if (auto* p = which == 5 ? dice->Any(&set->stss) : nullptr) *p = odd;
    if (which == 6) set->sizes.resize(dice->Up(250), 1);
    if (which == 7) set->chunks.resize(dice->Up(80), 7);
}

}  // namespace

TableSet RandomTables(uint64_t seed, bool broken) {
    Dice dice(seed);
    TableSet set;
    const uint32_t samples = dice.OneIn(20) ? dice.Up(3) : 1 + dice.Up(200);
    const uint32_t bits[] = {4, 8, 16, 32};
    set.size_bits = bits[dice.Up(3)];
    if (set.size_bits == 32 && dice.OneIn(3)) set.constant_size = 1 + dice.Up(5000);
    for (uint32_t i = 0; i < samples; ++i) {
        set.sizes.push_back(dice.Up(set.size_bits == 32 ? 70000 : (1u << set.size_bits) - 1));
        if (i == 0 || dice.OneIn(5)) set.stss.push_back(i + 1);
    }
    set.stts = dice.Runs(samples, dice.OneIn(2) ? 1 : samples, 3);
    set.ctts = dice.Runs(samples, 3, 100);
    for (Run& run : set.ctts)
        if (dice.OneIn(8)) run.value = dice.Odd();
    set.has_ctts = dice.OneIn(2);
    set.has_stss = !dice.OneIn(4);
    if (dice.OneIn(10)) set.stss.clear();

    // Chunks one by one; equal neighbours sometimes share a run.
    for (uint32_t left = samples; left > 0;) {
        const uint32_t n = 1 + dice.Up(std::min(left, 6u) - 1);
        if (set.stsc.empty() || set.stsc.back().samples != n || dice.OneIn(3))
            set.stsc.push_back({Count(set.chunks.size()) + 1, n, 1 + dice.Up(1)});
        set.chunks.push_back(dice.Up(UINT32_MAX));
        left -= n;
    }
    set.co64 = dice.OneIn(2);
    if (set.co64 && !set.chunks.empty()) set.chunks.back() |= uint64_t{7} << 40;
    for (uint32_t n = broken ? 1 + dice.Up(1) : 0; n > 0; --n)
        SpoilOne(&dice, &set);
    return set;
}

}  // namespace tarn
