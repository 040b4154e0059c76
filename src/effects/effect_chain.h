// effect_chain.h - the studio effects in their order, for blocks of 16-bit stereo sound.
//
// Create a chain for a sample rate, set the range and the settings, then process the blocks of one
// stream in their order: the filters remember what came before, however long the blocks are. No
// locks; one thread at a time.
//
// AMPEffectProcess allocates nothing and can't fail. New settings may need memory, for a reverb. A
// player therefore prepares the change on its control thread, applies it on the streaming thread
// between two blocks, and discards it on the control thread: the streaming thread never allocates,
// frees or waits.
#pragma once

#include <cstdint>
#include <memory>

#include "effects/effect_settings.h"

namespace tarn {

// Hz. Outside of these nothing is sound that anybody means.
constexpr uint32_t kMinSampleRate = 1000;
constexpr uint32_t kMaxSampleRate = 384000;

class AMPEffectChain;

// Null for a rate out of range or when memory is short. All effects are off.
[[nodiscard]] AMPEffectChain* AMPEffectCreate(uint32_t sample_rate);
void AMPEffectDestroy(AMPEffectChain* chain);

struct AMPEffectDeleter {
    void operator()(AMPEffectChain* chain) const { AMPEffectDestroy(chain); }
};
using AMPEffectChainPtr = std::unique_ptr<AMPEffectChain, AMPEffectDeleter>;

// The range that the fade works on, in the milliseconds of the blocks' positions. End 0: none.
void AMPEffectSetRange(AMPEffectChain* chain, uint32_t start_ms, uint32_t end_ms);
void AMPEffectSetStart(AMPEffectChain* chain, uint32_t ms);
void AMPEffectSetEnd(AMPEffectChain* chain, uint32_t ms);

// A changed reverb begins silent; other changes act from the next block on. The peak counts when
// the normalise setting changes. False: memory is short, and the chain is as it was.
[[nodiscard]] bool AMPEffectSetParameters(AMPEffectChain* chain, const AMPEffectSettings& settings);

// A change of settings with the memory that it needs. It belongs to one thread at a time.
class AMPEffectChange;

// Prepares a change from the settings `from` to the settings `to`, for any chain of that rate. If a
// change to `from` was prepared before but not applied, give it as `superseded`, else null: the new
// change then does what both would have done, and may take the reverb of the other. Null for a rate
// out of range, or when memory is short; `superseded` is then as it was. It is the caller's to
// discard in any case.
[[nodiscard]] AMPEffectChange* AMPEffectPrepare(uint32_t sample_rate, const AMPEffectSettings& from,
                                                const AMPEffectSettings& to,
                                                AMPEffectChange* superseded);
// Once for each change. Allocates and frees nothing: the change keeps what the chain no longer
// needs. False: it was prepared for another rate, and the chain is as it was.
[[nodiscard]] bool AMPEffectApply(AMPEffectChain* chain, AMPEffectChange* change);
void AMPEffectDiscard(AMPEffectChange* change);

struct AMPEffectChangeDeleter {
    void operator()(AMPEffectChange* change) const { AMPEffectDiscard(change); }
};
using AMPEffectChangePtr = std::unique_ptr<AMPEffectChange, AMPEffectChangeDeleter>;

// Forgets the sound so far; settings and range stay. For a jump in the stream. Allocates nothing.
void AMPEffectReset(AMPEffectChain* chain);

// `frames` of left and right sample in turn. `output` may be `input`. `position_ms` is the time of
// the block's first frame and matters to the fade alone. But for bypass, the largest samples that
// come out are 32766 and -32766; that is intended.
void AMPEffectProcess(AMPEffectChain* chain, int16_t* output, const int16_t* input, uint32_t frames,
                      uint32_t position_ms);

}  // namespace tarn
