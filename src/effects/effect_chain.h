// effect_chain.h - the studio effects in their order, for blocks of 16-bit stereo sound.
//
// Create a chain for a sample rate, set the range and the parameters, then process blocks in the
// order of the stream: the history of the filters goes on from block to block, whatever their
// length, so a chain serves one stream. It takes no locks; one thread at a time.
//
// Settings are copied at the call. AMPEffectProcess allocates nothing and can't fail, so a player
// may call it from its streaming thread, and AMPEffectSetParameters from another under a lock that
// guards both.
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

// `frames` of left and right sample in turn. `output` may be `input`. `position_ms` is the time of
// the block's first frame and matters to the fade alone. But for bypass, the largest samples that
// come out are 32766 and -32766; that is intended.
void AMPEffectProcess(AMPEffectChain* chain, int16_t* output, const int16_t* input, uint32_t frames,
                      uint32_t position_ms);

}  // namespace tarn
