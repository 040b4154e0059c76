// effect_writer.h - a new movie, or a WAV file, whose sound has been treated and re-encoded.
#pragma once

#include <cstdint>
#include <deque>

#include "movie/objects/movie_writer.h"
#include "movie/save/sound_treatment.h"
#include "movie/umc/aac_encoder.h"

namespace tarn {

// What of the selection's sound was silence because it could not be decoded.
struct SoundDamage {
    uint64_t samples = 0;    // of the source
    uint64_t firstTime = 0;  // when the first of them is decoded, media units
};

// What both kinds of output do with the sound: read, decode, treat.
class SoundReader {
public:
    // `startMs` and `endMs` are the points of the selection, for the fade and the positions.
    MovieCode Open(CMP4MovieRead* reader, const AMPEffectSettings& settings, uint32_t startMs,
                   uint32_t endMs, bool warmUp);

    // Reads and treats what comes next: one AAC sample, or a run of PCM. Samples() is 0 when the
    // next sample is longer than `most` media units. `startsAt` is how far into the sound track's
    // own time the selection's first shown sound lies. kMovieCodec for one that can't be decoded:
    // with the reader's option to silence damage, when more than half of the selection can't.
    MovieCode Next(uint64_t most, int64_t startsAt);

    SoundTreatment& Treated() { return m_treatment; }
    const SoundTreatment& Treated() const { return m_treatment; }
    uint32_t Samples() const { return m_samples; }          // of the last Next
    uint32_t SampleDuration() const { return m_duration; }  // of each, media units
    uint64_t Taken() const { return uint64_t{m_samples} * m_duration; }
    uint32_t Description() const { return m_description; }  // position in the list
    uint32_t Selected() const { return m_selected; }        // samples in all
    const SoundDamage& Damage() const { return m_damage; }
    // Of Next's kMovieCodec.
    const Reason& GetReason() const { return m_reason; }

private:
    MovieCode WarmUp();
    MovieCode TreatSamples(const ReadSampleInfo& info, uint32_t positionMs);
    MovieCode Refuse(ReasonCode code, uint64_t number);
    bool IsAsDescribed() const;
    uint32_t Position(int64_t startsAt) const;

    CMP4MovieRead* m_reader = nullptr;
    SoundTreatment m_treatment;
    CReadBuffer m_buffer;
    uint32_t m_startMs = 0;
    uint64_t m_time = 0;  // media units taken so far
    uint32_t m_samples = 0, m_duration = 0, m_description = 0;
    uint32_t m_selected = 0;
    SoundDamage m_damage;
    Reason m_reason;
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
    const SoundReader& Reading() const { return m_sound; }

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
    const SoundReader& Sound() const { return m_sound.Reading(); }
    // What the file can come to. An opened writer's.
    uint64_t MostBytes() const { return m_mostBytes; }

private:
    EffectSound m_sound;
    uint64_t m_mostBytes = 0;
};

}  // namespace tarn
