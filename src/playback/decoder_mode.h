// decoder_mode.h - which decoders of pictures a graph may have.
#pragma once

namespace tarn {

// As the setting for hardware acceleration says it, the other way round: 1 keeps to the processor.
enum class DecoderMode { kHardware = 0, kSoftware = 1 };

constexpr DecoderMode DecoderModeFor(bool useHardwareAcceleration) {
    return useHardwareAcceleration ? DecoderMode::kHardware : DecoderMode::kSoftware;
}

}  // namespace tarn
