// sample_list.h - the samples of one track of a file, for listing.
#pragma once

#include <string>

#include "base/reason.h"
#include "movie/engine/samples.h"
#include "movie/facts/clip_session.h"

namespace tarn {

struct SampleRow {
    uint32_t number = 0;  // 1-based
    uint64_t time = 0;    // decoding time, media units
    Mp4SampleInfo info{};
};

class SampleList {
public:
    // `track` is "video", "audio" (the tracks that would be edited, else the first of their kind)
    // or a track number; empty stands for the picture, else the sound.
    [[nodiscard]] Reason Open(const std::string& path, const std::string& track);

    // Samples of the track, fragments included.
    uint32_t Count() const { return m_count; }
    [[nodiscard]] Reason Row(uint32_t number, SampleRow* row);
    // The sample being decoded at a time in milliseconds of the track's own timeline.
    [[nodiscard]] Reason AtMs(uint64_t ms, SampleRow* row);
    // The first sync sample after `number`, which may be 0.
    [[nodiscard]] Reason NextSync(uint32_t number, SampleRow* row);

private:
    Mp4Result Find(uint32_t number, SampleRow* row);
    Mp4Result FindAtMs(uint64_t ms, SampleRow* row);
    Mp4Result FindNextSync(uint32_t number, SampleRow* row);
    Reason Why(Mp4Result result);

    ClipSession m_session;
    std::string m_path;
    uint32_t m_track = 0, m_count = 0;
};

}  // namespace tarn
