// sound_effect_stream.h - what the sound-effect filter does to the sound, free of any graph.
//
// Two threads meet here without a lock. The control thread calls ISoundEffect: it makes whatever
// needs memory and gives back what the other has done with. The streaming thread calls the rest:
// Process never waits, allocates or frees.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "effects/effect_chain.h"
#include "playback/level_meter.h"
#include "playback/sound_effect.h"

namespace tarn {

class SoundEffectStream final : public ISoundEffect {
public:
    SoundEffectStream() = default;
    SoundEffectStream(const SoundEffectStream&) = delete;
    SoundEffectStream& operator=(const SoundEffectStream&) = delete;
    ~SoundEffectStream();  // when both threads are done

    HRESULT SetSampleRate(int32_t rate) override;
    HRESULT SetEffects(const AMPEffectSettings* settings) override;
    HRESULT SetInPoint(int32_t ms) override { return Store(ms, &m_in); }
    HRESULT SetOutPoint(int32_t ms) override { return Store(ms, &m_out); }
    HRESULT SetPosition(int32_t ms) override { return Store(ms, &m_toldPosition); }
    SoundLevels GetLevels() const override { return m_meter.Read(); }

    // The rate of what follows; allocates. False for one that no chain takes. Where memory is short
    // the sound passes untreated.
    [[nodiscard]] bool SetFormat(uint32_t rate);
    // What follows has nothing to do with what was before.
    void Flush();
    // `frames` of left and right sample in turn, in place; does nothing before SetFormat. `time`:
    // nanoseconds of the clip at the first one; none: right after the last block, or where
    // SetPosition says after a flush. A block elsewhere begins with silent filters.
    void Process(int16_t* samples, uint32_t frames, std::optional<uint64_t> time);

private:
    // A change on its way from thread to thread.
    struct Parcel {
        AMPEffectChangePtr change;
        AMPEffectSettings settings;
        Parcel* next = nullptr;
    };

    std::unique_ptr<Parcel> Prepare(const AMPEffectSettings& settings, Parcel* superseded) const;
    static void Free(Parcel* parcels);
    static HRESULT Store(int32_t ms, std::atomic<int32_t>* place);
    void TakeChange();
    uint64_t FirstFrame(std::optional<uint64_t> time);
    void Treat(int16_t* samples, uint32_t frames, uint64_t first);
    void Blend(int16_t* samples, uint32_t frames);

    // The control thread's.
    AMPEffectSettings m_requested;  // bypass apart

    // Both threads'.
    std::atomic<Parcel*> m_pending{nullptr};  // the newest change, not yet taken
    std::atomic<Parcel*> m_used{nullptr};     // a stack: pushed by one, emptied by the other
    std::atomic<uint32_t> m_toldRate{48000};  // Hz; the camera's until we know more
    std::atomic<uint32_t> m_streamRate{0};    // Hz; 0: not known yet
    std::atomic<int32_t> m_in{0}, m_out{0};   // ms
    std::atomic<int32_t> m_toldPosition{-1};  // ms; below 0: none

    // The streaming thread's.
    AMPEffectChainPtr m_chain;
    AMPEffectSettings m_applied;  // also while there is no chain; bypass apart
    bool m_bypass = false;
    // How much of the untreated sound is heard, in parts of the frames that a switch takes.
    uint32_t m_plain = 0, m_switchFrames = 1;
    bool m_fresh = true;         // nothing was heard since the last flush
    std::vector<int16_t> m_dry;  // a block as it came
    LevelMeter m_meter;          // read by any thread
    uint64_t m_next = 0;         // the frame of the clip that a gapless block begins with
    bool m_timed = false;        // a block since the last flush had a time
};

}  // namespace tarn
