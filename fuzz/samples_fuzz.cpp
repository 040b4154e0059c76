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

Found find(auto lookup, Mp4ReadSession* session, uint32_t track, auto where) {
    uint64_t start = 0;
    Mp4SampleInfo i{};
    const uint32_t result = Sane(lookup(session, track, where, &start, &i));
    if (result != FF4_RET_OK) return {result};
    const auto composition = static_cast<uint32_t>(i.compositionOffset);
    return {result, start, i.offset, i.size, i.duration, i.isSync, composition, i.descriptionIndex};
}

void compare_walks(Mp4ReadSession* large, Mp4ReadSession* small, uint32_t track, uint32_t seed) {
    // A small share may not be enough for many tracks.
    for (Mp4ReadSession* session : {large, small})
        if (Sane(mp4_open_track(session, track)) != FF4_RET_OK) return;
    const auto compare = [&](auto lookup, auto where) {
        // A session short of memory may say so; what it does find must be right.
        const Found found = find(lookup, small, track, where);
        Check(found[0] == FF4_RET_NOMEM || found == find(lookup, large, track, where));
    };
    const auto count = Ask<uint32_t>(mp4_get_total_sample_count, large, track);
    const auto duration = Ask<uint64_t>(mp4_get_track_duration, large, track);
    Ask<uint64_t>(mp4_get_media_bytes, large, track);
    std::mt19937_64 random(seed);
    for (int step = 0; step < kSteps; ++step) {
        compare(mp4_get_numbered_sample, static_cast<uint32_t>(random() % (uint64_t{count} + 2)));
        const uint64_t time = duration == 0 ? random() : random() % (duration + 2);
        compare(mp4_get_sample_info_at_time, time);
        Ask<uint64_t>(mp4_find_sync_after_time, large, track, time);
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
    const auto tracks = Ask<uint32_t>(mp4_get_track_count, static_cast<Mp4ReadSession*>(large));
    for (uint32_t track = 1; track <= tracks && track <= 4; ++track)
        compare_walks(large, small, track, data[0]);
    return 0;
}
