// wave_feed.h - the sound of a WAV file as a player wants it: of more kinds than those that can be
// edited.
#pragma once

#include <cstdint>
#include <string>

#include "base/xp_file.h"
#include "playback/sample_feed.h"

namespace tarn {

class WaveFeed : public SampleFeed {
public:
    // A reason for one that can't be read, holds no sound, or sound of a form that isn't known.
    Reason Open(const std::string& path);

    int32_t Rate() const { return static_cast<int32_t>(m_form.rate); }  // Hz
    // Of what is there: a file may end before the sound that it claims.
    int64_t DurationNs() const override { return ToNs(m_frames); }
    GstCapsPtr Caps(uint32_t description) const override;
    bool IsCodedSound() const override { return false; }
    MovieCode SeekTo(int64_t time, int64_t end) override;
    MovieCode Next(FeedSample* sample) override;
    Reason ReasonOf(MovieCode code) override { return code == kMovieOk ? Reason{} : m_reason; }

private:
    struct Form {
        uint32_t code = 0, channels = 0, rate = 0, frameBytes = 0, bits = 0, speakers = 0;
    };

    int Walk(uint64_t length);
    int ReadForm(uint64_t offset, uint64_t size);
    const char* SampleFormat() const;
    int64_t ToNs(uint64_t frame) const;
    uint64_t ToFrame(int64_t time) const;

    XpFile m_file;
    std::string m_path;
    Reason m_reason;  // of the last failure
    Form m_form;
    uint64_t m_offset = 0;           // of the sound in the file; 0: none was found
    uint64_t m_frames = 0;           // of it that are in the file
    uint64_t m_next = 0, m_end = 0;  // frames
};

}  // namespace tarn
