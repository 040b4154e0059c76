// sample_feed.h - what a source of a graph gives: samples in decoding order, from any time on, with
// the times at which they are shown.
//
// Times are nanoseconds of the clip. One thread at a time.
#pragma once

#include <cstdint>
#include <vector>

#include "base/reason.h"
#include "movie/movie_codes.h"
#include "playback/gst_handles.h"

namespace tarn {

struct FeedSample {
    std::vector<uint8_t> data;
    int64_t shown = 0, decoded = 0;  // when
    // Of a picture, until the next one is shown. Sound lasts as long as what is decoded from it.
    int64_t duration = 0;
    bool isSync = false;
    uint32_t number = 0;       // 1-based
    uint32_t description = 0;  // position in the list of descriptions, from 0
};

class SampleFeed {
public:
    virtual ~SampleFeed() = default;

    virtual int64_t DurationNs() const = 0;
    // The form of the samples of that description; null where it has no name.
    virtual GstCapsPtr Caps(uint32_t description) const = 0;
    // Sound that goes through a decoder.
    virtual bool IsCodedSound() const = 0;
    // Goes to where decoding has to begin so that what is shown at `time` comes out whole. `end`:
    // nothing that is decoded and shown at or after it is given.
    virtual MovieCode SeekTo(int64_t time, int64_t end) = 0;
    // kMovieEndOfSamples at the end.
    virtual MovieCode Next(FeedSample* sample) = 0;
    // Why SeekTo or Next failed with that code.
    virtual Reason ReasonOf(MovieCode code) = 0;
};

}  // namespace tarn
