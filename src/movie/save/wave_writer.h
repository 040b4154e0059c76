// wave_writer.h - the treated sound of a selection as a WAV file: 16-bit stereo.
#pragma once

#include <string>

#include "base/reason.h"
#include "base/xp_output_file.h"
#include "base/xp_shared_ptr.h"
#include "movie/save/effect_writer.h"

namespace tarn {

class WaveWriter {
public:
    void SetPath(const std::string& path) { m_path = path; }
    void SetOptions(const MovieWriteOptions& options) { m_options = options; }
    void SetEffects(const AMPEffectSettings& settings) { m_settings = settings; }
    // The points of the selection in milliseconds, as handed to the chain.
    void SetPoints(uint32_t inMs, uint32_t outMs) {
        m_inMs = inMs;
        m_outMs = outMs;
    }

    // kMovieTooLarge when the file would pass what a WAV header can say.
    MovieCode Open(XpSharedPtr<CMP4MovieRead> reader);
    // Some more of the sound. kMovieDone after the last.
    MovieCode WriteNext();
    // The file is complete, but for its name.
    MovieCode Finish();
    std::string HiddenPath() const { return m_output.TemporaryPath(); }
    // Gives the finished file its name.
    MovieCode Close();

    // Of a failure of the output; the reader has its own.
    const Reason& GetReason() const { return m_reason; }
    uint64_t Done() const { return m_samplesRead; }
    uint64_t Total() const { return m_samples; }  // of the source
    const SoundReader& Sound() const { return m_sound; }
    WrittenTrack Video() const { return {}; }
    WrittenTrack Audio() const { return {.samples = m_written, .bytes = m_written * 4}; }
    // What the whole file has in the end.
    uint64_t FileBytes() const;
    uint64_t MostBytes() const { return FileBytes(); }

private:
    MovieCode Plan();
    MovieCode WriteHeader();
    MovieCode Told(int error);
    MovieCode WriteFrames(const int16_t* pcm, uint64_t frames);

    std::string m_path;
    MovieWriteOptions m_options;
    AMPEffectSettings m_settings;
    uint32_t m_inMs = 0, m_outMs = 0;
    XpSharedPtr<CMP4MovieRead> m_reader;
    XpOutputFile m_output;
    CWriteBuffer m_buffer;
    SoundReader m_sound;
    uint64_t m_frames = 0;  // that the header announces
    uint64_t m_written = 0;
    uint64_t m_skip = 0;     // frames before the selection's first
    int64_t m_startsAt = 0;  // the same in media units
    uint64_t m_samples = 0, m_samplesRead = 0;
    Reason m_reason;
};

}  // namespace tarn
