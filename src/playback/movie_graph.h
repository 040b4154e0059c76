// movie_graph.h - the source side of a graph: from the file to decoded picture and sound.
#pragma once

#include <cstdint>
#include <string>

#include "playback/decoder_bins.h"
#include "playback/gst_handles.h"
#include "playback/source_splitter.h"

namespace tarn {

// What a source side ends in. Pads are null where the clip has no such track.
struct DecodedPins {
    GstPadPtr video, audio;
    int64_t duration = 0;   // 100-nanosecond units
    int32_t soundRate = 0;  // Hz, as the clip says; 0: it doesn't
};

// Adds "Source Splitter", "Kelo AVC Decoder Light" and "Audio Decoder" to the graph. A reason when
// a part of it is missing or the clip can't be read; what was added then stays until the graph is
// released.
[[nodiscard]] Reason AddMovieSource(GstElement* graph, const std::string& path, SourceTracks tracks,
                                    DecoderMode mode, DecodedPins* pins);

// Adds a WAV file under the name "Source". A source that is there already gets the new path.
[[nodiscard]] Reason AddWaveSource(GstElement* graph, const std::string& path, DecodedPins* pins);

}  // namespace tarn
