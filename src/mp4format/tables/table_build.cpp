#include "mp4format/tables/table_build.h"

#include "mp4format/time_math.h"

namespace tarn {
namespace {

template <typename Entry>
void init_list(Mp4ChunkList* list) {
    *list = {};
    list->entry_size = sizeof(Entry);
    list->capacity = kTableBlockEntries;
}

// Adds to the last run of a list where it is of the same kind, or begins a new one.
template <typename Run, typename Same>
Mp4Result extend(Mp4Host* host, Mp4ChunkList* list, const Run& run, Same same) {
    auto* last = static_cast<Run*>(mp4_last_entry(*list));
    if (!last || !same(*last)) return mp4_add_entry(host, list, &run);
    last->count += run.count;
    return FF4_RET_OK;
}

// What is wrong with a chunk before anything is added; counts its samples and their time.
Mp4Result check_chunk(const Mp4TableBuild& tables, const Mp4NewChunk& chunk, uint32_t* samples,
                      uint64_t* duration) {
    if (!chunk.runs || chunk.description_index == 0) return FF4_RET_ARGS;
    if (chunk.description_index > tables.entries.count) return FF4_RET_ARGS;
    uint64_t count = 0, time = 0;
    for (uint32_t i = 0; i < chunk.run_count; ++i) {
        const Mp4SampleRun& run = chunk.runs[i];
        if (tables.constant_size > 0 && run.count > 0 && run.size != tables.constant_size)
            return FF4_RET_ARGS;
        if (tables.field_bits > 0 && run.size >> tables.field_bits != 0) return FF4_RET_STATE;
        count += run.count;
        if (count > UINT32_MAX - tables.sample_count) return FF4_RET_OVERFLOW;
        FF4_TRY(mp4_add(time, uint64_t{run.count} * run.duration, &time));
    }
    if (count == 0) return FF4_RET_ARGS;
    *samples = static_cast<uint32_t>(count);
    return mp4_add(tables.duration, time, duration);
}

Mp4Result add_times(Mp4Host* host, Mp4TableBuild* tables, const Mp4SampleRun& run) {
    return extend(host, &tables->times, Mp4BuildTimeRun{run.count, run.duration},
                  [&](const Mp4BuildTimeRun& last) { return last.delta == run.duration; });
}

// Offsets of 0 are kept from the start: they are one run until another offset comes.
Mp4Result add_compositions(Mp4Host* host, Mp4TableBuild* tables, const Mp4SampleRun& run) {
    if (run.composition_offset != 0) tables->has_compositions = true;
    if (run.composition_offset < 0) tables->has_negative_offset = true;
    return extend(
        host, &tables->compositions, Mp4BuildOffsetRun{run.count, run.composition_offset},
        [&](const Mp4BuildOffsetRun& last) { return last.offset == run.composition_offset; });
}

Mp4Result add_sizes(Mp4Host* host, Mp4TableBuild* tables, const Mp4SampleRun& run) {
    if (tables->constant_size > 0) return FF4_RET_OK;
    for (uint32_t i = 0; i < run.count; ++i)
        FF4_TRY(mp4_add_entry(host, &tables->sizes, &run.size));
    return FF4_RET_OK;
}

// Adds the numbers first .. first + count - 1.
Mp4Result add_sync_numbers(Mp4Host* host, Mp4TableBuild* tables, uint32_t first, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t number = first + i;
        FF4_TRY(mp4_add_entry(host, &tables->syncs, &number));
    }
    return FF4_RET_OK;
}

// While every sample is sync there is no table. The first that isn't brings it about, with the
// numbers of all before it; a track without any sync sample thereby has an empty one.
Mp4Result add_syncs(Mp4Host* host, Mp4TableBuild* tables, const Mp4SampleRun& run) {
    if (run.count == 0) return FF4_RET_OK;
    if (!run.is_sync && !tables->has_syncs) {
        tables->has_syncs = true;
        return add_sync_numbers(host, tables, 1, tables->sample_count);
    }
    if (!run.is_sync || !tables->has_syncs) return FF4_RET_OK;
    return add_sync_numbers(host, tables, tables->sample_count + 1, run.count);
}

Mp4Result add_run(Mp4Host* host, Mp4TableBuild* tables, const Mp4SampleRun& run) {
    if (run.count == 0) return FF4_RET_OK;
    FF4_TRY(add_times(host, tables, run));
    FF4_TRY(add_compositions(host, tables, run));
    FF4_TRY(add_sizes(host, tables, run));
    FF4_TRY(add_syncs(host, tables, run));
    tables->sample_count += run.count;
    return FF4_RET_OK;
}

Mp4Result add_chunk_run(Mp4Host* host, Mp4TableBuild* tables, uint32_t samples,
                        uint32_t description) {
    const auto* last = static_cast<const Mp4BuildChunkRun*>(mp4_last_entry(tables->chunk_runs));
    if (last && last->samples_per_chunk == samples && last->description_index == description)
        return FF4_RET_OK;
    const Mp4BuildChunkRun run{tables->chunks.count + 1, samples, description};
    return mp4_add_entry(host, &tables->chunk_runs, &run);
}

Mp4Result add_all(Mp4Host* host, Mp4TableBuild* tables, const Mp4NewChunk& chunk,
                  uint32_t samples) {
    FF4_TRY(add_chunk_run(host, tables, samples, chunk.description_index));
    FF4_TRY(mp4_add_entry(host, &tables->chunks, &chunk.offset));
    for (uint32_t i = 0; i < chunk.run_count; ++i)
        FF4_TRY(add_run(host, tables, chunk.runs[i]));
    return FF4_RET_OK;
}

// Calls visit(uint64_t& offset) for each chunk of the description, or for all of them.
template <typename Visit>
Mp4Result visit_chunks(const Mp4TableBuild& tables, uint32_t description, Visit visit) {
    Mp4EntryCursor<Mp4BuildChunkRun> run(tables.chunk_runs);
    Mp4EntryCursor<uint64_t> chunk(tables.chunks);
    uint32_t in_run = 0;  // description of the run that the chunk is in
    for (uint32_t number = 1; chunk.Get(); chunk.Next(), ++number) {
        if (run.Get() && run.Get()->first_chunk == number) {
            in_run = run.Get()->description_index;
            run.Next();
        }
        if (description == 0 || description == in_run) FF4_TRY(visit(*chunk.Get()));
    }
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_init_tables(uint32_t constant_size, uint32_t field_bits, Mp4TableBuild* tables) {
    if (!tables) return FF4_RET_ARGS;
    if (field_bits != 0 && field_bits != 4 && field_bits != 8 && field_bits != 16)
        return FF4_RET_ARGS;
    if (constant_size > 0 && field_bits > 0) return FF4_RET_ARGS;
    *tables = {};
    tables->constant_size = constant_size;
    tables->field_bits = field_bits;
    init_list<Mp4BuildTimeRun>(&tables->times);
    init_list<Mp4BuildOffsetRun>(&tables->compositions);
    init_list<Mp4BuildChunkRun>(&tables->chunk_runs);
    init_list<uint32_t>(&tables->sizes);
    init_list<uint64_t>(&tables->chunks);
    init_list<uint32_t>(&tables->syncs);
    return FF4_RET_OK;
}

void mp4_free_tables(Mp4Host* host, Mp4TableBuild* tables) {
    mp4_free_sample_entries(host, &tables->entries);
    for (Mp4ChunkList* list : {&tables->times, &tables->compositions, &tables->chunk_runs,
                               &tables->sizes, &tables->chunks, &tables->syncs})
        mp4_free_chunk_list(host, list);
}

Mp4Result mp4_add_chunk(Mp4Host* host, Mp4TableBuild* tables, const Mp4NewChunk& chunk) {
    if (!host || !tables) return FF4_RET_ARGS;
    if (tables->broken) return FF4_RET_STATE;
    uint32_t samples = 0;
    uint64_t duration = 0;
    FF4_TRY(check_chunk(*tables, chunk, &samples, &duration));
    tables->broken = true;
    FF4_TRY(add_all(host, tables, chunk, samples));
    tables->broken = false;
    tables->duration = duration;
    return FF4_RET_OK;
}

Mp4Result mp4_can_shift_chunks(const Mp4TableBuild& tables, uint32_t description, int64_t amount) {
    return visit_chunks(tables, description, [&](uint64_t& offset) {
        const uint64_t moved = offset + static_cast<uint64_t>(amount);
        const bool wrapped = amount < 0 ? moved > offset : moved < offset;
        return wrapped ? FF4_RET_OVERFLOW : FF4_RET_OK;
    });
}

Mp4Result mp4_shift_chunks(Mp4TableBuild* tables, uint32_t description, int64_t amount) {
    if (!tables) return FF4_RET_ARGS;
    FF4_TRY(mp4_can_shift_chunks(*tables, description, amount));
    return visit_chunks(*tables, description, [&](uint64_t& offset) {
        offset += static_cast<uint64_t>(amount);
        return FF4_RET_OK;
    });
}

}  // namespace tarn
