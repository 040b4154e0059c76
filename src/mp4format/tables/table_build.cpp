#include "mp4format/tables/table_build.h"

#include <algorithm>
#include <iterator>

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

Mp4Result add_size_entries(Mp4Host* host, Mp4TableBuild* tables, uint32_t size, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i)
        FF4_TRY(mp4_add_entry(host, &tables->sizes, &size));
    return FF4_RET_OK;
}

// While every size is that of the first sample there is no list.
Mp4Result add_sizes(Mp4Host* host, Mp4TableBuild* tables, const Mp4SampleRun& run) {
    if (tables->constant_size > 0) return FF4_RET_OK;
    if (tables->sample_count == 0) tables->first_size = run.size;
    if (!tables->has_sizes && run.size != tables->first_size) {
        FF4_TRY(add_size_entries(host, tables, tables->first_size, tables->sample_count));
        tables->has_sizes = true;
    }
    return tables->has_sizes ? add_size_entries(host, tables, run.size, run.count) : FF4_RET_OK;
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

// --- writing

// Entries in file form one after the other: `bits` each, the last byte filled up. The blocks of a
// list hold an even number, so that none but the last ends within a byte.
uint64_t packed_size(uint64_t count, uint32_t bits) {
    return (count * bits + 7) / 8;
}
static_assert(kTableBlockEntries % 2 == 0);

// Puts the entries of a list, one write a block. encode(const Entry* from, uint32_t count,
// uint8_t* to) fills packed_size(count, bits) bytes, which come as zeros.
template <typename Entry, typename Encode>
Mp4Result put_entries(Mp4Sink& sink, const Mp4ChunkList& list, uint32_t bits, Encode encode) {
    if (!sink.file) {
        sink.position += packed_size(list.count, bits);
        return FF4_RET_OK;
    }
    for (const Mp4ChunkBlock* block = list.head; block; block = block->next) {
        const uint64_t size = packed_size(block->count, bits);
        auto bytes = mp4_make<uint8_t>(sink.host, size);
        if (!bytes) return FF4_RET_NOMEM;
        encode(static_cast<const Entry*>(block->entries), block->count, bytes.get());
        FF4_TRY(mp4_put(sink, bytes.get(), size));
    }
    return FF4_RET_OK;
}

// A table with the usual head. put(const Entry&, uint8_t* to) writes one entry of `entry_size`.
template <typename Entry, typename Put>
Mp4Result write_table(Mp4Sink& sink, uint32_t type, uint32_t version, const Mp4ChunkList& list,
                      uint32_t entry_size, Put put) {
    const auto encode = [&](const Entry* from, uint32_t count, uint8_t* to) {
        for (uint32_t i = 0; i < count; ++i)
            put(from[i], to + uint64_t{entry_size} * i);
    };
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_words(to, version << 24, list.count));
        return put_entries<Entry>(to, list, entry_size * 8, encode);
    };
    return mp4_write_container(sink, type, body);
}

void put_number(const uint32_t& value, uint8_t* to) {
    put_be32(to, value);
}

// A field of 32, 16 or 8 bits, or of 4 with the first sample of a byte in its high half.
void encode_fields(const uint32_t* from, uint32_t count, uint32_t bits, uint8_t* to) {
    for (uint32_t i = 0; i < count; ++i) {
        const auto value = static_cast<uint8_t>(from[i]);
        if (bits == 32) {
            put_be32(to + 4 * i, from[i]);
        } else if (bits == 16) {
            put_be16(to + 2 * i, static_cast<uint16_t>(from[i]));
        } else if (bits == 8) {
            to[i] = value;
        } else {
            to[i / 2] |= static_cast<uint8_t>(i % 2 == 0 ? value << 4 : value);
        }
    }
}

// The same size for all samples, as a list would be written.
Mp4Result put_first_sizes(Mp4Sink& sink, const Mp4TableBuild& tables, uint32_t bits) {
    uint32_t block[kTableBlockEntries];
    std::fill(std::begin(block), std::end(block), tables.first_size);
    Mp4ChunkBlock of_same{0, block, nullptr};
    const auto encode = [&](const uint32_t* from, uint32_t count, uint8_t* to) {
        encode_fields(from, count, bits, to);
    };
    for (uint32_t left = tables.sample_count; left > 0; left -= of_same.count) {
        of_same.count = std::min(left, kTableBlockEntries);
        const Mp4ChunkList list{sizeof *block, kTableBlockEntries, of_same.count, &of_same,
                                &of_same};
        FF4_TRY(put_entries<uint32_t>(sink, list, bits, encode));
    }
    return FF4_RET_OK;
}

Mp4Result needs_large_offsets(const Mp4WriteOptions& options, const Mp4ChunkList& chunks,
                              bool* large) {
    if (options.offset_policy > kOffsetAlways64) return FF4_RET_ARGS;
    *large = options.offset_policy == kOffsetAlways64;
    for (Mp4EntryCursor<uint64_t> chunk(chunks); chunk.Get() && !*large; chunk.Next())
        *large = *chunk.Get() > UINT32_MAX;
    return *large && options.offset_policy == kOffset32 ? FF4_RET_STATE : FF4_RET_OK;
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

Mp4Result mp4_write_stbl(Mp4Sink& sink, Mp4TableBuild* tables) {
    if (!tables) return FF4_RET_ARGS;
    if (tables->broken) return FF4_RET_STATE;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_write_stsd(to, tables->entries));
        FF4_TRY(mp4_write_stts(to, *tables));
        if (tables->has_compositions) FF4_TRY(mp4_write_ctts(to, *tables));
        FF4_TRY(mp4_write_stsc(to, *tables));
        FF4_TRY(mp4_write_sizes(to, *tables));
        FF4_TRY(mp4_write_chunk_offsets(to, *tables));
        return tables->has_syncs ? mp4_write_stss(to, *tables) : FF4_RET_OK;
    };
    const uint64_t start = sink.position;
    FF4_TRY(mp4_write_container(sink, fourcc("stbl"), body));
    tables->atom_size = sink.position - start;
    return FF4_RET_OK;
}

Mp4Result mp4_write_stts(Mp4Sink& sink, const Mp4TableBuild& tables) {
    const auto put = [](const Mp4BuildTimeRun& run, uint8_t* to) {
        put_be32(to, run.count);
        put_be32(to + 4, run.delta);
    };
    return write_table<Mp4BuildTimeRun>(sink, fourcc("stts"), 0, tables.times, 8, put);
}

Mp4Result mp4_write_ctts(Mp4Sink& sink, const Mp4TableBuild& tables) {
    const auto put = [](const Mp4BuildOffsetRun& run, uint8_t* to) {
        put_be32(to, run.count);
        put_be32(to + 4, static_cast<uint32_t>(run.offset));
    };
    return write_table<Mp4BuildOffsetRun>(sink, fourcc("ctts"), tables.has_negative_offset ? 1 : 0,
                                          tables.compositions, 8, put);
}

Mp4Result mp4_write_stsc(Mp4Sink& sink, const Mp4TableBuild& tables) {
    const auto put = [](const Mp4BuildChunkRun& run, uint8_t* to) {
        put_be32(to, run.first_chunk);
        put_be32(to + 4, run.samples_per_chunk);
        put_be32(to + 8, run.description_index);
    };
    return write_table<Mp4BuildChunkRun>(sink, fourcc("stsc"), 0, tables.chunk_runs, 12, put);
}

// Both kinds have a head of 12 bytes: version and flags, the constant size or the field width, the
// count.
Mp4Result mp4_write_sizes(Mp4Sink& sink, const Mp4TableBuild& tables) {
    const bool compact = tables.field_bits > 0;
    const uint32_t bits = compact ? tables.field_bits : 32;
    const auto encode = [&](const uint32_t* from, uint32_t count, uint8_t* to) {
        encode_fields(from, count, bits, to);
    };
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<12> head;
        head.U32(0);
        head.U32(compact ? tables.field_bits : tables.constant_size);
        head.U32(tables.sample_count);
        FF4_TRY(mp4_put_fields(to, head));
        if (tables.constant_size > 0) return FF4_RET_OK;
        return tables.has_sizes ? put_entries<uint32_t>(to, tables.sizes, bits, encode)
                                : put_first_sizes(to, tables, bits);
    };
    const uint32_t type = compact ? fourcc("stz2") : fourcc("stsz");
    return mp4_write_container(sink, type, body);
}

Mp4Result mp4_write_chunk_offsets(Mp4Sink& sink, const Mp4TableBuild& tables) {
    bool large = false;
    FF4_TRY(needs_large_offsets(sink.options, tables.chunks, &large));
    if (large) {
        const auto put = [](const uint64_t& value, uint8_t* to) { put_be64(to, value); };
        return write_table<uint64_t>(sink, fourcc("co64"), 0, tables.chunks, 8, put);
    }
    const auto put = [](const uint64_t& value, uint8_t* to) {
        put_be32(to, static_cast<uint32_t>(value));
    };
    return write_table<uint64_t>(sink, fourcc("stco"), 0, tables.chunks, 4, put);
}

Mp4Result mp4_write_stss(Mp4Sink& sink, const Mp4TableBuild& tables) {
    return write_table<uint32_t>(sink, fourcc("stss"), 0, tables.syncs, 4, put_number);
}

}  // namespace tarn
