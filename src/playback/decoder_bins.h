// decoder_bins.h - the decoders of the preview, around the platform's own.
#pragma once

#include "playback/decoder_mode.h"
#include "playback/gst_handles.h"

namespace tarn {

constexpr char kVideoDecoderName[] = "Kelo AVC Decoder Light";

// Bins with the pads "sink" and "src" for samples of that form. Null, with a `reason`,
// where no plug-in decodes them. Hardware decoders that can't be started are passed over.
[[nodiscard]] GstElementPtr MakeVideoDecoder(GstCaps* caps, DecoderMode mode, Reason* reason);
// Gives S16LE.
[[nodiscard]] GstElementPtr MakeAudioDecoder(GstCaps* caps, Reason* reason);

}  // namespace tarn
