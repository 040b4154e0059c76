#include "mp4format/tables/sample_tables.h"

#include <algorithm>
#include <initializer_list>

namespace tarn {
namespace {

constexpr uint32_t kMaxSumBlocks = 512;  // 4 KB for a track
constexpr uint32_t kMinSumSpacing = 256;
constexpr uint32_t kMostCompared = 32;  // entries, in the search of what is alike

// The type of a table's atom; where it is missing, of the one that the format asks for.
uint32_t code_of(const Mp4TrackTables& t, Mp4TableId table) {
    switch (table) {
        case kTableStts:
            return fourcc("stts");
        case kTableCtts:
            return fourcc("ctts");
        case kTableSize:
            return t.size_type != 0 ? t.size_type : fourcc("stsz");
        case kTableStsc:
            return fourcc("stsc");
        case kTableChunk:
            return t.chunk_type != 0 ? t.chunk_type : fourcc("stco");
        default:
            return fourcc("stss");
    }
}

bool is_present(const Mp4TrackTables& t, Mp4TableId table) {
    const Mp4Span* const spans[kTableCount] = {&t.stts, &t.ctts,        &t.size_table,
                                               &t.stsc, &t.chunk_table, &t.stss};
    return present(*spans[table]);
}

Mp4Result blame(const Mp4TableReader& tables, Mp4TableId table, Mp4Result result) {
    return mp4_blame(tables.host, code_of(*tables.at, table), result);
}

// FF4_RET_FORMAT for a table that is missing.
Mp4Result need(const Mp4TableReader& tables, std::initializer_list<Mp4TableId> needed) {
    for (const Mp4TableId table : needed)
        if (!is_present(*tables.at, table)) return blame(tables, table, FF4_RET_FORMAT);
    return FF4_RET_OK;
}

bool is_complete(const Mp4TableReader& tables) {
    return tables.host && tables.file && tables.at && tables.cache;
}

// The entry that covers `target`, with its window.
Mp4Result find(const Mp4TableReader& tables, Mp4TableId table, Mp4TableAxis axis, uint64_t target,
               uint32_t* entry) {
    FF4_TRY(mp4_load_track_cache(tables.host, tables.cache));
    return blame(tables, table,
                 mp4_find_entry(tables.host, tables.file, &tables.cache->windows[table], axis,
                                target, entry));
}

// The same for a sample that the size table counts: a table that ends before it contradicts that.
Mp4Result find_counted(const Mp4TableReader& tables, Mp4TableId table, uint32_t sample,
                       uint32_t* entry) {
    const Mp4Result result = find(tables, table, kByNumber, sample, entry);
    if (result != FF4_RET_NOTFOUND) return result;
    mp4_clear_window(&tables.cache->windows[table]);
    return blame(tables, table, FF4_RET_FORMAT);
}

Mp4Result check_sample(const Mp4TrackTables& tables, uint32_t sample) {
    if (sample == 0) return FF4_RET_ARGS;
    return sample > tables.sample_count ? FF4_RET_NOTFOUND : FF4_RET_OK;
}

Mp4Result check_times(const Mp4TableReader& tables) {
    FF4_TRY(need(tables, {kTableStts, kTableSize}));
    return tables.at->stts_count == 0 || tables.at->sample_count == 0 ? FF4_RET_NOTFOUND
                                                                      : FF4_RET_OK;
}

Mp4TimeRun time_run(const Mp4TrackCache& cache, uint32_t entry) {
    const auto& e = mp4_entry<Mp4SttsEntry>(cache.windows[kTableStts], entry);
    return {e.first_time, e.first_sample, e.sample_count, e.sample_delta};
}

// --- sums of sizes

// The sizes of `count` entries from `first` on, which the table has.
Mp4Result sum_entries(const Mp4TableReader& tables, uint32_t first, uint32_t count, uint64_t* sum) {
    const Mp4TableWindow& window = tables.cache->windows[kTableSize];
    while (count > 0) {
        uint32_t entry = 0;
        FF4_TRY(find(tables, kTableSize, kByNumber, first, &entry));
        const uint32_t n = std::min(count, window.end - entry);
        const Mp4SizeEntry* sizes = &mp4_entry<Mp4SizeEntry>(window, entry);
        for (uint32_t i = 0; i < n; ++i)
            *sum += sizes[i].size;
        first += n;
        count -= n;
    }
    return FF4_RET_OK;
}

Mp4Result make_sum_blocks(Mp4Host* host, uint32_t sample_count, Mp4SizeSums* sums) {
    if (sums->blocks) return FF4_RET_OK;
    auto blocks = mp4_make<uint64_t>(host, kMaxSumBlocks + 1);
    if (!blocks) return FF4_RET_NOMEM;
    sums->blocks = blocks.release();
    sums->spacing = std::max(kMinSumSpacing, sample_count / kMaxSumBlocks + 1);
    sums->used = 1;  // no bytes before the first entry
    return FF4_RET_OK;
}

// Makes sure of blocks[block]; each builds on the one before.
Mp4Result reach_sum_block(const Mp4TableReader& tables, uint32_t block) {
    Mp4SizeSums& sums = tables.cache->sums;
    for (; sums.used <= block; ++sums.used) {
        uint64_t sum = sums.blocks[sums.used - 1];
        const uint32_t first = 1 + (sums.used - 1) * sums.spacing;
        FF4_TRY(sum_entries(tables, first, sums.spacing, &sum));
        sums.blocks[sums.used] = sum;
    }
    return FF4_RET_OK;
}

// A long run takes the whole blocks inside it from the running sums.
Mp4Result sum_run(const Mp4TableReader& tables, uint32_t first, uint32_t count, uint64_t* sum) {
    constexpr uint32_t kLongRun = 4 * kMinSumSpacing;
    if (count < kLongRun) return sum_entries(tables, first, count, sum);
    Mp4SizeSums& sums = tables.cache->sums;
    FF4_TRY(make_sum_blocks(tables.host, tables.at->sample_count, &sums));
    const uint32_t skipped = first - 1, end = skipped + count;
    const uint32_t low = skipped / sums.spacing + 1, high = end / sums.spacing;
    if (low >= high) return sum_entries(tables, first, count, sum);

    FF4_TRY(reach_sum_block(tables, high));
    *sum += sums.blocks[high] - sums.blocks[low];
    FF4_TRY(sum_entries(tables, first, low * sums.spacing - skipped, sum));
    return sum_entries(tables, 1 + high * sums.spacing, end - high * sums.spacing, sum);
}

// --- samples that are alike. `end` is the first that is not, as far as is known.

Mp4Result limit_by_sync(const Mp4TableReader& tables, uint32_t sample, uint64_t* end) {
    if (!is_present(*tables.at, kTableStss) || tables.at->stss_count == 0) return FF4_RET_OK;
    const Mp4TableWindow& window = tables.cache->windows[kTableStss];
    const auto number = [&](uint32_t entry) {
        return mp4_entry<Mp4StssEntry>(window, entry).sample_number;
    };
    uint32_t entry = 0;
    const Mp4Result result = find(tables, kTableStss, kByNumber, sample, &entry);
    if (result == FF4_RET_NOTFOUND) return FF4_RET_OK;  // none follows
    FF4_TRY(result);
    uint64_t alike = number(entry);
    if (alike == sample) {
        const uint64_t most = std::min<uint64_t>(*end, uint64_t{sample} + kMostCompared);
        do {
            ++alike;
        } while (alike < most && ++entry < window.end && number(entry) == alike);
    }
    *end = std::min(*end, alike);
    return FF4_RET_OK;
}

Mp4Result limit_by_size(const Mp4TableReader& tables, uint32_t sample, uint64_t* end) {
    if (tables.at->sample_size != 0) return FF4_RET_OK;
    const Mp4TableWindow& window = tables.cache->windows[kTableSize];
    uint32_t entry = 0;
    FF4_TRY(find(tables, kTableSize, kByNumber, sample, &entry));
    const uint32_t size = mp4_entry<Mp4SizeEntry>(window, entry).size;
    const uint64_t most = std::min<uint64_t>({*end, window.end, uint64_t{sample} + kMostCompared});
    uint32_t next = sample + 1;
    while (next < most && mp4_entry<Mp4SizeEntry>(window, next).size == size)
        ++next;
    *end = std::min<uint64_t>(*end, next);
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_need_times(const Mp4TableReader& tables) {
    return is_complete(tables) ? need(tables, {kTableStts}) : FF4_RET_ARGS;
}

Mp4Result mp4_lookup_sample_time(const Mp4TableReader& tables, uint32_t sample, Mp4TimeRun* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(check_times(tables));
    FF4_TRY(check_sample(*tables.at, sample));
    uint32_t entry = 0;
    FF4_TRY(find_counted(tables, kTableStts, sample, &entry));
    *out = time_run(*tables.cache, entry);
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_time_sample(const Mp4TableReader& tables, uint64_t time, Mp4TimeRun* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(check_times(tables));
    uint32_t entry = 0;
    FF4_TRY(find(tables, kTableStts, kByTime, time, &entry));
    *out = time_run(*tables.cache, entry);
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_media_duration(const Mp4TableReader& tables, uint64_t* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableStts, kTableSize}));
    if (tables.at->sample_count == 0) {
        *out = 0;
        return FF4_RET_OK;
    }
    Mp4TimeRun last{};
    FF4_TRY(mp4_lookup_sample_time(tables, tables.at->sample_count, &last));
    // The window has added the same up without a wrap.
    *out = last.first_time + uint64_t{last.sample_count} * last.sample_delta;
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_composition_offset(const Mp4TableReader& tables, uint32_t sample,
                                        int32_t* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableSize}));
    FF4_TRY(check_sample(*tables.at, sample));
    *out = 0;
    if (!is_present(*tables.at, kTableCtts)) return FF4_RET_OK;
    uint32_t entry = 0;
    FF4_TRY(find_counted(tables, kTableCtts, sample, &entry));
    *out = static_cast<int32_t>(
        mp4_entry<Mp4CttsEntry>(tables.cache->windows[kTableCtts], entry).sample_offset);
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_chunk_run(const Mp4TableReader& tables, uint32_t sample, Mp4ChunkRun* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableStsc, kTableSize, kTableChunk}));
    if (tables.at->stsc_count == 0 || tables.at->sample_count == 0 || tables.at->chunk_count == 0)
        return FF4_RET_NOTFOUND;
    FF4_TRY(check_sample(*tables.at, sample));
    uint32_t entry = 0;
    FF4_TRY(find_counted(tables, kTableStsc, sample, &entry));

    const Mp4TableWindow& window = tables.cache->windows[kTableStsc];
    const auto& e = mp4_entry<Mp4StscEntry>(window, entry);
    // The entry covers the sample, so that it has samples, and whole chunks of them.
    const uint64_t samples =
        mp4_entry_start(window, entry + 1).number - mp4_entry_start(window, entry).number;
    *out = {e.first_sample, e.first_chunk, e.samples_per_chunk, e.description_index,
            static_cast<uint32_t>(samples / e.samples_per_chunk)};
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_chunk(const Mp4TableReader& tables, uint32_t sample, Mp4ChunkPlace* out) {
    if (!out) return FF4_RET_ARGS;
    Mp4ChunkRun run{};
    FF4_TRY(mp4_lookup_chunk_run(tables, sample, &run));
    const uint32_t before = (sample - run.first_sample) / run.samples_per_chunk;
    *out = {run.first_chunk + before, run.first_sample + before * run.samples_per_chunk,
            run.samples_per_chunk, run.description_index};
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_chunk_offset(const Mp4TableReader& tables, uint32_t chunk, uint64_t* out) {
    if (!is_complete(tables) || !out || chunk == 0) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableChunk}));
    uint32_t entry = 0;
    FF4_TRY(find(tables, kTableChunk, kByNumber, chunk, &entry));
    *out = mp4_entry<Mp4ChunkEntry>(tables.cache->windows[kTableChunk], entry).offset;
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_sample_size(const Mp4TableReader& tables, uint32_t sample, uint32_t* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableSize}));
    FF4_TRY(check_sample(*tables.at, sample));
    if (tables.at->sample_size != 0) {
        *out = tables.at->sample_size;
        return FF4_RET_OK;
    }
    uint32_t entry = 0;
    FF4_TRY(find(tables, kTableSize, kByNumber, sample, &entry));
    *out = mp4_entry<Mp4SizeEntry>(tables.cache->windows[kTableSize], entry).size;
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_size_sum(const Mp4TableReader& tables, uint32_t sample, uint32_t count,
                              uint64_t* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableSize}));
    FF4_TRY(check_sample(*tables.at, sample));
    if (count > tables.at->sample_count - sample + 1)
        return blame(tables, kTableSize, FF4_RET_FORMAT);
    if (tables.at->sample_size != 0) {
        *out = uint64_t{count} * tables.at->sample_size;
        return FF4_RET_OK;
    }
    Mp4SizeSums& last = tables.cache->sums;
    const bool grown = last.first == sample && count >= last.count;
    const uint32_t done = grown ? last.count : 0;
    uint64_t sum = grown ? last.sum : 0;
    FF4_TRY(sum_run(tables, sample + done, count - done, &sum));
    last.first = sample;
    last.count = count;
    *out = last.sum = sum;
    return FF4_RET_OK;
}

Mp4Result mp4_count_alike_samples(const Mp4TableReader& tables, uint32_t sample, uint32_t* count) {
    if (!is_complete(tables) || !count) return FF4_RET_ARGS;
    Mp4TimeRun times{};
    Mp4ChunkPlace place{};
    FF4_TRY(mp4_lookup_sample_time(tables, sample, &times));
    FF4_TRY(mp4_lookup_chunk(tables, sample, &place));
    uint64_t end = std::min({uint64_t{tables.at->sample_count} + 1,
                             uint64_t{times.first_sample} + times.sample_count,
                             uint64_t{place.first_sample} + place.sample_count});
    if (is_present(*tables.at, kTableCtts)) {
        uint32_t entry = 0;
        FF4_TRY(find_counted(tables, kTableCtts, sample, &entry));
        end = std::min(end, mp4_entry_start(tables.cache->windows[kTableCtts], entry + 1).number);
    }
    if (end > uint64_t{sample} + 1) FF4_TRY(limit_by_sync(tables, sample, &end));
    if (end > uint64_t{sample} + 1) FF4_TRY(limit_by_size(tables, sample, &end));
    *count = static_cast<uint32_t>(end - sample);
    return FF4_RET_OK;
}

Mp4Result mp4_lookup_is_sync(const Mp4TableReader& tables, uint32_t sample, bool* out) {
    if (!is_complete(tables) || !out || sample == 0) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableStss, kTableSize}));
    uint32_t entry = 0;
    const Mp4Result result = find(tables, kTableStss, kByNumber, sample, &entry);
    if (result != FF4_RET_OK && result != FF4_RET_NOTFOUND) return result;
    *out =
        result == FF4_RET_OK &&
        mp4_entry<Mp4StssEntry>(tables.cache->windows[kTableStss], entry).sample_number == sample;
    return FF4_RET_OK;
}

Mp4Result mp4_check_sync_order(const Mp4TableReader& tables) {
    if (!is_complete(tables)) return FF4_RET_ARGS;
    if (tables.at->stss_count == 0) return FF4_RET_OK;
    uint32_t entry = 0;
    // After the last number there can be: the way there leads through all of them.
    const Mp4Result result = find(tables, kTableStss, kByNumber, uint64_t{UINT32_MAX} + 1, &entry);
    return result == FF4_RET_NOTFOUND ? FF4_RET_OK : result;
}

Mp4Result mp4_lookup_next_sync(const Mp4TableReader& tables, uint32_t sample, uint32_t* out) {
    if (!is_complete(tables) || !out) return FF4_RET_ARGS;
    FF4_TRY(need(tables, {kTableStss, kTableSize}));
    uint32_t entry = 0;
    FF4_TRY(find(tables, kTableStss, kByNumber, uint64_t{sample} + 1, &entry));
    *out = mp4_entry<Mp4StssEntry>(tables.cache->windows[kTableStss], entry).sample_number;
    return FF4_RET_OK;
}

}  // namespace tarn
