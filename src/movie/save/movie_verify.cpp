#include "movie/save/movie_verify.h"

#include "movie/facts/movie_text.h"
#include "movie/objects/movie_reader.h"

namespace tarn {
namespace {

MovieCode open(CMP4MovieRead* movie, const std::string& path, int32_t* systemError,
               std::string* reason) {
    movie->SetPath(path);
    const MovieCode code = movie->Open();
    *systemError = movie->LastError();
    if (code != kMovieOk) *reason = "reading back: " + MovieCodeText(code, *systemError);
    return code;
}

bool same(const CReadBuffer& a, const ReadSampleInfo& of_a, const CReadBuffer& b,
          const ReadSampleInfo& of_b) {
    return a.data == b.data && of_a.duration == of_b.duration &&
           of_a.compositionOffset == of_b.compositionOffset && of_a.isSync == of_b.isSync;
}

}  // namespace

MovieCode VerifyPictures(const std::string& source, uint32_t first, uint32_t end,
                         const std::string& output, const std::function<bool()>& step,
                         uint64_t* verified, int32_t* systemError, std::string* reason) {
    *verified = 0;
    CMP4MovieRead before, after;
    MOVIE_TRY(open(&before, source, systemError, reason));
    MOVIE_TRY(open(&after, output, systemError, reason));
    if (!before.HasVideo()) return kMovieOk;
    TrackCursor from{before.GetInfo().video.trackNumber, first};
    TrackCursor to{after.GetInfo().video.trackNumber};
    CReadBuffer kept, saved;
    ReadSampleInfo of_kept, of_saved;
    for (uint32_t n = first; n < end; ++n) {
        if (!step()) return kMovieCancelled;
        if (const MovieCode code = before.ReadSample(&from, &kept, &of_kept); code != kMovieOk) {
            *systemError = before.LastError();
            return code;
        }
        const MovieCode code = after.ReadSample(&to, &saved, &of_saved);
        if (code != kMovieOk || !same(kept, of_kept, saved, of_saved)) {
            *reason =
                "reading back: picture " + std::to_string(n - first + 1) + " is not the source's";
            return kMovieMismatch;
        }
        ++*verified;
    }
    if (after.ReadSample(&to, &saved, &of_saved) != kMovieEndOfSamples) {
        *reason = "reading back: there are more pictures than were kept";
        return kMovieMismatch;
    }
    return kMovieOk;
}

}  // namespace tarn
