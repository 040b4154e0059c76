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

SaveCheck CheckForSaving(const std::string& path) {
    SaveCheck check;
    const auto refuse = [&](const Reason& reason) {
        check.canBeSaved = false;
        check.reason = reason;
        return check;
    };
    MovieSegment whole;
    whole.source = path;
    whole.reading = kRescueDamaged;
    CMP4MovieRead movie;
    movie.SetPath(path);
    movie.SetReadOptions(whole.reading);
    const MovieCode opened = movie.Open();
    check.status = opened == kMovieOk ? CheckOpenMovie(movie, &check.reason)
                                      : CheckAnyFile(path, true, nullptr, &check.reason);
    if (check.status != kFileUsable) return check;
    if (opened != kMovieOk) {
        // A WAV file is no movie: what is usable of it can be saved.
        const bool wave = movie.GetReason().code == ReasonCode::kNotAMovie;
        return wave ? check : refuse(movie.GetReason());
    }
    SavedSegment saved;
    if (Mp4MovieEditor().Choose(whole, &movie, &saved) != kMovieOk) return refuse(saved.reason);
    if (const Reason missing = missing_picture(&movie)) return refuse(missing);
    if (const Reason broken = broken_sound(&movie)) return refuse(broken);
    if (!saved.notes.empty()) check.reason = saved.notes.front();
    return check;
}

}  // namespace tarn
