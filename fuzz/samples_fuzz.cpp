// samples_fuzz - walks a movie's samples at random, by number and by time, with two sizes of
// window memory: both must find the same. The first byte seeds the walk.
#include <array>
#include <random>

#include "fuzz_movie.h"
#include "movie/engine/samples.h"
#include "movie/engine/tracks.h"

namespace tarn {
namespace {

constexpr uint64_t kSmallMemory = 24 * 1024;  // windows of a few entries only
constexpr int kSteps = 200;

using Found = std::array<uint64_t, 8>;  // a result and, of success, what was found

Found found(Mp4Result result, const uint64_t& start, const Mp4SampleInfo& info) {
    if (Sane(result) != FF4_RET_OK) return {result};
    return {result,
            start,
            info.offset,
            info.size,
            info.duration,
            info.isSync,
            static_cast<uint32_t>(info.compositionOffset),
            info.descriptionIndex};
}

Found by_number(Mp4ReadSession* session, uint32_t track, uint32_t number) {
    uint64_t start = 0;
    Mp4SampleInfo info{};
    return found(mp4_get_numbered_sample(session, track, number, &start, &info), start, info);
}

Found by_time(Mp4ReadSession* session, uint32_t track, uint64_t time) {
    uint64_t start = 0;
    Mp4SampleInfo info{};
    return found(mp4_get_sample_info_at_time(session, track, time, &start, &info), start, info);
}

// A session short of memory may say so; what it does find must be right.
void must_match(const Found& large, const Found& small) {
    if (small[0] != FF4_RET_NOMEM && small != large) std::abort();
}

void compare_walks(Mp4ReadSession* large, Mp4ReadSession* small, uint32_t track, uint32_t seed) {
    uint32_t count = 0;
    uint64_t duration = 0, bytes = 0, sync = 0;
    if (Sane(mp4_open_track(large, track)) != FF4_RET_OK) return;
    // A small share may not be enough for many tracks.
    if (Sane(mp4_open_track(small, track)) != FF4_RET_OK) return;
    Sane(mp4_get_total_sample_count(large, track, &count));
    Sane(mp4_get_track_duration(large, track, &duration));
    Sane(mp4_get_media_bytes(large, track, &bytes));
    std::mt19937_64 random(seed);
    for (int step = 0; step < kSteps; ++step) {
        const auto number = static_cast<uint32_t>(random() % (uint64_t{count} + 2));
        const uint64_t time = duration == 0 ? random() : random() % (duration + 2);
        must_match(by_number(large, track, number), by_number(small, track, number));
        must_match(by_time(large, track, time), by_time(small, track, time));
        Sane(mp4_find_sync_after_time(large, track, time, &sync));
    }
}

}  // namespace
}  // namespace tarn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    if (size == 0) return 0;
    const Bytes bytes(data + 1, data + size);
    FuzzMovie large(bytes), small(bytes, kSmallMemory);
    if (!large || !small) return 0;
    uint32_t tracks = 0;
    Sane(mp4_get_track_count(large, &tracks));
    for (uint32_t track = 1; track <= tracks && track <= 4; ++track)
        compare_walks(large, small, track, data[0]);
    return 0;
}
