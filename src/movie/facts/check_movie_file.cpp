#include "movie/facts/check_movie_file.h"

#include <new>

#include "base/xp_file.h"
#include "base/xp_path.h"
#include "effects/wave_header.h"
#include "movie/facts/clip_info.h"
#include "movie/facts/movie_text.h"
#include "movie/objects/movie_reader.h"

namespace tarn {
namespace {

struct Verdict {
    MovieFileStatus status;
    std::string reason;
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
    if (code == movie_code(FF4_RET_NOTFOUND) || code == movie_code(FF4_RET_NOMEM))
        return {kFileUnreadable, MovieCodeText(code, 0)};
    if (code != kMovieOk) return {kFileUnsupported, MovieCodeText(code, reader.LastError())};
    // A clip without any sound can still be cut.
    const uint32_t channels = channel_count(reader.GetInfo());
    if (reader.HasAudio() && channels != 2) {
        return {kFileUnsupported, "the sound has " + std::to_string(channels) + " channel" +
                                      (channels == 1 ? "" : "s") + "; only stereo can be edited"};
    }
    return {kFileUsable, {}};
}

Verdict check_wave(const std::string& path, bool strict) {
    XpFile file;
    if (const int error = file.Open(path, XpFile::Mode::kRead))
        return {kFileUnreadable, XpErrorText(error)};
    WaveHeader header{};
    const Reason reason = ReadWaveHeader(&file, &header);
    if (reason.SystemError() != 0) return {kFileUnreadable, ReasonText(reason)};
    if (reason && strict) return {kFileUnsupported, ReasonText(reason)};
    return {kFileUsable, {}};
}

Verdict check(const std::string& path, bool strict, const GraphStep& graph) {
    const bool movie = XpPath::HasExtension(path, ".mp4");
    if (!movie && !XpPath::HasExtension(path, ".wav"))
        return {kFileUnsupported, "neither an .mp4 nor a .wav file"};
    Verdict verdict = movie ? check_movie(path) : check_wave(path, strict);
    std::string why;
    if (verdict.status == kFileUsable && graph && !graph(path, &why))
        verdict = {kFileNoGraph, "no preview can be built for it: " + why};
    return verdict;
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

MovieFileStatus CheckMovieFile(const std::string& path, bool strict, const GraphStep& graph,
                               std::string* reason) {
    Verdict verdict{kFileUnreadable, "not enough memory"};
    try {
        verdict = check(path, strict, graph);
    } catch (const std::bad_alloc&) {
    }
    if (reason) *reason = verdict.reason;
    return verdict.status;
}

}  // namespace tarn
