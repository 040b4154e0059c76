// effect_writer.h - a new movie, or a WAV file, whose sound has been treated and re-encoded.
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
    const SoundTreatment& Treated() const { return m_treatment; }
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

// The sound of a movie: AAC is treated and encoded again, PCM treated as it is.
class EffectSound final : public IMovieSound {
public:
    // The points of the selection in milliseconds, as handed to the chain.
    void SetPoints(uint32_t inMs, uint32_t outMs) {
        m_inMs = inMs;
        m_outMs = outMs;
    }
    void SetEffects(const AMPEffectSettings& settings) { m_settings = settings; }

    MovieCode Open(CMP4MovieRead* reader, const MovieWriteOptions& options) override;
    const Mp4SampleEntry* Description() const override;
    MovieCode Next(uint64_t most, int64_t startsAt, SoundBlock* block) override;
    MovieCode NextHeld(SoundBlock* block) override;
    uint64_t Delay() const override { return m_delay; }

private:
    MovieCode OpenEncoder(uint32_t timescale);
    void Describe();
    MovieCode Encode(SoundBlock* block);
    MovieCode TakeFrame(SoundBlock* block);

    uint32_t m_inMs = 0, m_outMs = 0;
    AMPEffectSettings m_settings;
    bool m_compensateDelay = false;
    SoundReader m_sound;
    UMC::AACEncoder m_encoder;
    UMC::MediaData m_frame;
    Mp4SampleEntry m_entry{};
    std::vector<uint8_t> m_config;  // AudioSpecificConfig, which the entry points at
    std::vector<int16_t> m_block;
    std::deque<uint32_t> m_durations;  // of the frames that are still to come, media units
    uint64_t m_delay = 0;              // media units
    bool m_started = false;
};

class CMP4MovieWriteWithAudioEffect final : public CMP4MovieWrite {
public:
    CMP4MovieWriteWithAudioEffect() { SetSound(&m_sound); }
    void SetPoints(uint32_t inMs, uint32_t outMs) { m_sound.SetPoints(inMs, outMs); }
    void SetEffects(const AMPEffectSettings& settings) { m_sound.SetEffects(settings); }

    using CMP4MovieWrite::Open;
    // With the movie after the media, and for as much media as the selection can come to.
    MovieCode Open(const XpSharedPtr<CMP4MovieRead>& reader);
    // What the file can come to. An opened writer's.
    uint64_t MostBytes() const { return m_mostBytes; }

private:
    EffectSound m_sound;
    uint64_t m_mostBytes = 0;
};

}  // namespace tarn
