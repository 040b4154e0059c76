// effect_writer.h - a new movie, or a WAV file, whose sound has been treated and made anew.
#pragma once

#include <cstdint>
#include <deque>

#include "movie/objects/movie_writer.h"
#include "movie/save/sound_treatment.h"
#include "movie/umc/aac_encoder.h"

namespace tarn {

// What both kinds of output do with the sound: read, decode, treat.
class SoundReader {
public:
    // `startMs` and `endMs` are the points of the selection, for the fade and the positions.
    MovieCode Open(CMP4MovieRead* reader, const AMPEffectSettings& settings, uint32_t startMs,
                   uint32_t endMs, bool warmUp);

    // Reads and treats what comes next: one AAC sample, or a run of PCM. `taken` is its duration in
    // media units; 0 when the next sample is longer than `most`. `startsAt` is how far into the
    // sound track's own time the selection's first shown sound lies.
    MovieCode Next(uint64_t most, int64_t startsAt, uint64_t* taken);

    SoundTreatment& Treated() { return m_treatment; }
    uint32_t Samples() const { return m_samples; }          // of the last Next
    uint32_t SampleDuration() const { return m_duration; }  // of each, media units
    uint32_t Description() const { return m_description; }  // position in the list

private:
    MovieCode WarmUp();
    uint32_t Position(int64_t startsAt) const;

    CMP4MovieRead* m_reader = nullptr;
    SoundTreatment m_treatment;
    CReadBuffer m_buffer;
    uint32_t m_startMs = 0;
    uint64_t m_time = 0;  // media units taken so far
    uint32_t m_samples = 0, m_duration = 0, m_description = 0;
    bool m_warmUp = false, m_started = false;
};

class CMP4MovieWriteWithAudioEffect final : public CMP4MovieWrite {
public:
    // The points of the selection in milliseconds, as handed to the chain.
    void SetPoints(uint32_t inMs, uint32_t outMs) {
        m_inMs = inMs;
        m_outMs = outMs;
    }
    void SetEffects(const AMPEffectSettings& settings) { m_settings = settings; }

protected:
    MovieCode DescribeSound() override;
    void AdjustProfile(Mp4ProfileBuild* profile) const override;
    MovieCode TakeSound(uint64_t most, Chunk* chunk, uint64_t* taken) override;
    MovieCode FinishSound(Chunk* chunk) override;
    uint64_t SoundDelay() const override { return m_delay; }

private:
    MovieCode OpenEncoder();
    MovieCode DescribeAac();
    MovieCode Encode(Chunk* chunk);
    MovieCode StoreFrame(Chunk* chunk);

    uint32_t m_inMs = 0, m_outMs = 0;
    AMPEffectSettings m_settings;
    SoundReader m_sound;
    UMC::AACEncoder m_encoder;
    UMC::MediaData m_frame;
    std::vector<int16_t> m_block;
    std::deque<uint32_t> m_durations;  // of the frames that are still to come, media units
    uint64_t m_delay = 0;              // media units
    bool m_started = false;
};

}  // namespace tarn
