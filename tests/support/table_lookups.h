// table_lookups.h - a question about sample tables as a value, so that whole lists of them can be
// asked of tables that are kept in different ways.
#pragma once

#include <array>
#include <ostream>

#include "mp4format/tables/sample_tables.h"

namespace tarn {

enum class Lookup { kTime, kAtTime, kDuration, kOffset, kRun, kChunk, kSize, kSum, kSync, kNext };
constexpr int kLookups = 10;

// What a lookup gave; no values unless it went well.
struct Answer {
    Mp4Result result;
    std::array<uint64_t, 5> values = {};
    bool operator==(const Answer&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Answer& a) {
    out << std::hex << a.result << std::dec;
    for (const uint64_t value : a.values)
        out << ' ' << value;
    return out;
}

// `a` is a sample, chunk or time; `b` a count of samples.
inline Answer Ask(const Mp4TableReader& tables, Lookup lookup, uint64_t a, uint64_t b = 0) {
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
    Mp4Result result = FF4_RET_INTERNAL;
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
    return answer(result, {});
}

}  // namespace tarn
