// samples_fuzz - walks a movie's samples at random, by number and by time, with two sizes of
// window memory: both must find the same. The first byte seeds the walk.
#include <random>

#include "fuzz_movie.h"
#include "movie/engine/samples.h"
#include "movie/engine/tracks.h"

namespace tarn {
namespace {

constexpr uint64_t kSmallMemory = 24 * 1024;  // windows of a few entries only
constexpr int kSteps = 200;

struct Found {
    uint32_t result;
    uint64_t start;
    Mp4SampleInfo info;
};

// A session short of memory may say so; what it does find must be right.
bool same(const Found& a, const Found& b) {
    if (b.result == FF4_RET_NOMEM) return true;
    if (a.result != b.result) return false;
    return a.result != FF4_RET_OK ||
           (a.start == b.start && a.info.offset == b.info.offset && a.info.size == b.info.size &&
            a.info.duration == b.info.duration && a.info.isSync == b.info.isSync &&
            a.info.compositionOffset == b.info.compositionOffset &&
            a.info.descriptionIndex == b.info.descriptionIndex);
}

Found by_number(Mp4ReadSession* session, uint32_t track, uint32_t number) {
    Found found{};
    found.result = Sane(mp4_get_numbered_sample(session, track, number, &found.start, &found.info));
    return found;
}

Found by_time(Mp4ReadSession* session, uint32_t track, uint64_t time) {
    Found found{};
    found.result =
        Sane(mp4_get_sample_info_at_time(session, track, time, &found.start, &found.info));
    return found;
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
        if (!same(by_number(large, track, number), by_number(small, track, number))) std::abort();
        if (!same(by_time(large, track, time), by_time(small, track, time))) std::abort();
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
