// wave_writer.h - the treated sound of a selection as a WAV file: 16-bit stereo.
#pragma once

#include "base/xp_output_file.h"
#include "base/xp_shared_ptr.h"
#include "movie/save/effect_writer.h"

namespace tarn {

class WaveWriter {
public:
    void SetOptions(const MovieWriteOptions& options) { m_options = options; }
    // kMovieTooLarge when the file would pass what a WAV header can say.
    MovieCode Open(const std::string& path, XpSharedPtr<CMP4MovieRead> reader,
                   const AMPEffectSettings& settings, uint32_t inMs, uint32_t outMs);
    // Some more of the sound. kMovieDone behind the last.
    MovieCode WriteNext();
    MovieCode Close();

    int32_t LastError() const { return m_lastError; }
    uint64_t SamplesRead() const { return m_samplesRead; }
    uint64_t Frames() const { return m_written; }
    // What the whole file will have.
    uint64_t AnnouncedBytes() const;

private:
    MovieCode WriteHeader();
    MovieCode Failed(int error);
    MovieCode WriteFrames(const int16_t* pcm, uint64_t frames);

    MovieWriteOptions m_options;
    XpSharedPtr<CMP4MovieRead> m_reader;
    XpOutputFile m_output;
    CWriteBuffer m_buffer;
    SoundReader m_sound;
    uint64_t m_frames = 0;  // that the header announces
    uint64_t m_written = 0;
    uint64_t m_skip = 0;     // frames before the selection's first
    int64_t m_startsAt = 0;  // the same in media units
    uint64_t m_samplesRead = 0;
    int32_t m_lastError = 0;
};

}  // namespace tarn
