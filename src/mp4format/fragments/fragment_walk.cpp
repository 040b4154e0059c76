#include "mp4format/fragments/fragment_walk.h"

#include <algorithm>

#include "mp4format/time_math.h"

namespace tarn {
namespace {

// A failed sum of places or times is the file's fault.
Mp4Result add(uint64_t a, uint64_t b, uint64_t* out) {
    return mp4_add(a, b, out) == FF4_RET_OK ? FF4_RET_OK : FF4_RET_FORMAT;
}

Mp4Result take_steps(const Mp4FragmentSource& source, uint64_t steps) {
    if (!source.steps_left) return FF4_RET_OK;
    if (steps > *source.steps_left) return FF4_RET_FORMAT;
    *source.steps_left -= steps;
    return FF4_RET_OK;
}

// Where the data of the earlier traf `before` ends.
Mp4Result find_data_end(const Mp4FragmentSource& source, const Mp4FragmentHead& before,
                        const Mp4Span& traf, uint64_t* end) {
    *end = before.base;
    for (Mp4Span left = traf; left.size >= kAtomHeader;) {
        Mp4AtomInfo atom{};
        FF4_TRY(mp4_take_fragment_atom(source, &left, &atom));
        FF4_TRY(take_steps(source, 1 + atom.payload.size / kAtomHeader));
        if (atom.type != fourcc("trun")) continue;
        Mp4FragmentRun run{};
        Mp4FragmentRunLength length{};
        FF4_TRY(mp4_read_trun(source, before, atom, *end, &run));
        FF4_TRY(mp4_measure_fragment_run(source, run, &length));
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
    Mp4FragmentHead head{};
    uint32_t flags = 0;
    FF4_TRY(mp4_read_tfhd(source, payload, &head, &flags));
    if (!(flags & kTfhdBaseOffset)) FF4_TRY(find_base(source, *position, flags, &head.base));
    position->head = head;
    position->has_head = true;
    position->data_end = head.base;
    return FF4_RET_OK;
}

// The stated start time of the traf. A time before what has been passed would make samples
// unreachable; the sum of the durations then goes on.
Mp4Result read_time(const Mp4FragmentSource& source, const Mp4Span& payload,
                    Mp4FragmentPosition* position) {
    uint64_t time = 0;
    FF4_TRY(mp4_read_tfdt(source, payload, &time));
    if (!position->anchored) position->cover_time = position->least_start = time;
    position->anchored = true;
    if (time >= position->least_start) position->next_time = time;
    return FF4_RET_OK;
}

// A run without rows costs its file nothing: all of them together have no more samples than the
// file has bytes for.
void bound_samples(const Mp4FragmentSource& source, Mp4FragmentPosition* position,
                   Mp4FragmentRun* run) {
    if (run->row_size > 0) return;
    const uint64_t each = std::max<uint32_t>(run->default_size, 1);
    const uint64_t fitting = (source.file_size - position->claimed) / each;
    run->sample_count = static_cast<uint32_t>(std::min<uint64_t>(run->sample_count, fitting));
    position->claimed += run->sample_count * each;
}

// A run of the wanted track: its times and numbers, counted on from the position's.
Mp4Result add_run(const Mp4FragmentSource& source, const Mp4AtomInfo& atom,
                  Mp4FragmentPosition* position, Mp4FragmentRun* run) {
    Mp4FragmentRunLength length{};
    FF4_TRY(mp4_read_trun(source, position->head, atom, position->data_end, run));
    bound_samples(source, position, run);
    FF4_TRY(mp4_measure_fragment_run(source, *run, &length));
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
    FF4_TRY(mp4_take_fragment_atom(source, &position->traf_left, &atom));
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
    FF4_TRY(mp4_take_fragment_atom(source, &position->moof_left, &atom));
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
        FF4_TRY(mp4_read_fragment_bytes(source, atom.atom.offset, size, sizeof size));
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

Mp4Result mp4_next_fragment_run(const Mp4FragmentSource& source, Mp4FragmentPosition* position,
                                Mp4FragmentRun* run, bool* found) {
    if (!source.host || !source.file || !position || !run || !found) return FF4_RET_ARGS;
    *run = {};
    *found = false;
    bool more = true;
    while (more && run->sample_count == 0) {
        FF4_TRY(mp4_blame(source.host, fourcc("moof"), take_steps(source, 1)));
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

}  // namespace tarn
