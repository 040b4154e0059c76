#include "movie/facts/check_movie_file.h"

#include <new>
#include <utility>

#include "base/xp_file.h"
#include "base/xp_path.h"
#include "effects/wave_file.h"
#include "movie/facts/clip_info.h"

namespace tarn {
namespace {

struct Verdict {
    MovieFileStatus status = kFileUsable;
    Reason reason = {};
};

// What the profile record says, else the sound itself; 0 for a clip without sound.
uint32_t channel_count(const CMovieInfoType& info) {
    if (info.audio.trackNumber == 0 || info.audioDescriptions.empty()) return 0;
    if (info.hasBrandMsnv) return info.audioProfile.channels;
    return SoundChannels(info.audioDescriptions[0]);
}

Verdict check_movie(const std::string& path) {
    CMP4MovieReader reader;
    reader.SetPath(path);
    const MovieCode code = reader.Open();
    if (code != kMovieOk) {
        const bool unreadable =
            code == movie_code(FF4_RET_NOTFOUND) || code == movie_code(FF4_RET_NOMEM);
        return {unreadable ? kFileUnreadable : kFileUnsupported, reader.GetReason()};
    }
    Verdict verdict;
    verdict.status = CheckOpenMovie(reader, &verdict.reason);
    return verdict;
}

Verdict check_wave(const std::string& path, XpFile file, bool strict) {
    AMPWaveSource source{path, std::move(file), {}};
    const Reason reason = AMPReadWaveSource(&source);
    if (reason.SystemError() != 0) return {kFileUnreadable, reason};
    if (reason && strict) return {kFileUnsupported, reason};
    if (!reason && source.header.IsCutShort())
        return {kFileUsable, {ReasonCode::kWaveCutShort, ReasonSide::kSource, path, {}}};
    return {};
}

Verdict check(const std::string& path, bool strict, const GraphStep& graph) {
    XpFile file;
    bool is_wave = false;
    if (const Reason reason = OpenAndLookForWave(path, &file, &is_wave))
        return {XpPath::HasExtension(path, ".wav") ? kFileUnreadable : kFileUnsupported, reason};
    const Verdict verdict = is_wave ? check_wave(path, std::move(file), strict) : check_movie(path);
    if (verdict.status != kFileUsable || !graph) return verdict;
    const Reason why = graph(path);
    return why ? Verdict{kFileNoGraph, why} : verdict;
}

}  // namespace

std::string MovieFileMessageKey(MovieFileStatus status) {
    switch (status) {
        case kFileUsable:
            return {};
        case kFileUnreadable:
        case kFileNoGraph:
            return "IDS_MSG_CANT_START_APP_BECAUSE_MODULE_FILE_IS_NOT_FOUND_OR_BROKEN";
        case kFileUnsupported:
            break;
    }
    return "IDS_MSG_CANT_OPEN_UNSUPPORTED_FILE_TYPE";
}

MovieFileStatus CheckOpenMovie(const CMP4MovieInput& movie, Reason* reason) {
    *reason = {};
    // A clip without any sound can still be cut.
    const uint32_t channels = channel_count(movie.GetInfo());
    if (!movie.HasAudio() || channels == 2) return kFileUsable;
    *reason = {ReasonCode::kSoundMono, ReasonSide::kSource, movie.Path(), {}};
    if (channels != 1) {
        reason->code = ReasonCode::kSoundChannels;
        reason->arguments = {uint64_t{channels}};
    }
    return kFileUnsupported;
}

MovieFileStatus CheckMovieFile(const std::string& path, bool strict, const GraphStep& graph,
                               Reason* reason) {
    if (XpPath::HasExtension(path, ".mp4") || XpPath::HasExtension(path, ".wav"))
        return CheckAnyFile(path, strict, graph, reason);
    if (reason) *reason = {ReasonCode::kNotMovieOrWave, ReasonSide::kSource, path, {}};
    return kFileUnsupported;
}

MovieFileStatus CheckAnyFile(const std::string& path, bool strict, const GraphStep& graph,
                             Reason* reason) {
    Verdict verdict{kFileUnreadable, {ReasonCode::kOutOfMemory, ReasonSide::kNone, path, {}}};
    try {
        verdict = check(path, strict, graph);
    } catch (const std::bad_alloc&) {
    }
    if (reason) *reason = verdict.reason;
    return verdict.status;
}

}  // namespace tarn
