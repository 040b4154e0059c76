#include "mp4format/fragments/fragment_walk.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "mp4format/io.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

enum : uint32_t {
    kTfhdBaseOffset = 0x000001,
    kTfhdDescription = 0x000002,
    kTfhdDuration = 0x000008,
    kTfhdSize = 0x000010,
    kTfhdFlags = 0x000020,
    kTfhdBaseIsMoof = 0x020000,
    kTrunDataOffset = 0x000001,
    kTrunFirstFlags = 0x000004,
    kTrunDuration = 0x000100,
    kTrunSize = 0x000200,
    kTrunFlags = 0x000400,
    kTrunComposition = 0x000800,
    kTrunRow = kTrunDuration | kTrunSize | kTrunFlags | kTrunComposition
};

// What a run adds up to.
struct RunLength {
    uint64_t duration, size;
    uint64_t last_start;  // of the last sample, from the run's start
};

// A failed sum of places or times is the file's fault.
Mp4Result add(uint64_t a, uint64_t b, uint64_t* out) {
    return mp4_add(a, b, out) == FF4_RET_OK ? FF4_RET_OK : FF4_RET_FORMAT;
}

// `size` bytes of a fragment's head, out of what was read ahead.
Mp4Result read_bytes(const Mp4FragmentSource& source, uint64_t offset, uint8_t* bytes,
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

// Takes the header at the front of `left` and moves on behind that atom.
Mp4Result take_atom(const Mp4FragmentSource& source, Mp4Span* left, Mp4AtomInfo* atom) {
    uint8_t head[16];
    FF4_TRY(read_bytes(source, left->offset, head, std::min<uint64_t>(left->size, sizeof head)));
    FF4_TRY(mp4_read_atom_header_mem(head, 0, left->size, atom));
    atom->atom.offset += left->offset;
    atom->payload.offset += left->offset;
    left->offset += atom->atom.size;
    left->size -= atom->atom.size;
    return FF4_RET_OK;
}

// Reads on behind the first `fixed` bytes of a payload, up to `size` of them: the fields that the
// flags announced.
Mp4Result read_fields(const Mp4FragmentSource& source, const Mp4Span& payload, uint64_t fixed,
                      uint64_t size, uint8_t* bytes) {
    if (payload.size < size) return FF4_RET_FORMAT;
    return read_bytes(source, payload.offset + fixed, bytes + fixed, size - fixed);
}

// --- the rows of a run

Mp4Result measure_rows(const Mp4FragmentSource& source, const Mp4FragmentRun& run,
                       RunLength* length) {
    uint8_t buffer[4096];
    const uint32_t step = sizeof buffer / run.row_size;
    for (uint32_t row = 0; row < run.sample_count;) {
        const uint32_t n = std::min(step, run.sample_count - row);
        FF4_TRY(read_bytes(source, run.rows_offset + uint64_t{row} * run.row_size, buffer,
                           uint64_t{n} * run.row_size));
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

// 32-bit values, at most 2^32 of them: the sums fit 64 bits.
Mp4Result measure_run(const Mp4FragmentSource& source, const Mp4FragmentRun& run,
                      RunLength* length) {
    *length = {};
    if (run.sample_count == 0) return FF4_RET_OK;
    if (mp4_fragment_run_varies(run)) return measure_rows(source, run, length);
    length->duration = uint64_t{run.sample_count} * run.default_duration;
    length->last_start = length->duration - run.default_duration;
    length->size = uint64_t{run.sample_count} * run.default_size;
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

// The head of a 'trun'. `next_data` is where its data lies unless it says otherwise.
Mp4Result read_run(const Mp4FragmentSource& source, const Mp4FragmentHead& head,
                   const Mp4AtomInfo& atom, uint64_t next_data, Mp4FragmentRun* run) {
    constexpr uint64_t kFixed = 8;
    uint8_t bytes[kFixed + 8];
    if (atom.payload.size < kFixed) return FF4_RET_FORMAT;
    FF4_TRY(read_bytes(source, atom.payload.offset, bytes, kFixed));
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
    run->row_size = 4u * static_cast<uint32_t>(std::popcount(flags & kTrunRow));
    run->rows_offset = atom.payload.offset + size;
    run->sample_count =
        count_that_fits(source, *run, get_be32(bytes + 4), atom.payload.size - size);
    return FF4_RET_OK;
}

// --- the head of a track fragment

// Where the data of the earlier traf `before` ends.
Mp4Result find_data_end(const Mp4FragmentSource& source, const Mp4FragmentHead& before,
                        const Mp4Span& traf, uint64_t* end) {
    *end = before.base;
    for (Mp4Span left = traf; left.size >= kAtomHeader;) {
        Mp4AtomInfo atom{};
        FF4_TRY(take_atom(source, &left, &atom));
        if (atom.type != fourcc("trun")) continue;
        Mp4FragmentRun run{};
        RunLength length{};
        FF4_TRY(read_run(source, before, atom, *end, &run));
        FF4_TRY(measure_run(source, run, &length));
        FF4_TRY(add(run.data_offset, length.size, end));
    }
    return FF4_RET_OK;
}

Mp4Result find_base(const Mp4FragmentSource& source, const Mp4FragmentPosition& position,
                    uint32_t flags, uint64_t* base) {
    *base = position.moof;
    if (flags & kTfhdBaseIsMoof || !position.has_before) return FF4_RET_OK;
    return find_data_end(source, position.before, position.before_traf, base);
}

Mp4Result read_head(const Mp4FragmentSource& source, const Mp4Span& payload,
                    Mp4FragmentPosition* position) {
    constexpr uint64_t kFixed = 8;
    uint8_t bytes[kFixed + 24];
    if (payload.size < kFixed) return FF4_RET_FORMAT;
    FF4_TRY(read_bytes(source, payload.offset, bytes, kFixed));
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
    } else {
        FF4_TRY(find_base(source, *position, flags, &head.base));
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
    position->head = head;
    position->has_head = true;
    position->data_end = head.base;
    return FF4_RET_OK;
}

// The stated start time of the traf. A time before what has been passed would make samples
// unreachable; the sum of the durations then goes on.
Mp4Result read_time(const Mp4FragmentSource& source, const Mp4Span& payload,
                    Mp4FragmentPosition* position) {
    uint8_t bytes[12];
    if (payload.size < 8) return FF4_RET_FORMAT;
    FF4_TRY(read_bytes(source, payload.offset, bytes, 8));
    const bool wide = full_version(get_be32(bytes)) == 1;
    FF4_TRY(read_fields(source, payload, 8, wide ? 12 : 8, bytes));
    const uint64_t time = wide ? get_be64(bytes + 4) : get_be32(bytes + 4);
    if (!position->anchored) position->cover_time = position->least_start = time;
    position->anchored = true;
    if (time >= position->least_start) position->next_time = time;
    return FF4_RET_OK;
}

// --- the walk

// A run of the wanted track: its times and numbers, counted on from the position's.
Mp4Result add_run(const Mp4FragmentSource& source, const Mp4AtomInfo& atom,
                  Mp4FragmentPosition* position, Mp4FragmentRun* run) {
    RunLength length{};
    FF4_TRY(read_run(source, position->head, atom, position->data_end, run));
    FF4_TRY(measure_run(source, *run, &length));
    FF4_TRY(add(run->data_offset, length.size, &position->data_end));
    position->in_run = true;
    if (run->sample_count == 0) return FF4_RET_OK;

    run->first_sample = position->next_sample;
    run->start_time = position->next_time;
    run->cover_time = position->cover_time;
    FF4_TRY(add(run->start_time, length.duration, &run->end_time));
    if (run->end_time == UINT64_MAX) return FF4_RET_FORMAT;
    position->next_time = run->end_time;
    position->least_start = run->start_time + length.last_start + 1;
    position->cover_time = std::max(position->cover_time, run->end_time);
    if (position->next_sample == 0) return FF4_RET_OK;
    if (run->sample_count > UINT32_MAX - position->next_sample) return FF4_RET_FORMAT;
    position->next_sample += run->sample_count;
    return FF4_RET_OK;
}

Mp4Result step_in_traf(const Mp4FragmentSource& source, Mp4FragmentPosition* position,
                       Mp4FragmentRun* run) {
    Mp4AtomInfo atom{};
    FF4_TRY(take_atom(source, &position->traf_left, &atom));
    if (!position->has_head) {
        return atom.type == fourcc("tfhd")
                   ? mp4_blame(source.host, atom.type, read_head(source, atom.payload, position))
                   : FF4_RET_OK;
    }
    if (position->head.track_id != source.track_id) {
        position->traf_left.size = 0;
    } else if (atom.type == fourcc("tfdt") && !position->in_run) {
        return mp4_blame(source.host, atom.type, read_time(source, atom.payload, position));
    } else if (atom.type == fourcc("trun")) {
        return mp4_blame(source.host, atom.type, add_run(source, atom, position, run));
    }
    return FF4_RET_OK;
}

Mp4Result step_in_moof(const Mp4FragmentSource& source, Mp4FragmentPosition* position) {
    Mp4AtomInfo atom{};
    FF4_TRY(take_atom(source, &position->moof_left, &atom));
    if (atom.type != fourcc("traf")) return FF4_RET_OK;
    if (position->has_head) {
        position->has_before = true;
        position->before = position->head;
        position->before_traf = position->traf;
    }
    position->has_head = position->in_run = false;
    position->traf = position->traf_left = atom.payload;
    return FF4_RET_OK;
}

Mp4Result step_at_top(const Mp4FragmentSource& source, Mp4FragmentPosition* position) {
    const uint64_t left = source.file_size - position->next_atom;
    Mp4AtomInfo atom{};
    // Not read ahead: what follows is mostly media.
    FF4_TRY(mp4_read_atom_header(source.host, source.file, position->next_atom, left, &atom));
    position->next_atom += atom.atom.size;
    if (atom.type != fourcc("moof")) return FF4_RET_OK;
    if (position->next_atom == source.file_size) {
        uint8_t size[4];
        FF4_TRY(read_bytes(source, atom.atom.offset, size, sizeof size));
        position->moof_is_cut = get_be32(size) > atom.atom.size;
    }
    position->moof = atom.atom.offset;
    position->moof_time = position->next_time;
    position->moof_left = atom.payload;
    position->has_head = position->has_before = false;
    return FF4_RET_OK;
}

// One header on, at whichever level the walk is. `more` is false at the end of the file.
Mp4Result step(const Mp4FragmentSource& source, Mp4FragmentPosition* position, Mp4FragmentRun* run,
               bool* more) {
    *more = true;
    if (position->traf_left.size >= kAtomHeader) return step_in_traf(source, position, run);
    if (position->moof_left.size >= kAtomHeader) return step_in_moof(source, position);
    *more = position->next_atom <= source.file_size &&
            source.file_size - position->next_atom >= kAtomHeader;
    return *more ? step_at_top(source, position) : FF4_RET_OK;
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

Mp4Result mp4_next_fragment_run(const Mp4FragmentSource& source, Mp4FragmentPosition* position,
                                Mp4FragmentRun* run, bool* found) {
    if (!source.host || !source.file || !position || !run || !found) return FF4_RET_ARGS;
    *run = {};
    *found = false;
    bool more = true;
    while (more && run->sample_count == 0) {
        const Mp4Result result =
            mp4_blame(source.host, fourcc("moof"), step(source, position, run, &more));
        if (result == FF4_RET_FORMAT && position->moof_is_cut) {
            mp4_clear_fault(source.host);
            run->sample_count = 0;
            position->traf_left = position->moof_left = {};
        } else {
            FF4_TRY(result);
        }
    }
    *found = run->sample_count > 0;
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
    take(kTrunFlags, &values.flags);
    take(kTrunComposition, &composition);
    // Signed in both versions: offsets past 2^31 exist only as negative ones written as version 0.
    values.composition_offset = static_cast<int32_t>(composition);
    if (row == 0 && run.version_flags & kTrunFirstFlags) values.flags = run.first_sample_flags;
    return values;
}

bool mp4_fragment_run_varies(const Mp4FragmentRun& run) {
    return run.version_flags & (kTrunDuration | kTrunSize);
}

}  // namespace tarn
