// range_selection.h - where a cut can be made: on sync samples around the points that were asked
// for, with the sound cut to match the picture.
//
// Points are milliseconds of the movie's own timeline, as a player shows it: edit lists and the
// delay of reordered pictures are taken into account.
#pragma once

#include <cstdint>

#include "movie/movie_codes.h"
#include "movie/objects/movie_info.h"

namespace tarn {

// Pictures are reordered within so many at most (ISO/IEC 14496-10, A.3.1).
constexpr uint32_t kMostReordered = 16;
// What a sound decoder has to have heard before it gives the next sample whole.
constexpr uint32_t kWarmUpSamples = 2;

// Samples `first` up to but not including `end`, with their decoding times in media units.
struct TrackRange {
    uint32_t first = 1, end = 1;
    uint64_t firstTime = 0, endTime = 0;
    // What lies between the start of the output and the track's first kept sample, media units.
    // Positive: so much of the first sample is left out. Negative: the track starts so much later.
    int64_t startOffset = 0;
    // When the track's very first picture is shown, counted from its decoding: what reordered
    // pictures are late by, media units.
    int64_t presentationStart = 0;
    uint64_t bytes = 0;  // of its samples
};

struct MovieRange {
    TrackRange video, audio;
    uint64_t actualInMs = 0, actualOutMs = 0;
    // From the first kept picture to the requested in point, and from the requested out point to
    // the end of what is kept, in media units of the picture. Not negative.
    uint64_t leadIn = 0, leadOut = 0;
    // When the picture that is on the screen at the in point comes there, counted from the first
    // kept one's decoding, and in milliseconds of the movie.
    int64_t exactStart = 0;
    uint64_t exactInMs = 0;
};

// Sync samples around a decoding time: the last at or before it (`prev`, sample 1 when there is
// none) and the first at or after it (`next`, one after the last sample when there is none).
struct SyncBounds {
    uint32_t prev, next;
    uint64_t prevTime, nextTime;
};
Mp4Result FindSyncBounds(Mp4ReadSession* session, const MovieTrackInfo& track, uint64_t target,
                         SyncBounds* bounds);

// The earliest presentation among a track's first samples, up to its second sync sample: what
// reordered pictures are late by, media units.
Mp4Result GetPresentationStart(Mp4ReadSession* session, const MovieTrackInfo& track,
                               int64_t* start);
// As FindSyncBounds, but `prev` is also shown at or before the target, less that lateness.
Mp4Result FindShownSync(Mp4ReadSession* session, const MovieTrackInfo& track, uint64_t target,
                        int64_t presentationStart, SyncBounds* bounds);

// What has to be added to a time of the movie, in media units, to get a decoding time of the
// track. Negative where the track starts late.
Mp4Result GetEditOffset(Mp4ReadSession* session, const MovieTrackInfo& track,
                        uint32_t movieTimescale, int64_t* offset);

struct RangeRequest {
    uint64_t inMs = 0, outMs = 0;
    bool atEnd = false;  // keep all there is after the in point
    // Above 0: bytes that the pictures may take. The cut then ends with the last group of pictures
    // that fits, at least one.
    uint64_t sizeLimit = 0;
};

// Chooses the cut. kMovieRange for an out point before the in point, FF4_RET_FORMAT for a first
// sample without duration.
MovieCode ChooseRange(Mp4ReadSession* session, const CMovieInfoType& info,
                      const RangeRequest& request, MovieRange* range);

}  // namespace tarn
