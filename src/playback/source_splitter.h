// source_splitter.h - the "Source Splitter": a movie as a bin with a picture and a sound pad.
#pragma once

#include <string>

#include "playback/gst_handles.h"

namespace tarn {

constexpr char kVideoPin[] = "video", kAudioPin[] = "audio";

struct SourcePins {
    GstCapsPtr video, audio;  // what comes out of the pads; null where there is no such pad
    int turn = 0;             // of the picture, see picture_turn.h
};

enum class SourceTracks { kAll, kPictureAlone };

// Opens the movie. Null, with a `reason`, for one that can't be read and one that holds
// neither picture nor sound of a kind that has a name.
[[nodiscard]] GstElementPtr MakeSourceSplitter(const std::string& path, SourceTracks tracks,
                                               SourcePins* pins, Reason* reason);

}  // namespace tarn
