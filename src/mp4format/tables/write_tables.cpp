#include "mp4format/atoms/write_atoms.h"

namespace tarn {
namespace {

// Entries in file form behind each other: `bits` each, the last byte filled up. The blocks of a
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
        Mp4Fields<kTableHead> head;
        head.U32(version << 24);
        head.U32(list.count);
        FF4_TRY(mp4_put_fields(to, head));
        return put_entries<Entry>(to, list, entry_size * 8, encode);
    };
    return mp4_write_container(sink, type, body);
}

void put_number(const uint32_t& value, uint8_t* to) {
    put_be32(to, value);
}

// A field of 16 or 8 bits, or of 4 with the first sample of a byte in its high half.
void encode_fields(const uint32_t* from, uint32_t count, uint32_t bits, uint8_t* to) {
    for (uint32_t i = 0; i < count; ++i) {
        const auto value = static_cast<uint8_t>(from[i]);
        if (bits == 16) {
            put_be16(to + 2 * i, static_cast<uint16_t>(from[i]));
        } else if (bits == 8) {
            to[i] = value;
        } else {
            to[i / 2] |= static_cast<uint8_t>(i % 2 == 0 ? value << 4 : value);
        }
    }
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
        if (compact) return encode_fields(from, count, bits, to);
        for (uint32_t i = 0; i < count; ++i)
            put_be32(to + 4 * i, from[i]);
    };
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<12> head;
        head.U32(0);
        head.U32(compact ? tables.field_bits : tables.constant_size);
        head.U32(tables.sample_count);
        FF4_TRY(mp4_put_fields(to, head));
        return put_entries<uint32_t>(to, tables.sizes, bits, encode);
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
