// decoder_bins.h - the decoders of the preview, around the platform's own.
#pragma once

#include <string>

#include "playback/gst_handles.h"

namespace tarn {

// As the setting says it, the other way round: 1 keeps to the processor.
enum class DecoderMode { kHardware = 0, kSoftware = 1 };

// Bins with the pads "sink" and "src" for samples of that form. Null, with a `reason` for people,
// where no plug-in decodes them. Hardware decoders that can't be started are passed over.
[[nodiscard]] GstElementPtr MakeVideoDecoder(GstCaps* caps, DecoderMode mode, std::string* reason);
// Gives S16LE.
[[nodiscard]] GstElementPtr MakeAudioDecoder(GstCaps* caps, std::string* reason);

}  // namespace tarn
