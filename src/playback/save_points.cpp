#include "playback/save_points.h"

#include <algorithm>

#include "movie/objects/movie_reader.h"

namespace tarn {
namespace {

int32_t to_ms(uint64_t ms) {
    return static_cast<int32_t>(std::min<uint64_t>(ms, INT32_MAX));
}

}  // namespace

ClipPoints FindSavePoints(const std::string& path, const ClipPoints& asked) {
    CMP4MovieRead movie;
    movie.SetPath(path);
    if (movie.Open() != kMovieOk) return asked;
    const uint64_t duration = movie.GetDurationMs();
    const uint64_t wanted = asked.out > 0 ? static_cast<uint64_t>(asked.out) : duration;
    uint64_t in = static_cast<uint64_t>(asked.in), out = std::min(wanted, duration);
    if (in >= duration || out < in) return asked;
    if (movie.SelectRange(&in, &out, wanted >= duration) != kMovieOk) return asked;
    ClipPoints found = asked;
    found.in = to_ms(asked.exact ? movie.GetRange().exactInMs : in);
    if (asked.out > 0) found.out = to_ms(asked.exact ? std::min(wanted, duration) : out);
    return found;
}

}  // namespace tarn
