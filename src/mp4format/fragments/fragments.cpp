#include "mp4format/fragments/fragments.h"

#include <algorithm>

namespace tarn {
namespace {

constexpr uint32_t kCheckpoints = 512;
constexpr uint64_t kLeastSteps = 100000;

bool covers(const Mp4FragmentRun& run, const Mp4FragmentTarget& target) {
    if (target.by_time) return target.value >= run.cover_time && target.value < run.end_time;
    return run.first_sample != 0 && target.value >= run.first_sample &&
           target.value - run.first_sample < run.sample_count;
}

Mp4FragmentTrack* find_track(const Mp4FragmentState& state, uint32_t track_id) {
    Mp4FragmentTrack* track = state.head;
    while (track && track->track_id != track_id)
        track = track->next;
    return track;
}

Mp4FragmentSource source_of(Mp4FragmentState* state, const Mp4FragmentTrack& track) {
    Mp4FragmentSource source = state->source;
    source.track_id = track.track_id;
    source.steps_left = track.found ? nullptr : &state->steps_left;
    return source;
}

// --- walking

uint64_t key_of(const Mp4FragmentCheckpoint& checkpoint, const Mp4FragmentTarget& target) {
    return target.by_time ? checkpoint.cover_time : checkpoint.next_sample;
}

// Halves the checkpoints when there are as many as may be: few bytes for any length of file.
void thin_checkpoints(Mp4FragmentTrack* track) {
    for (uint32_t i = 0; i < kCheckpoints / 2; ++i)
        track->checkpoints[i] = track->checkpoints[2 * i];
    track->checkpoint_count = kCheckpoints / 2;
    track->spacing *= 2;
}

// Remembers the moof of a run that is its first of this track, when the walk comes to it for the
// first time. `before` is the position that the walk went on from to find the run.
void note_moof(Mp4FragmentTrack* track, const Mp4FragmentPosition& before,
               const Mp4FragmentPosition& position) {
    if (position.next_sample == 0 || position.moof <= track->last_moof) return;
    track->last_moof = position.moof;
    if (track->moofs++ % track->spacing != 0) return;
    if (track->checkpoint_count == kCheckpoints) {
        thin_checkpoints(track);
        if ((track->moofs - 1) % track->spacing != 0) return;
    }
    track->checkpoints[track->checkpoint_count++] = {position.moof,      position.moof_time,
                                                     before.least_start, before.cover_time,
                                                     before.claimed,     before.next_sample};
}

// The last checkpoint whose moof begins at or before the target, or the start.
Mp4FragmentPosition nearest_checkpoint(const Mp4FragmentTrack& track,
                                       const Mp4FragmentTarget& target) {
    const Mp4FragmentCheckpoint* first = track.checkpoints;
    const Mp4FragmentCheckpoint* end = first + track.checkpoint_count;
    const Mp4FragmentCheckpoint* above = std::upper_bound(
        first, end, target.value, [&](uint64_t value, const Mp4FragmentCheckpoint& checkpoint) {
            return value < key_of(checkpoint, target);
        });
    if (above == first) return track.start;
    const Mp4FragmentCheckpoint& checkpoint = above[-1];
    Mp4FragmentPosition position = track.start;
    position.next_atom = checkpoint.moof;
    position.next_time = checkpoint.next_time;
    position.least_start = checkpoint.least_start;
    position.cover_time = checkpoint.cover_time;
    position.claimed = checkpoint.claimed;
    position.next_sample = checkpoint.next_sample;
    return position;
}

// Takes the file's index for a target further on than `position`. It tells no sample numbers, and
// it serves only where the fragment itself states its time.
Mp4Result jump_ahead(Mp4FragmentState* state, const Mp4FragmentSource& source, uint64_t time,
                     Mp4FragmentPosition* position) {
    Mp4TrackRandomAccess* table = mp4_find_tfra(*state->random_access, source.track_id);
    if (!table) return FF4_RET_OK;
    FF4_TRY(mp4_load_tfra(source.host, source.file, table));
    const Mp4RandomAccessPoint* point = mp4_find_access_point(*table, time);
    if (!point || point->moof_offset <= std::max(position->moof, position->next_atom))
        return FF4_RET_OK;

    Mp4FragmentPosition there{};
    there.next_atom = point->moof_offset;
    Mp4FragmentPosition ahead = there;
    Mp4FragmentRun run{};
    bool found = false;
    const Mp4Result result = mp4_next_fragment_run(source, &ahead, &run, &found);
    if (result == FF4_RET_FORMAT) {  // the index points anywhere
        mp4_clear_fault(source.host);
        return FF4_RET_OK;
    }
    FF4_TRY(result);
    if (found && ahead.anchored && ahead.moof == point->moof_offset && run.start_time <= time)
        *position = there;
    return FF4_RET_OK;
}

// A walk to a target.
struct Walk {
    Mp4FragmentState* state;
    const Mp4FragmentSource& source;
    Mp4FragmentTrack* track;
    Mp4FragmentTarget target;
    Mp4FragmentPosition position;
    uint32_t steps = 0;
    Mp4FragmentRun run{};  // the run come to; one without samples at the end
};

// Goes on to the next run. What is not close by is looked for through the index, once.
Mp4Result walk_on(Walk* walk) {
    constexpr uint32_t kStepsBeforeJump = 8;
    Mp4FragmentTrack* track = walk->track;
    const Mp4FragmentTarget& target = walk->target;
    if (walk->steps++ == kStepsBeforeJump && target.by_time && !target.numbered)
        FF4_TRY(jump_ahead(walk->state, walk->source, target.value, &walk->position));

    const Mp4FragmentPosition before = walk->position;
    bool found = false;
    FF4_TRY(mp4_next_fragment_run(walk->source, &walk->position, &walk->run, &found));
    if (found) {
        note_moof(track, before, walk->position);
        return FF4_RET_OK;
    }
    track->ended = true;
    track->end_time = walk->position.cover_time;
    if (walk->position.next_sample != 0) {
        track->counted = true;
        track->next_sample = walk->position.next_sample;
    }
    return FF4_RET_OK;
}

// Where to walk from: where the last lookup stopped or, for a target before that, a checkpoint.
Mp4FragmentPosition choose_position(const Mp4FragmentTrack& track,
                                    const Mp4FragmentTarget& target) {
    const Mp4FragmentPosition nearest = nearest_checkpoint(track, target);
    const Mp4FragmentPosition& last = track.position;
    const uint64_t reached = target.by_time ? last.cover_time : last.next_sample;
    const bool serves = last.next_atom != 0 && (last.next_sample != 0 || !target.numbered);
    return serves && target.value >= reached && last.moof >= nearest.next_atom ? last : nearest;
}

// The run that covers the target, held in memory.
Mp4Result locate_run(Mp4FragmentState* state, const Mp4FragmentSource& source,
                     Mp4FragmentTrack* track, const Mp4FragmentTarget& target,
                     Mp4FragmentRun** out) {
    const auto fits = [&](const Mp4FragmentRun& run) {
        return covers(run, target) && (!target.numbered || run.first_sample != 0);
    };
    *out = track->run && fits(*track->run) ? track->run : track->head;
    while (*out && !fits(**out))
        *out = (*out)->next;
    if (*out) return FF4_RET_OK;
    if (target.by_time ? track->ended && target.value >= track->end_time
                       : track->counted && target.value >= track->next_sample)
        return FF4_RET_NOTFOUND;

    Walk walk{state, source, track, target, choose_position(*track, target)};
    while (walk.run.sample_count == 0 || !fits(walk.run)) {
        FF4_TRY(walk_on(&walk));
        if (walk.run.sample_count == 0) return FF4_RET_NOTFOUND;
    }
    FF4_TRY(mp4_hold_fragment_run(source.host, track, walk.run));
    track->position = walk.position;
    *out = track->tail;
    return FF4_RET_OK;
}

Mp4Result look_up(Mp4FragmentState* state, Mp4FragmentTrack* track, const Mp4FragmentTarget& target,
                  Mp4FragmentSample* sample) {
    const Mp4FragmentSource source = source_of(state, *track);
    Mp4FragmentRun* run = nullptr;
    FF4_TRY(locate_run(state, source, track, target, &run));
    FF4_TRY(mp4_move_fragment_cursor(source, track, run, target));
    track->found = true;
    return mp4_take_fragment_sample(source, track, sample);
}

// Walks on to the end of the track, through the index unless samples are to be counted.
Mp4Result walk_to_end(Mp4FragmentState* state, Mp4FragmentTrack* track, bool numbered) {
    const Mp4FragmentSource source = source_of(state, *track);
    const Mp4FragmentTarget end{true, UINT64_MAX, numbered};
    Walk walk{state, source, track, end, choose_position(*track, end)};
    do {
        FF4_TRY(walk_on(&walk));
    } while (walk.run.sample_count > 0);
    return FF4_RET_OK;
}

// --- the tracks of the file

bool earlier_track(const Mp4FragmentDefaults& a, const Mp4FragmentDefaults& b) {
    return a.track_id < b.track_id;
}

// All track ids of the movie, each once, with the first defaults for it.
Mp4Result list_defaults(Mp4Host* host, const Mp4MovieIndex& movie, Mp4FragmentState* state) {
    if (movie.tracks.count == 0) return FF4_RET_OK;
    auto list = mp4_make<Mp4FragmentDefaults>(host, movie.tracks.count);
    if (!list) return FF4_RET_NOMEM;
    Mp4FragmentDefaults* end = list.get();
    for (const Mp4TrackIndex* track = movie.tracks.head; track; track = track->next)
        *end++ = {track->facts->track_id, nullptr};
    std::sort(list.get(), end, earlier_track);
    end = std::unique(list.get(), end,
                      [](const auto& a, const auto& b) { return a.track_id == b.track_id; });
    state->source.track_count = static_cast<uint32_t>(end - list.get());
    for (const Mp4Trex* trex = movie.extends.head; trex; trex = trex->next) {
        Mp4FragmentDefaults* at = std::lower_bound(
            list.get(), end, Mp4FragmentDefaults{trex->track_id, nullptr}, earlier_track);
        if (at != end && at->track_id == trex->track_id && !at->trex) at->trex = trex;
    }
    state->source.tracks = state->defaults = list.release();
    return FF4_RET_OK;
}

void free_track(Mp4Host* host, Mp4FragmentTrack* track) {
    mp4_drop_fragment_runs(host, track);
    mp4_free(host, track->checkpoints);
    mp4_free(host, track);
}

}  // namespace

Mp4Result mp4_open_fragments(Mp4Host* host, Mp4File* file, uint64_t file_size, Mp4FileIndex* index,
                             Mp4FragmentState** out) {
    if (!host || !file || !index || !out) return FF4_RET_ARGS;
    auto state = mp4_make<Mp4FragmentState>(host);
    if (!state) return FF4_RET_NOMEM;
    state->source.host = host;
    state->source.file = file;
    state->source.file_size = file_size;
    state->source.read_ahead = &state->read_ahead;
    state->steps_left = kLeastSteps + file_size;
    state->random_access = &index->random_access;
    state->first_moof = index->moofs.head ? index->moofs.head->atom.offset : file_size;
    FF4_TRY(list_defaults(host, index->movie, state.get()));
    *out = state.release();
    return FF4_RET_OK;
}

void mp4_close_fragments(Mp4FragmentState* state) {
    if (!state) return;
    Mp4Host* host = state->source.host;
    while (Mp4FragmentTrack* track = state->head) {
        state->head = track->next;
        free_track(host, track);
    }
    mp4_free(host, state->defaults);
    mp4_free(host, state);
}

Mp4Result mp4_begin_fragment_track(Mp4FragmentState* state, uint32_t track_id,
                                   uint32_t table_samples, uint64_t table_time) {
    if (!state) return FF4_RET_ARGS;
    if (find_track(*state, track_id)) return FF4_RET_OK;
    if (table_samples == UINT32_MAX) return FF4_RET_OVERFLOW;
    Mp4Host* host = state->source.host;
    auto track = mp4_make<Mp4FragmentTrack>(host);
    auto checkpoints = mp4_make<Mp4FragmentCheckpoint>(host, kCheckpoints);
    if (!track || !checkpoints) return FF4_RET_NOMEM;
    track->track_id = track_id;
    track->spacing = 1;
    track->checkpoints = checkpoints.release();
    track->start.next_atom = state->first_moof;
    track->start.anchored = true;
    track->start.next_sample = table_samples + 1;
    track->start.next_time = track->start.least_start = track->start.cover_time = table_time;
    mp4_append(state, track.release());
    return FF4_RET_OK;
}

void mp4_end_fragment_track(Mp4FragmentState* state, uint32_t track_id) {
    if (!state) return;
    Mp4FragmentTrack* before = nullptr;
    Mp4FragmentTrack* track = state->head;
    for (; track && track->track_id != track_id; track = track->next)
        before = track;
    if (!track) return;
    (before ? before->next : state->head) = track->next;
    if (state->tail == track) state->tail = before;
    free_track(state->source.host, track);
}

Mp4Result mp4_set_fragment_share(Mp4FragmentState* state, uint32_t track_id, uint64_t share) {
    if (!state) return FF4_RET_ARGS;
    Mp4FragmentTrack* track = find_track(*state, track_id);
    if (!track) return FF4_RET_STATE;
    if (track->share == share) return FF4_RET_OK;
    mp4_drop_fragment_runs(state->source.host, track);
    track->share = share;
    return FF4_RET_OK;
}

Mp4Result mp4_get_fragment_sample(Mp4FragmentState* state, uint32_t track_id, uint32_t number,
                                  Mp4FragmentSample* sample) {
    if (!state || !sample) return FF4_RET_ARGS;
    Mp4FragmentTrack* track = find_track(*state, track_id);
    if (!track) return FF4_RET_STATE;
    if (number < track->start.next_sample) return FF4_RET_ARGS;
    return look_up(state, track, {false, number, true}, sample);
}

Mp4Result mp4_get_fragment_sample_at_time(Mp4FragmentState* state, uint32_t track_id, uint64_t time,
                                          bool numbered, Mp4FragmentSample* sample) {
    if (!state || !sample) return FF4_RET_ARGS;
    Mp4FragmentTrack* track = find_track(*state, track_id);
    if (!track) return FF4_RET_STATE;
    if (time < track->start.cover_time) return FF4_RET_NOTFOUND;
    return look_up(state, track, {true, time, numbered}, sample);
}

Mp4Result mp4_count_fragment_samples(Mp4FragmentState* state, uint32_t track_id, uint32_t* count) {
    if (!state || !count) return FF4_RET_ARGS;
    Mp4FragmentTrack* track = find_track(*state, track_id);
    if (!track) return FF4_RET_STATE;
    if (!track->counted) FF4_TRY(walk_to_end(state, track, true));
    *count = track->next_sample - track->start.next_sample;
    return FF4_RET_OK;
}

Mp4Result mp4_get_fragment_end(Mp4FragmentState* state, uint32_t track_id, uint64_t* end_time) {
    if (!state || !end_time) return FF4_RET_ARGS;
    Mp4FragmentTrack* track = find_track(*state, track_id);
    if (!track) return FF4_RET_STATE;
    if (!track->ended) FF4_TRY(walk_to_end(state, track, false));
    *end_time = track->end_time;
    return FF4_RET_OK;
}

}  // namespace tarn
