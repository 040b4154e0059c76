#include "movie/save/savable.h"

#include "movie/save/effect_writer.h"
#include "movie/save/trimming.h"

namespace tarn {
namespace {

constexpr uint32_t kSoundsTried = 32;

// A picture has to be there whole.
Reason missing_picture(CMP4MovieRead* movie) {
    const uint32_t track = movie->GetInfo().video.trackNumber;
    const TrackRange& range = movie->GetRange().video;
    const uint64_t length = movie->Session()->file_size;
    for (uint32_t n = range.first; track != 0 && n < range.end; ++n) {
        uint64_t start = 0;
        Mp4SampleInfo sample{};
        const Mp4Result found =
            mp4_get_numbered_sample(movie->Session(), track, n, &start, &sample);
        if (found != FF4_RET_OK) return movie->ReasonFor(movie_code(found));
        if (sample.offset > length || sample.size > length - sample.offset)
            return {ReasonCode::kDamagedSample, ReasonSide::kSource, movie->Path(), {uint64_t{n}}};
    }
    return {};
}

// As long as none could be decoded the next ones are tried.
Reason broken_sound(CMP4MovieRead* movie) {
    if (!movie->HasAudio()) return {};
    SoundReader sound;
    MovieCode code = sound.Open(movie, {}, 0, 0, false);
    for (uint64_t tried = 0; code == kMovieOk; tried += sound.Samples()) {
        if (tried >= kSoundsTried && sound.Damage().samples < tried) return {};
        code = sound.Next(UINT64_MAX, 0);
    }
    if (code == kMovieEndOfSamples) return {};
    return code == kMovieCodec && sound.GetReason() ? sound.GetReason() : movie->ReasonFor(code);
}

}  // namespace

Reason WhyNotSaved(const std::string& path) {
    MovieSegment whole;
    whole.source = path;
    whole.reading = kRescueDamaged;
    XpSharedPtr<CMP4MovieRead> movie;
    SavedSegment saved;
    if (Mp4MovieEditor().Prepare(whole, &movie, &saved) != kMovieOk) return saved.reason;
    if (Reason missing = missing_picture(movie.get())) return missing;
    return broken_sound(movie.get());
}

}  // namespace tarn
