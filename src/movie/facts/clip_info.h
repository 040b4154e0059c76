// clip_info.h - what a clip is, for people and scripts: more lenient than the movie objects, so
// that files this program can't edit can still be looked at.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/reason.h"
#include "movie/objects/movie_info.h"

namespace tarn {

struct ClipTrackInfo {
    uint32_t number = 0;   // 1-based
    uint32_t codec = 0;    // four-character code of the first sample entry
    uint64_t bitRate = 0;  // bit/s over the track's whole length
    uint64_t samples = 0;  // as the tables say
    uint64_t missing = 0;  // of them, after the last whole one: the file ends early
    uint32_t timescale = 0;
    uint64_t duration = 0;  // media units
    std::vector<MovieEdit> edits;

    uint32_t width = 0, height = 0;  // pixels
    double frameRate = 0;            // average

    uint32_t channels = 0, sampleRate = 0, bits = 0;
};

struct ClipInfo {
    uint64_t size = 0;  // bytes
    uint32_t brand = 0, minor = 0;
    std::vector<uint32_t> compatible;
    uint64_t durationMs = 0;
    Mp4Date created{};  // UTC; year 0 when the file does not say
    std::optional<ClipTrackInfo> video, audio;
    bool hasProfile = false;
    uint32_t fileProfile = 0;
    std::optional<Mp4VideoProfile> videoProfile;
    std::optional<Mp4AudioProfile> audioProfile;
    std::vector<CMetaDataInfo> metadata;
    bool fragmented = false;
    Reason missing;  // tells of samples that lie beyond the end of the file
};

// Reads a clip's facts, or says why it has none to show.
[[nodiscard]] Reason ReadClipInfo(const std::string& path, ClipInfo* info);

// Channels of a sound description: what the decoder configuration says, else the entry.
uint32_t SoundChannels(const CAudioSampleDescriptionInfo& sound);

}  // namespace tarn
