// effect_chain.h - the studio effects in their order, for blocks of 16-bit stereo sound.
//
// Create a chain for a sample rate, set the range and the parameters, then process blocks in the
// order of the stream: the history of the filters goes on from block to block, whatever their
// length, so a chain serves one stream. It takes no locks; one thread at a time.
//
// Settings are copied at the call. AMPEffectProcess allocates nothing and can't fail. New settings
// may need memory, so a player prepares the change on its control thread, hands it to the streaming
// thread to be applied between two blocks, and discards it on the control thread again: the thread
// that drives the chain never allocates, frees or waits.
#pragma once

#include <cstdint>
#include <memory>

#include "effects/effect_settings.h"

namespace tarn {

// Hz. Outside of these nothing is sound that anybody means.
constexpr uint32_t kMinSampleRate = 1000;
constexpr uint32_t kMaxSampleRate = 1000000;

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

// What a change of settings needs, made ahead of it. It belongs to one thread at a time.
class AMPEffectChange;

// A change of any chain of that rate from the settings `from` to the settings `to`. `superseded`:
// a change to `from` that was prepared and then not applied, or null. What the chain has missed
// with it comes with the new change, which may take over its memory. Null for a rate out of range,
// or when memory is short; `superseded` is as it was then. Discard it in both cases.
[[nodiscard]] AMPEffectChange* AMPEffectPrepare(uint32_t sample_rate, const AMPEffectSettings& from,
                                                const AMPEffectSettings& to,
                                                AMPEffectChange* superseded);
// Once. Allocates and frees nothing: the change carries away what the chain needs no more. False:
// it was prepared for another rate, and the chain is as it was.
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
