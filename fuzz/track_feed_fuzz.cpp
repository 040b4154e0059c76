// Any bytes as a movie that is played: samples in order from any time on, whatever the tables say.
// The first eight bytes choose where playing starts.
#include <cstdlib>
#include <cstring>

#include "playback/track_feed.h"
#include "support/memory_path.h"

namespace {

constexpr int kMostSamples = 2000;

void play(const std::string& path, tarn::TrackFeed::Kind kind, int64_t start) {
    tarn::TrackFeed feed;
    if (feed.Open(path, kind)) return;
    for (const int64_t time : {int64_t{0}, start, feed.DurationNs() - 1}) {
        if (feed.SeekTo(time, INT64_MAX) != tarn::kMovieOk) continue;
        tarn::FeedSample sample;
        int64_t last = INT64_MIN;
        for (int i = 0; i < kMostSamples && feed.Next(&sample) == tarn::kMovieOk; ++i) {
            if (sample.decoded < last) abort();
            last = sample.decoded;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int64_t start = 0;
    if (size < sizeof start) return 0;
    std::memcpy(&start, data, sizeof start);
    const tarn::MemoryPath file(data + sizeof start, size - sizeof start);
    play(file.Path(), tarn::TrackFeed::Kind::kVideo, start);
    play(file.Path(), tarn::TrackFeed::Kind::kAudio, start);
    return 0;
}
