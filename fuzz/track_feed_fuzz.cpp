// Any bytes as a movie that is played: samples in order from any time on, whatever the tables say.
// The first eight bytes choose where playing starts.
#include <cstring>

#include "fuzz_movie.h"
#include "playback/track_feed.h"
#include "support/memory_path.h"

namespace {

using namespace tarn;

void play(const std::string& path, TrackFeed::Kind kind, int64_t start) {
    TrackFeed feed;
    if (feed.Open(path, kind)) return;
    constexpr int kMostSamples = 2000;
    for (const int64_t time : {int64_t{0}, start, feed.DurationNs() - 1}) {
        if (feed.SeekTo(time, INT64_MAX) != kMovieOk) continue;
        FeedSample sample;
        int64_t last = INT64_MIN;
        for (int i = 0; i < kMostSamples && feed.Next(&sample) == kMovieOk; ++i) {
            Check(sample.decoded >= last);
            last = sample.decoded;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int64_t start = 0;
    if (size < sizeof start) return 0;
    std::memcpy(&start, data, sizeof start);
    const MemoryPath file(data + sizeof start, size - sizeof start);
    for (const auto kind : {TrackFeed::Kind::kVideo, TrackFeed::Kind::kAudio})
        play(file.Path(), kind, start);
    return 0;
}
