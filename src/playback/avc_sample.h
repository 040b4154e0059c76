// avc_sample.h - what a sample of an AVC track tells without being decoded.
#pragma once

#include <cstdint>
#include <span>

namespace tarn {

// Whether no other picture needs this one: all of its units, parameter sets among them, have
// nal_ref_idc 0 (ISO/IEC 14496-10, 7.4.1). `length_size`: bytes before each unit, 1 to 4.
// False for what is damaged.
[[nodiscard]] bool IsDisposableAvcSample(std::span<const uint8_t> sample, uint32_t length_size);

}  // namespace tarn
