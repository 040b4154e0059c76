#include "movie/movie_codes.h"

namespace tarn {
namespace {

ReasonCode reason_code(MovieCode code) {
    switch (static_cast<uint32_t>(code)) {
        case FF4_RET_NOMEM:
        case kMovieBuffer:
            return ReasonCode::kOutOfMemory;
        case FF4_RET_FILE:
            return ReasonCode::kEndsEarly;
        case FF4_RET_NOTFOUND:
            return ReasonCode::kNothingKnown;
        case FF4_RET_OVERFLOW:
            return ReasonCode::kNumberTooLarge;
        case FF4_RET_FORMAT:
            return ReasonCode::kDamaged;
        case kMovieRange:
            return ReasonCode::kOutsideMovie;
        case kMovieNoTrack:
            return ReasonCode::kNoTrack;
        case kMovieCodec:
            return ReasonCode::kCodec;
        case kMovieChanged:
            return ReasonCode::kChanged;
        case kMovieTooLarge:
            return ReasonCode::kWaveOutTooLarge;
        case kMovieCancelled:
            return ReasonCode::kCancelled;
        case kMovieEndOfSamples:
            return ReasonCode::kNoMoreSamples;
        default:
            return ReasonCode::kUnexpected;
    }
}

}  // namespace

Reason MovieReason(MovieCode code, ReasonSide side, const std::string& file, int systemError) {
    if (code == kMovieOk) return {};
    if (code != kMovieSystem) return {reason_code(code), side, file, {}};
    const bool target = side == ReasonSide::kTarget;
    return SystemReason(target ? ReasonCode::kCantWrite : ReasonCode::kCantRead, side, file,
                        systemError);
}

}  // namespace tarn
