#include "movie/save/movie_verify.h"

#include <cerrno>

namespace tarn {
namespace {

bool same(const CReadBuffer& a, const ReadSampleInfo& of_a, const CReadBuffer& b,
          const ReadSampleInfo& of_b) {
    return a.data == b.data && of_a.duration == of_b.duration &&
           of_a.compositionOffset == of_b.compositionOffset && of_a.isSync == of_b.isSync;
}

bool is_unreadable(MovieCode code, const CMP4MovieRead& output) {
    return code == kMovieSystem || code == movie_code(FF4_RET_FILE) ||
           output.GetReason().SystemError() != 0;
}

// The medium gave back nothing at all, or something that is no movie.
Reason cant_read_back(const CMP4MovieRead& output) {
    const int error = output.GetReason().SystemError();
    return {ReasonCode::kCantReadBack,
            ReasonSide::kTarget,
            output.Path(),
            {ReasonError{error != 0 ? error : EIO}}};
}

}  // namespace

MovieCode VerifyPictures(CMP4MovieRead* source, const std::string& output,
                         const std::function<bool(uint64_t)>& step, uint64_t* verified,
                         Reason* reason) {
    *verified = 0;
    CMP4MovieRead written;
    written.SetPath(output);
    if (const MovieCode code = written.Open(); code != kMovieOk) {
        *reason = cant_read_back(written);
        return code;
    }
    const TrackRange& range = source->GetRange().video;
    TrackCursor from{source->GetInfo().video.trackNumber, range.first};
    TrackCursor to{written.GetInfo().video.trackNumber};
    CReadBuffer kept, saved;
    ReadSampleInfo of_kept, of_saved;
    for (uint32_t n = range.first; n < range.end; ++n) {
        if (!step(*verified)) return kMovieCancelled;
        MOVIE_TRY(source->ReadSample(&from, &kept, &of_kept));
        const MovieCode code = written.ReadSample(&to, &saved, &of_saved);
        if (code != kMovieOk && is_unreadable(code, written)) {
            *reason = cant_read_back(written);
            return code;
        }
        if (code != kMovieOk || !same(kept, of_kept, saved, of_saved)) {
            *reason = {ReasonCode::kPictureDiffers, ReasonSide::kTarget, output, {*verified + 1}};
            return kMovieMismatch;
        }
        ++*verified;
    }
    const MovieCode code = written.ReadSample(&to, &saved, &of_saved);
    if (code == kMovieEndOfSamples) return kMovieOk;
    if (code != kMovieOk && is_unreadable(code, written)) {
        *reason = cant_read_back(written);
        return code;
    }
    *reason = {ReasonCode::kMorePictures, ReasonSide::kTarget, output, {}};
    return kMovieMismatch;
}

}  // namespace tarn
