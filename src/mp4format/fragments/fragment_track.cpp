#include "mp4format/fragments/fragment_track.h"

#include <algorithm>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kBlockHeader = 8;
constexpr uint64_t kRunCost = sizeof(Mp4FragmentRun) + kBlockHeader;

void drop_rows(Mp4Host* host, Mp4FragmentTrack* track, Mp4FragmentRun* run) {
    if (!run->rows) return;
    track->used -= uint64_t{run->rows_held} * run->row_size + kBlockHeader;
    mp4_free(host, run->rows);
    run->rows = nullptr;
    run->first_row = run->rows_held = 0;
}

// Drops the oldest run but `keep`; false when there is none.
bool drop_oldest(Mp4Host* host, Mp4FragmentTrack* track, const Mp4FragmentRun* keep) {
    Mp4FragmentRun* run = track->head;
    if (run && run == keep) run = run->next;
    if (!run) return false;
    if (run == track->head) {
        track->head = run->next;
    } else {
        track->head->next = run->next;
    }
    if (track->tail == run) track->tail = track->head;
    if (track->run == run) track->run = nullptr;
    drop_rows(host, track, run);
    track->used -= kRunCost;
    mp4_free(host, run);
    return true;
}

uint64_t room_of(const Mp4FragmentTrack& track) {
    return track.share > track.used ? track.share - track.used : 0;
}

// How many rows of the run may be held, after making room for as many of `wanted` as can be.
uint64_t make_room_for_rows(Mp4Host* host, Mp4FragmentTrack* track, const Mp4FragmentRun* run,
                            uint64_t wanted) {
    const auto fitting = [&] {
        const uint64_t room = room_of(*track);
        return room > kBlockHeader ? (room - kBlockHeader) / run->row_size : 0;
    };
    while (fitting() < wanted && drop_oldest(host, track, run)) {
    }
    return std::min(fitting(), wanted);
}

// The bytes of a row, loaded with the rows after it or, when the walk goes back, before it. Null
// for a run without rows.
Mp4Result fetch_row(const Mp4FragmentSource& source, Mp4FragmentTrack* track, Mp4FragmentRun* run,
                    uint32_t row, bool backward, const uint8_t** bytes) {
    *bytes = nullptr;
    if (run->row_size == 0) return FF4_RET_OK;
    if (!run->rows || row < run->first_row || row - run->first_row >= run->rows_held) {
        drop_rows(source.host, track, run);
        const uint64_t n = make_room_for_rows(source.host, track, run, run->sample_count);
        if (n == 0) return FF4_RET_NOMEM;
        const uint64_t first = backward && row + 1 >= n ? row + 1 - n : row;
        const uint64_t held = std::min(n, run->sample_count - first);
        auto rows = mp4_make<uint8_t>(source.host, held * run->row_size, kMemoryWindows);
        if (!rows) return FF4_RET_NOMEM;
        FF4_TRY(mp4_read_at(source.host, source.file, run->rows_offset + first * run->row_size,
                            rows.get(), held * run->row_size));
        run->rows = rows.release();
        run->first_row = static_cast<uint32_t>(first);
        run->rows_held = static_cast<uint32_t>(held);
        track->used += held * run->row_size + kBlockHeader;
    }
    *bytes = run->rows + uint64_t{row - run->first_row} * run->row_size;
    return FF4_RET_OK;
}

Mp4Result read_row(const Mp4FragmentSource& source, Mp4FragmentTrack* track, uint32_t row,
                   bool backward, Mp4FragmentRow* values) {
    const uint8_t* bytes = nullptr;
    FF4_TRY(fetch_row(source, track, track->run, row, backward, &bytes));
    *values = mp4_decode_fragment_row(*track->run, row, bytes);
    return FF4_RET_OK;
}

bool is_before_cursor(const Mp4FragmentTrack& track, const Mp4FragmentTarget& target) {
    if (track.row == 0) return false;
    return target.by_time ? target.value < track.row_time
                          : target.value < uint64_t{track.run->first_sample} + track.row;
}

bool is_after_cursor(const Mp4FragmentTrack& track, const Mp4FragmentTarget& target,
                     uint32_t duration) {
    if (track.row + 1 >= track.run->sample_count) return false;
    return target.by_time ? target.value >= track.row_time + duration
                          : target.value > uint64_t{track.run->first_sample} + track.row;
}

void move_cursor_by_product(Mp4FragmentTrack* track, const Mp4FragmentTarget& target) {
    const Mp4FragmentRun& run = *track->run;
    uint64_t row = target.value - run.first_sample;
    if (target.by_time) {
        row = target.value > run.start_time ? (target.value - run.start_time) / run.default_duration
                                            : 0;
    }
    track->row = static_cast<uint32_t>(row);
    track->row_time = run.start_time + row * run.default_duration;
    track->row_offset = run.data_offset + row * run.default_size;
}

}  // namespace

Mp4Result mp4_hold_fragment_run(Mp4Host* host, Mp4FragmentTrack* track, const Mp4FragmentRun& run) {
    while (room_of(*track) < kRunCost && drop_oldest(host, track, nullptr)) {
    }
    if (room_of(*track) < kRunCost) return FF4_RET_NOMEM;
    auto held = mp4_make<Mp4FragmentRun>(host, 1, kMemoryWindows);
    if (!held) return FF4_RET_NOMEM;
    *held = run;
    mp4_append(track, held.release());
    track->used += kRunCost;
    return FF4_RET_OK;
}

void mp4_drop_fragment_runs(Mp4Host* host, Mp4FragmentTrack* track) {
    while (drop_oldest(host, track, nullptr)) {
    }
}

Mp4Result mp4_move_fragment_cursor(const Mp4FragmentSource& source, Mp4FragmentTrack* track,
                                   Mp4FragmentRun* run, const Mp4FragmentTarget& target) {
    if (track->run != run) {
        track->run = run;
        track->row = 0;
        track->row_time = run->start_time;
        track->row_offset = run->data_offset;
    }
    if (!mp4_fragment_run_varies(*run)) {
        move_cursor_by_product(track, target);
        return FF4_RET_OK;
    }
    Mp4FragmentRow values{};
    while (is_before_cursor(*track, target)) {
        FF4_TRY(read_row(source, track, track->row - 1, true, &values));
        --track->row;
        track->row_time -= values.duration;
        track->row_offset -= values.size;
    }
    FF4_TRY(read_row(source, track, track->row, false, &values));
    while (is_after_cursor(*track, target, values.duration)) {
        ++track->row;
        track->row_time += values.duration;
        track->row_offset += values.size;
        FF4_TRY(read_row(source, track, track->row, false, &values));
    }
    return FF4_RET_OK;
}

Mp4Result mp4_take_fragment_sample(const Mp4FragmentSource& source, Mp4FragmentTrack* track,
                                   Mp4FragmentSample* sample) {
    constexpr uint32_t kNonSync = 0x10000;
    const Mp4FragmentRun& run = *track->run;
    Mp4FragmentRow values{};
    FF4_TRY(read_row(source, track, track->row, false, &values));
    *sample = {};
    sample->number = run.first_sample == 0 ? 0 : run.first_sample + track->row;
    sample->start_time = track->row_time;
    sample->offset = track->row_offset;
    sample->size = values.size;
    sample->duration = values.duration;
    sample->is_sync = values.flags & kNonSync ? 0 : 1;
    sample->composition_offset = values.composition_offset;
    sample->composition_signed = full_version(run.version_flags) > 0 ? 1 : 0;
    sample->description_index = run.description_index;
    const bool first_differs = track->row == 0 && (run.version_flags & kTrunFirstFlags) != 0;
    sample->alike = run.row_size == 0 && !first_differs ? run.sample_count - track->row : 1;
    return FF4_RET_OK;
}

}  // namespace tarn
