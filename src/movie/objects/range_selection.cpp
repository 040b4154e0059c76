#include "movie/objects/range_selection.h"

#include <algorithm>

#include "movie/engine/samples.h"

namespace tarn {
namespace {

constexpr uint32_t kPresentationLook = 3;  // samples looked at for a track's first presentation

// Times have a sign where a track may start late.
Mp4Result to_signed(uint64_t value, int64_t* out) {
    if (value > static_cast<uint64_t>(INT64_MAX)) return FF4_RET_OVERFLOW;
    *out = static_cast<int64_t>(value);
    return FF4_RET_OK;
}

Mp4Result add(int64_t a, int64_t b, int64_t* out) {
    return __builtin_add_overflow(a, b, out) ? FF4_RET_OVERFLOW : FF4_RET_OK;
}

// A time of the movie in decoding time of the track.
Mp4Result track_time(Mp4ReadSession* session, const MovieTrackInfo& track, uint32_t movieTimescale,
                     uint64_t ms, int64_t* time) {
    uint64_t media = 0;
    int64_t offset = 0;
    FF4_TRY(mp4_mul_div(ms, track.timescale, 1000, &media));
    FF4_TRY(to_signed(media, time));
    FF4_TRY(GetEditOffset(session, track, movieTimescale, &offset));
    return add(*time, offset, time);
}

uint64_t not_negative(int64_t value) {
    return value < 0 ? 0 : static_cast<uint64_t>(value);
}

// One end of the movie in the time of both tracks.
struct Points {
    int64_t video, audio;
};

Mp4Result points_of(Mp4ReadSession* session, const CMovieInfoType& info, uint64_t ms,
                    Points* points) {
    if (info.video.trackNumber != 0)
        FF4_TRY(track_time(session, info.video, info.timescale, ms, &points->video));
    if (info.audio.trackNumber != 0)
        FF4_TRY(track_time(session, info.audio, info.timescale, ms, &points->audio));
    return FF4_RET_OK;
}

// The sync sample after one, or the end of the track.
Mp4Result find_next_sync(Mp4ReadSession* session, const MovieTrackInfo& track, uint32_t number,
                         SyncBounds* bounds) {
    const Mp4Result found =
        mp4_next_sync_number(session, track.trackNumber, number, &bounds->next, &bounds->nextTime);
    // What follows a track's last whole sample is none of it.
    const bool missing = found == FF4_RET_OK && bounds->next > track.sampleCount;
    if (found != FF4_RET_NOTFOUND && !missing) return found;
    bounds->next = track.sampleCount + 1;
    bounds->nextTime = track.duration;
    return FF4_RET_OK;
}

// The sync sample at or before the in point. A point before the track's first sample starts with
// that one, late by as much.
Mp4Result start_video(Mp4ReadSession* session, const MovieTrackInfo& track, int64_t in,
                      MovieRange* range) {
    TrackRange& video = range->video;
    video.startOffset = std::min<int64_t>(in, 0);
    if (in < 0) return FF4_RET_OK;
    SyncBounds bounds{};
    FF4_TRY(
        FindShownSync(session, track, static_cast<uint64_t>(in), video.presentationStart, &bounds));
    video.first = bounds.prev;
    video.firstTime = bounds.prevTime;
    range->leadIn = static_cast<uint64_t>(in) - bounds.prevTime;
    return FF4_RET_OK;
}

// When the kept pictures really begin, and which of them is shown at the in point: a player can
// start with no part of one.
Mp4Result find_shown_start(Mp4ReadSession* session, const MovieTrackInfo& track, uint64_t inMs,
                           MovieRange* range) {
    const TrackRange& video = range->video;
    int64_t wanted = 0, first = 0;
    uint32_t later = 0;  // pictures decoded after the point; one of them may be shown before it
    FF4_TRY(to_signed(range->leadIn, &wanted));
    FF4_TRY(add(wanted, video.presentationStart, &wanted));
    for (uint32_t n = video.first; n <= track.sampleCount; ++n) {
        uint64_t time = 0;
        Mp4SampleInfo sample{};
        FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, n, &time, &sample));
        const auto decoded = static_cast<int64_t>(time - video.firstTime);
        const int64_t shown = decoded + sample.compositionOffset;
        if (n == video.first) first = range->exactStart = shown;
        if (shown <= wanted) range->exactStart = std::max(range->exactStart, shown);
        if (decoded > wanted && ++later > kMostReordered) break;
    }
    // What is shown first, as it lies before the in point.
    const auto before = [&](int64_t shown) {
        const int64_t units = std::max<int64_t>(wanted - shown, 0);
        return std::min(inMs, not_negative(mp4_scale_nearest(units, 1000, track.timescale)));
    };
    range->actualInMs = inMs - before(first);
    range->exactInMs = inMs - before(range->exactStart);
    return FF4_RET_OK;
}

// The sound that goes with the kept picture: `lead` is how much earlier than the in point that
// starts, in sound units.
Mp4Result start_audio(Mp4ReadSession* session, const MovieTrackInfo& track, int64_t in,
                      int64_t lead, TrackRange* audio) {
    int64_t target = 0;
    FF4_TRY(add(in, -lead, &target));
    SyncBounds bounds{1, 1, 0, 0};
    if (target > 0) FF4_TRY(FindSyncBounds(session, track, static_cast<uint64_t>(target), &bounds));
    audio->first = bounds.prev;
    audio->firstTime = bounds.prevTime;
    int64_t kept = 0;
    FF4_TRY(to_signed(bounds.prevTime, &kept));
    FF4_TRY(add(target, -kept, &audio->startOffset));
    // A sound that is over before the kept picture starts has no samples in the selection.
    if (target >= 0 && static_cast<uint64_t>(target) >= track.duration)
        audio->first = track.sampleCount + 1;
    return FF4_RET_OK;
}

void end_at_last_sample(const MovieTrackInfo& track, TrackRange* range) {
    range->end = track.sampleCount + 1;
    range->endTime = track.duration;
}

// The sync sample at or after the out point, and at least one group of pictures.
Mp4Result end_video(Mp4ReadSession* session, const MovieTrackInfo& track, int64_t out,
                    MovieRange* range) {
    TrackRange& video = range->video;
    SyncBounds bounds{};
    FF4_TRY(FindSyncBounds(session, track, not_negative(out), &bounds));
    if (bounds.next <= video.first) FF4_TRY(find_next_sync(session, track, video.first, &bounds));
    video.end = bounds.next;
    video.endTime = bounds.nextTime;
    // Sound is never cut back to a picture that ends early.
    range->leadOut = bounds.nextTime - std::min(bounds.nextTime, not_negative(out));
    return FF4_RET_OK;
}

// The nearer sample boundary to where the picture ends.
Mp4Result end_audio(Mp4ReadSession* session, const MovieTrackInfo& track, int64_t out, int64_t lead,
                    TrackRange* audio) {
    int64_t target = 0;
    FF4_TRY(add(out, lead, &target));
    const uint64_t wanted = not_negative(target);
    SyncBounds bounds{};
    FF4_TRY(FindSyncBounds(session, track, wanted, &bounds));
    const bool next = wanted >= bounds.nextTime ||
                      bounds.nextTime - wanted <= wanted - std::min(wanted, bounds.prevTime);
    audio->end = std::max(next ? bounds.next : bounds.prev, audio->first);
    audio->endTime = audio->end == bounds.next ? bounds.nextTime : bounds.prevTime;
    return FF4_RET_OK;
}

// The end of the last group of pictures that a limit of bytes leaves room for.
Mp4Result limit_video(Mp4ReadSession* session, const MovieTrackInfo& track, uint64_t limit,
                      TrackRange* video) {
    uint64_t used = 0;
    uint32_t at = video->first;
    while (at < video->end) {
        uint32_t next = 0;
        uint64_t time = 0, bytes = 0;
        const Mp4Result found = mp4_next_sync_number(session, track.trackNumber, at, &next, &time);
        if (found == FF4_RET_NOTFOUND) break;
        FF4_TRY(found);
        FF4_TRY(mp4_get_range_bytes(session, track.trackNumber, at, next - at, &bytes));
        FF4_TRY(mp4_add(used, bytes, &used));
        if (used > limit && at > video->first) {
            uint64_t start = 0;
            Mp4SampleInfo sample{};
            FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, at, &start, &sample));
            video->end = at;
            video->endTime = start;
            return FF4_RET_OK;
        }
        at = next;
    }
    return FF4_RET_OK;
}

Mp4Result count_bytes(Mp4ReadSession* session, const MovieTrackInfo& track, TrackRange* range) {
    if (track.trackNumber == 0 || range->end <= range->first) return FF4_RET_OK;
    return mp4_get_range_bytes(session, track.trackNumber, range->first, range->end - range->first,
                               &range->bytes);
}

Mp4Result choose_start(Mp4ReadSession* session, const CMovieInfoType& info,
                       const RangeRequest& request, MovieRange* range) {
    const bool video = info.video.trackNumber != 0, audio = info.audio.trackNumber != 0;
    Points in{};
    FF4_TRY(points_of(session, info, request.inMs, &in));
    if (video) {
        FF4_TRY(GetPresentationStart(session, info.video, &range->video.presentationStart));
        FF4_TRY(start_video(session, info.video, in.video, range));
    }
    if (audio) {
        int64_t lead = 0;
        FF4_TRY(to_signed(range->leadIn, &lead));
        if (video)
            FF4_TRY(mp4_scale_toward_zero(lead, info.audio.timescale, info.video.timescale, &lead));
        FF4_TRY(start_audio(session, info.audio, in.audio, lead, &range->audio));
    }
    range->actualInMs = range->exactInMs = request.inMs;
    return video ? find_shown_start(session, info.video, request.inMs, range) : FF4_RET_OK;
}

Mp4Result choose_end(Mp4ReadSession* session, const CMovieInfoType& info,
                     const RangeRequest& request, MovieRange* range) {
    const bool video = info.video.trackNumber != 0, audio = info.audio.trackNumber != 0;
    if (request.atEnd && request.sizeLimit == 0) {
        if (video) end_at_last_sample(info.video, &range->video);
        if (audio) end_at_last_sample(info.audio, &range->audio);
        range->actualOutMs = request.outMs;
        return FF4_RET_OK;
    }
    Points out{};
    FF4_TRY(points_of(session, info, request.outMs, &out));
    int64_t correction = 0;  // from the out point to the end of the picture, movie milliseconds
    int64_t lead = 0;        // the same in sound units
    if (video) {
        FF4_TRY(end_video(session, info.video, out.video, range));
        FF4_TRY(to_signed(range->leadOut, &correction));
        if (request.sizeLimit > 0) {
            FF4_TRY(limit_video(session, info.video, request.sizeLimit, &range->video));
            int64_t end = 0;
            FF4_TRY(to_signed(range->video.endTime, &end));
            FF4_TRY(add(end, -out.video, &correction));
        }
        if (audio)
            FF4_TRY(mp4_scale_toward_zero(correction, info.audio.timescale, info.video.timescale,
                                          &lead));
        FF4_TRY(mp4_scale_toward_zero(correction, 1000, info.video.timescale, &correction));
    }
    if (audio) FF4_TRY(end_audio(session, info.audio, out.audio, lead, &range->audio));
    int64_t ms = 0;
    FF4_TRY(to_signed(request.outMs, &ms));
    FF4_TRY(add(ms, correction, &ms));
    range->actualOutMs = not_negative(ms);
    return FF4_RET_OK;
}

}  // namespace

Mp4Result FindSyncBounds(Mp4ReadSession* session, const MovieTrackInfo& track, uint64_t target,
                         SyncBounds* bounds) {
    if (!bounds || track.trackNumber == 0) return FF4_RET_ARGS;
    *bounds = {1, track.sampleCount + 1, 0, track.duration};
    if (track.defaultDuration == 0) return FF4_RET_FORMAT;
    if (track.sampleCount == 0) return FF4_RET_OK;

    uint32_t number = track.sampleCount;
    if (target < track.duration)
        FF4_TRY(mp4_get_sample_number_at_time(session, track.trackNumber, target, &number));
    uint64_t start = 0;
    Mp4SampleInfo sample{};
    FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, number, &start, &sample));
    const uint32_t holding = number;
    const bool exact = start == target && sample.isSync != 0;
    while (sample.isSync == 0 && number > 1) {
        --number;
        FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, number, &start, &sample));
    }
    bounds->prev = number;
    bounds->prevTime = start;
    if (exact) {
        bounds->next = number;
        bounds->nextTime = start;
        return FF4_RET_OK;
    }
    return find_next_sync(session, track, holding, bounds);
}

Mp4Result GetPresentationStart(Mp4ReadSession* session, const MovieTrackInfo& track,
                               int64_t* start) {
    *start = 0;
    bool any = false;
    for (uint32_t n = 1; n <= kPresentationLook && n <= track.sampleCount; ++n) {
        uint64_t time = 0;
        Mp4SampleInfo sample{};
        FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, n, &time, &sample));
        if (n > 1 && sample.isSync != 0) break;
        int64_t shown = 0;
        FF4_TRY(to_signed(time, &shown));
        FF4_TRY(add(shown, sample.compositionOffset, &shown));
        *start = any ? std::min(*start, shown) : shown;
        any = true;
    }
    return FF4_RET_OK;
}

Mp4Result FindShownSync(Mp4ReadSession* session, const MovieTrackInfo& track, uint64_t target,
                        int64_t presentationStart, SyncBounds* bounds) {
    FF4_TRY(FindSyncBounds(session, track, target, bounds));
    // Where pictures last unevenly one may be decoded before the point and shown after it.
    while (bounds->prevTime > 0) {
        uint64_t time = 0;
        int64_t lead = 0;
        Mp4SampleInfo sample{};
        FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, bounds->prev, &time, &sample));
        FF4_TRY(to_signed(target - bounds->prevTime, &lead));
        if (sample.compositionOffset - presentationStart <= lead) break;
        FF4_TRY(FindSyncBounds(session, track, bounds->prevTime - 1, bounds));
    }
    return FF4_RET_OK;
}

Mp4Result GetEditOffset(Mp4ReadSession* session, const MovieTrackInfo& track,
                        uint32_t movieTimescale, int64_t* offset) {
    if (!offset) return FF4_RET_ARGS;
    uint64_t empty = 0;  // movie units
    int64_t media = 0, start = 0, delay = 0;
    for (const MovieEdit& edit : track.edits) {
        if (edit.mediaTime != -1) {
            media = edit.mediaTime;
            break;
        }
        FF4_TRY(mp4_add(empty, edit.segmentDuration, &empty));
    }
    FF4_TRY(GetPresentationStart(session, track, &start));
    if (empty > 0) {
        uint64_t units = 0;
        FF4_TRY(mp4_mul_div(empty, track.timescale, movieTimescale, &units));
        FF4_TRY(to_signed(units, &delay));
    }
    FF4_TRY(add(media, -delay, offset));
    return add(*offset, -start, offset);
}

MovieCode ChooseRange(Mp4ReadSession* session, const CMovieInfoType& info,
                      const RangeRequest& request, MovieRange* range) {
    if (!range) return movie_code(FF4_RET_ARGS);
    *range = {};
    if (request.outMs < request.inMs) return kMovieRange;
    if (info.video.trackNumber == 0 && info.audio.trackNumber == 0) return kMovieNoTrack;
    MOVIE_TRY(choose_start(session, info, request, range));
    MOVIE_TRY(choose_end(session, info, request, range));
    // Sound alone keeps one sample at least, as a picture keeps a group.
    TrackRange& audio = range->audio;
    if (info.video.trackNumber == 0 && audio.end <= audio.first)
        audio.end = std::min(audio.first, info.audio.sampleCount) + 1;
    const bool empty = range->video.end <= range->video.first && audio.end <= audio.first;
    if (empty) return kMovieRange;
    MOVIE_TRY(count_bytes(session, info.video, &range->video));
    MOVIE_TRY(count_bytes(session, info.audio, &range->audio));
    uint64_t total = 0;
    return movie_code(mp4_add(range->video.bytes, range->audio.bytes, &total));
}

}  // namespace tarn
