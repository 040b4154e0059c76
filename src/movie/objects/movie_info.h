// movie_info.h - what a movie is, as read: the one record that the editor, the properties and the
// writer take their facts from. Facts alone: who walks a track has a TrackCursor.
#pragma once

#include <cstdint>
#include <vector>

#include "movie/engine/descriptions.h"
#include "movie/engine/meta_lists.h"
#include "movie/engine/session.h"
#include "movie/engine/tracks.h"

namespace tarn {

// One entry of a track's sample description with its configuration.
struct CVideoSampleDescriptionInfo {
    uint32_t index = 0;  // 1-based, as samples name it
    Mp4VideoEntry entry{};
    std::vector<uint8_t> decoderConfig;  // 'esds' behind version and flags
    // Intended: with several sets the last one of each kind is kept. `avcConfig` has them all.
    std::vector<uint8_t> spsData, ppsData;
    std::vector<uint8_t> extraData;  // payload of the '3DDS' block
    Mp4AvcInfo avc{};
    std::vector<uint8_t> avcConfig;            // the whole payload of 'avcC'
    std::vector<uint8_t> hevcConfig;           // the payload of 'hvcC'
    std::vector<uint8_t> pixelAspect, colour;  // payloads of 'pasp' and 'colr'
};

struct CAudioSampleDescriptionInfo {
    uint32_t index = 0;
    Mp4AudioEntry entry{};
    std::vector<uint8_t> decoderConfig;
    uint8_t objectType = 0;                           // of the decoder configuration; 0x40 is AAC
    uint32_t averageBitRate = 0, maximumBitRate = 0;  // bit/s, as the configuration says
};

struct CMetaDataInfo {
    uint32_t type = 0;
    uint8_t flag = 0;
    uint16_t language = 0, encoding = 0;
    std::vector<uint8_t> data;
    uint32_t index = 0;  // 1-based
};

struct CMetaTypeDefinition {
    uint32_t type = 0;
    uint16_t field1 = 0, field2 = 0;
    uint8_t name[32] = {};  // not filled on reading
    std::vector<uint8_t> data;
    uint32_t index = 0;
};

struct MovieEdit {
    uint64_t segmentDuration;  // movie units
    int64_t mediaTime;         // media units; -1 is an empty edit
    uint32_t rate;             // 16.16
};

// One selected track. A trackNumber of 0 means that there is none: the test used everywhere.
struct MovieTrackInfo {
    uint32_t timescale = 0;
    uint64_t duration = 0;  // media units
    uint32_t sampleCount = 0;
    uint32_t missingSamples = 0;  // after the last whole one, where they were looked for
    uint32_t averageBitRate = 0, maximumBitRate = 0;  // kbit/s, of the profile record
    uint32_t trackNumber = 0;
    uint64_t defaultDuration = 0;  // of the first sample
    uint32_t compositionSigned = 0;
    std::vector<MovieEdit> edits;
    uint32_t role = 0;
    uint16_t roleDetail = 0;
    uint32_t width = 0, height = 0;  // of the sound track's header; only carried along
};

constexpr uint32_t kProfileFragmented = 1u << 28;  // of a file profile

struct CMovieInfoType {
    uint32_t majorBrand = 0, minorVersion = 0;
    uint32_t hasBrandMsnv = 0, hasBrandIsom = 0, hasBrandMp42 = 0;
    Mp4Date creationDate{}, modificationDate{};
    uint32_t timescale = 0;
    uint64_t duration = 0;  // movie units
    uint32_t fileProfile = 0;
    MovieTrackInfo video, audio;
    uint64_t videoDurationMovie = 0;  // of the video track, in media units
    uint32_t editTimescale = 0;
    uint64_t editDuration = 0;
    Mp4VideoProfile videoProfile{};
    Mp4AudioProfile audioProfile{};
    std::vector<CVideoSampleDescriptionInfo> videoDescriptions;
    std::vector<CAudioSampleDescriptionInfo> audioDescriptions;
    std::vector<CMetaDataInfo> metaData;
    std::vector<CMetaTypeDefinition> metaTypes;
};

}  // namespace tarn
