// source_splitter.h - the "Source Splitter": a movie as a bin with a picture and a sound pad.
#pragma once

#include <memory>
#include <string>

#include "base/reason.h"
#include "playback/gst_handles.h"
#include "playback/sample_feed.h"

namespace tarn {

constexpr char kVideoPin[] = "video", kAudioPin[] = "audio";

// Puts a source for the feed and a queue after it into the bin, under the name of the pad.
[[nodiscard]] Reason AddFeed(GstElement* bin, std::unique_ptr<SampleFeed> feed, const char* pin);

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
