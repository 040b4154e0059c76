#include "movie/objects/whole_samples.h"

#include <algorithm>

#include "movie/engine/samples.h"
#include "movie/objects/range_selection.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

// How many of `count` samples of one size, one after the other in the file, lie within it.
uint64_t whole_of(const Mp4SampleInfo& sample, uint32_t count, uint64_t file_size) {
    if (sample.offset > file_size) return 0;
    if (sample.size == 0) return count;
    return std::min<uint64_t>(count, (file_size - sample.offset) / sample.size);
}

// The number of the last sample within the file, 0 where none is, and when it ends.
Mp4Result find_last_whole(Mp4ReadSession* session, const MovieTrackInfo& track, uint32_t* last,
                          uint64_t* end) {
    *last = 0;
    *end = 0;
    for (uint64_t number = 1, alike = 1; number <= track.sampleCount; number += alike) {
        uint64_t start = 0;
        uint32_t run = 1;
        Mp4SampleInfo sample{};
        const auto at = static_cast<uint32_t>(number);
        FF4_TRY(mp4_get_numbered_sample(session, track.trackNumber, at, &start, &sample));
        FF4_TRY(mp4_get_alike_samples(session, track.trackNumber, at, &run));
        alike = run;
        const uint64_t whole = whole_of(sample, run, session->file_size);
        if (whole == 0) continue;
        *last = static_cast<uint32_t>(number + whole - 1);
        *end = start + whole * sample.duration;
    }
    return FF4_RET_OK;
}

}  // namespace

Mp4Result CutMissingSamples(Mp4ReadSession* session, MovieTrackInfo* track) {
    if (track->sampleCount == 0) return FF4_RET_OK;
    uint64_t start = 0;
    Mp4SampleInfo sample{};
    const Mp4Result found =
        mp4_get_numbered_sample(session, track->trackNumber, track->sampleCount, &start, &sample);
    // Broken tables are found where they are used.
    if (found == FF4_RET_FORMAT || found == FF4_RET_NOTFOUND) return FF4_RET_OK;
    FF4_TRY(found);
    if (whole_of(sample, 1, session->file_size) == 1) return FF4_RET_OK;
    uint32_t last = 0;
    FF4_TRY(find_last_whole(session, *track, &last, &track->duration));
    track->missingSamples = track->sampleCount - last;
    track->sampleCount = last;
    return FF4_RET_OK;
}

Mp4Result GetMovieEnd(Mp4ReadSession* session, const MovieTrackInfo& track, uint32_t movieTimescale,
                      uint64_t* end) {
    int64_t offset = 0;
    FF4_TRY(GetEditOffset(session, track, movieTimescale, &offset));
    const int64_t units = mp4_scale_nearest(static_cast<int64_t>(track.duration) - offset,
                                            movieTimescale, track.timescale);
    *end = units > 0 ? static_cast<uint64_t>(units) : 0;
    return FF4_RET_OK;
}

Reason MissingSamples(const SampleCounts& video, const SampleCounts& audio,
                      const std::string& file) {
    if (video.missing == 0 && audio.missing == 0) return {};
    return {ReasonCode::kSamplesMissing,
            ReasonSide::kSource,
            file,
            {video.missing, video.all, audio.missing, audio.all}};
}

}  // namespace tarn
