#include "mp4format/fragments/fragment_atoms.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "mp4format/io.h"

namespace tarn {
namespace {

// Bytes of a row.
uint32_t row_size(uint32_t flags) {
    return 4u * static_cast<uint32_t>(std::popcount(flags & kTrunRow));
}

// Reads on behind the first `fixed` bytes of a payload, up to `size` of them: the fields that the
// flags announced.
Mp4Result read_fields(const Mp4FragmentSource& source, const Mp4Span& payload, uint64_t fixed,
                      uint64_t size, uint8_t* bytes) {
    if (payload.size < size) return FF4_RET_FORMAT;
    return mp4_read_fragment_bytes(source, payload.offset + fixed, bytes + fixed, size - fixed);
}

Mp4Result measure_rows(const Mp4FragmentSource& source, const Mp4FragmentRun& run,
                       Mp4FragmentRunLength* length) {
    uint8_t buffer[4096];
    const uint32_t step = sizeof buffer / run.row_size;
    for (uint32_t row = 0; row < run.sample_count;) {
        const uint32_t n = std::min(step, run.sample_count - row);
        FF4_TRY(mp4_read_fragment_bytes(source, run.rows_offset + uint64_t{row} * run.row_size,
                                        buffer, uint64_t{n} * run.row_size));
        for (uint32_t i = 0; i < n; ++i, ++row) {
            const Mp4FragmentRow values =
                mp4_decode_fragment_row(run, row, buffer + i * run.row_size);
            length->last_start = length->duration;
            length->duration += values.duration;
            length->size += values.size;
        }
    }
    return FF4_RET_OK;
}

// As many samples as there are bytes for: of their rows or, without rows, of the samples.
uint32_t count_that_fits(const Mp4FragmentSource& source, const Mp4FragmentRun& run, uint32_t count,
                         uint64_t row_bytes) {
    const uint64_t fitting = run.row_size > 0
                                 ? row_bytes / run.row_size
                                 : source.file_size / std::max<uint32_t>(run.default_size, 1);
    return static_cast<uint32_t>(std::min<uint64_t>(count, fitting));
}

Mp4Result write_tfhd(Mp4Sink& sink, const Mp4TfhdBuild& head) {
    Mp4Fields<32> fields;
    fields.U32(full_flags(head.flags));
    fields.U32(head.track_id);
    if (head.flags & kTfhdBaseOffset) fields.U64(head.base_offset);
    if (head.flags & kTfhdDescription) fields.U32(head.description_index);
    if (head.flags & kTfhdDuration) fields.U32(head.default_duration);
    if (head.flags & kTfhdSize) fields.U32(head.default_size);
    if (head.flags & kTfhdFlags) fields.U32(head.default_flags);
    return mp4_write_fields(sink, fourcc("tfhd"), fields);
}

// All rows in one write.
Mp4Result put_rows(Mp4Sink& sink, const Mp4TrunBuild& run) {
    const uint64_t size = uint64_t{row_size(run.flags)} * run.row_count;
    if (!sink.file) {
        sink.position += size;
        return FF4_RET_OK;
    }
    auto bytes = mp4_make<uint8_t>(sink.host, size);
    if (!bytes) return FF4_RET_NOMEM;
    uint8_t* to = bytes.get();
    const auto put = [&](uint32_t field, uint32_t value) {
        if (!(run.flags & field)) return;
        put_be32(to, value);
        to += 4;
    };
    for (uint32_t i = 0; i < run.row_count; ++i) {
        const Mp4FragmentRow& row = run.rows[i];
        put(kTrunDuration, row.duration);
        put(kTrunSize, row.size);
        put(kTrunSampleFlags, row.flags);
        put(kTrunComposition, static_cast<uint32_t>(row.composition_offset));
    }
    return mp4_put(sink, bytes.get(), size);
}

Mp4Result write_trun(Mp4Sink& sink, const Mp4TrunBuild& run) {
    if (!run.rows && run.row_count > 0) return FF4_RET_ARGS;
    const bool negative =
        (run.flags & kTrunComposition) &&
        std::any_of(run.rows, run.rows + run.row_count,
                    [](const Mp4FragmentRow& r) { return r.composition_offset < 0; });
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<16> head;
        head.U32(uint32_t{negative} << 24 | full_flags(run.flags));
        head.U32(run.row_count);
        if (run.flags & kTrunDataOffset) head.U32(static_cast<uint32_t>(run.data_offset));
        if (run.flags & kTrunFirstFlags) head.U32(run.first_sample_flags);
        FF4_TRY(mp4_put_fields(to, head));
        return put_rows(to, run);
    };
    return mp4_write_container(sink, fourcc("trun"), body);
}

Mp4Result write_traf(Mp4Sink& sink, const Mp4TrafBuild& traf) {
    if (!traf.runs && traf.run_count > 0) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(write_tfhd(to, traf.head));
        for (uint32_t i = 0; i < traf.run_count; ++i)
            FF4_TRY(write_trun(to, traf.runs[i]));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("traf"), body);
}

}  // namespace

const Mp4FragmentDefaults* mp4_find_fragment_defaults(const Mp4FragmentSource& source,
                                                      uint32_t track_id) {
    const Mp4FragmentDefaults* end = source.tracks + source.track_count;
    const Mp4FragmentDefaults* at = std::lower_bound(
        source.tracks, end, track_id,
        [](const Mp4FragmentDefaults& track, uint32_t id) { return track.track_id < id; });
    return at != end && at->track_id == track_id ? at : nullptr;
}

Mp4Result mp4_read_fragment_bytes(const Mp4FragmentSource& source, uint64_t offset, uint8_t* bytes,
                                  uint64_t size) {
    Mp4FragmentReadAhead& ahead = *source.read_ahead;
    if (size > sizeof ahead.bytes || offset > source.file_size || size > source.file_size - offset)
        return mp4_read_at(source.host, source.file, offset, bytes, size);
    if (offset < ahead.offset || offset + size > ahead.offset + ahead.size) {
        ahead.size = 0;
        const uint64_t fill = std::min<uint64_t>(sizeof ahead.bytes, source.file_size - offset);
        FF4_TRY(mp4_read_at(source.host, source.file, offset, ahead.bytes, fill));
        ahead.offset = offset;
        ahead.size = static_cast<uint32_t>(fill);
    }
    std::memcpy(bytes, ahead.bytes + (offset - ahead.offset), size);
    return FF4_RET_OK;
}

Mp4Result mp4_take_fragment_atom(const Mp4FragmentSource& source, Mp4Span* left,
                                 Mp4AtomInfo* atom) {
    uint8_t head[16];
    FF4_TRY(mp4_read_fragment_bytes(source, left->offset, head,
                                    std::min<uint64_t>(left->size, sizeof head)));
    FF4_TRY(mp4_read_atom_header_mem(head, 0, left->size, atom));
    atom->atom.offset += left->offset;
    atom->payload.offset += left->offset;
    left->offset += atom->atom.size;
    left->size -= atom->atom.size;
    return FF4_RET_OK;
}

Mp4Result mp4_read_tfhd(const Mp4FragmentSource& source, const Mp4Span& payload,
                        Mp4FragmentHead* out, uint32_t* out_flags) {
    constexpr uint64_t kFixed = 8;
    uint8_t bytes[kFixed + 24];
    if (payload.size < kFixed) return FF4_RET_FORMAT;
    FF4_TRY(mp4_read_fragment_bytes(source, payload.offset, bytes, kFixed));
    const uint32_t flags = full_flags(get_be32(bytes));
    uint64_t size = kFixed + (flags & kTfhdBaseOffset ? 8 : 0);
    for (const uint32_t flag : {kTfhdDescription, kTfhdDuration, kTfhdSize, kTfhdFlags})
        size += flags & flag ? 4 : 0;
    FF4_TRY(read_fields(source, payload, kFixed, size, bytes));

    Mp4FragmentHead head{};
    head.track_id = get_be32(bytes + 4);
    const Mp4FragmentDefaults* track = mp4_find_fragment_defaults(source, head.track_id);
    if (!track) return FF4_RET_FORMAT;
    head.description_index = 1;
    if (const Mp4Trex* trex = track->trex) {
        head.description_index = trex->default_description_index;
        head.default_duration = trex->default_duration;
        head.default_size = trex->default_size;
        head.default_flags = trex->default_flags;
    }
    const uint8_t* p = bytes + kFixed;
    if (flags & kTfhdBaseOffset) {
        head.base = get_be64(p);
        p += 8;
    }
    const auto take = [&](uint32_t flag, uint32_t* value) {
        if (!(flags & flag)) return;
        *value = get_be32(p);
        p += 4;
    };
    take(kTfhdDescription, &head.description_index);
    take(kTfhdDuration, &head.default_duration);
    take(kTfhdSize, &head.default_size);
    take(kTfhdFlags, &head.default_flags);
    *out = head;
    *out_flags = flags;
    return FF4_RET_OK;
}

Mp4Result mp4_read_tfdt(const Mp4FragmentSource& source, const Mp4Span& payload, uint64_t* time) {
    uint8_t bytes[12];
    if (payload.size < 8) return FF4_RET_FORMAT;
    FF4_TRY(mp4_read_fragment_bytes(source, payload.offset, bytes, 8));
    const bool wide = full_version(get_be32(bytes)) == 1;
    FF4_TRY(read_fields(source, payload, 8, wide ? 12 : 8, bytes));
    *time = wide ? get_be64(bytes + 4) : get_be32(bytes + 4);
    return FF4_RET_OK;
}

Mp4Result mp4_read_trun(const Mp4FragmentSource& source, const Mp4FragmentHead& head,
                        const Mp4AtomInfo& atom, uint64_t next_data, Mp4FragmentRun* run) {
    constexpr uint64_t kFixed = 8;
    uint8_t bytes[kFixed + 8];
    if (atom.payload.size < kFixed) return FF4_RET_FORMAT;
    FF4_TRY(mp4_read_fragment_bytes(source, atom.payload.offset, bytes, kFixed));
    *run = {};
    run->atom = atom.atom;
    run->version_flags = get_be32(bytes);
    const uint32_t flags = full_flags(run->version_flags);
    const uint64_t size =
        kFixed + (flags & kTrunDataOffset ? 4 : 0) + (flags & kTrunFirstFlags ? 4 : 0);
    FF4_TRY(read_fields(source, atom.payload, kFixed, size, bytes));

    run->description_index = head.description_index;
    run->default_duration = head.default_duration;
    run->default_size = head.default_size;
    run->default_flags = head.default_flags;
    run->data_offset = next_data;
    const uint8_t* p = bytes + kFixed;
    if (flags & kTrunDataOffset) {
        const auto distance = static_cast<int32_t>(get_be32(p));
        if (__builtin_add_overflow(head.base, distance, &run->data_offset)) return FF4_RET_FORMAT;
        p += 4;
    }
    if (flags & kTrunFirstFlags) run->first_sample_flags = get_be32(p);
    run->row_size = row_size(flags);
    run->rows_offset = atom.payload.offset + size;
    run->sample_count =
        count_that_fits(source, *run, get_be32(bytes + 4), atom.payload.size - size);
    return FF4_RET_OK;
}

// 32-bit values, at most 2^32 of them: the sums fit 64 bits.
Mp4Result mp4_measure_fragment_run(const Mp4FragmentSource& source, const Mp4FragmentRun& run,
                                   Mp4FragmentRunLength* length) {
    *length = {};
    if (run.sample_count == 0) return FF4_RET_OK;
    if (mp4_fragment_run_varies(run)) return measure_rows(source, run, length);
    length->duration = uint64_t{run.sample_count} * run.default_duration;
    length->last_start = length->duration - run.default_duration;
    length->size = uint64_t{run.sample_count} * run.default_size;
    return FF4_RET_OK;
}

Mp4FragmentRow mp4_decode_fragment_row(const Mp4FragmentRun& run, uint32_t row,
                                       const uint8_t* bytes) {
    Mp4FragmentRow values{run.default_duration, run.default_size, run.default_flags, 0};
    const auto take = [&](uint32_t flag, uint32_t* value) {
        if (!(run.version_flags & flag)) return;
        *value = get_be32(bytes);
        bytes += 4;
    };
    uint32_t composition = 0;
    take(kTrunDuration, &values.duration);
    take(kTrunSize, &values.size);
    take(kTrunSampleFlags, &values.flags);
    take(kTrunComposition, &composition);
    // Signed in both versions: offsets past 2^31 exist only as negative ones written as version 0.
    values.composition_offset = static_cast<int32_t>(composition);
    if (row == 0 && run.version_flags & kTrunFirstFlags) values.flags = run.first_sample_flags;
    return values;
}

bool mp4_fragment_run_varies(const Mp4FragmentRun& run) {
    return run.version_flags & (kTrunDuration | kTrunSize);
}

Mp4Result mp4_write_moof(Mp4Sink& sink, const Mp4MoofBuild& moof) {
    if (!moof.trafs && moof.traf_count > 0) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_write_words(to, fourcc("mfhd"), 0, moof.sequence_number));
        for (uint32_t i = 0; i < moof.traf_count; ++i)
            FF4_TRY(write_traf(to, moof.trafs[i]));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("moof"), body);
}

}  // namespace tarn
