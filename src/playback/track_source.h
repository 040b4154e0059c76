// track_source.h - a source element that gives a feed's samples to the graph.
//
// Seeks are accurate: a segment begins at the very time, and what has to be decoded before it
// comes first, with earlier timestamps. Times before the clip's start can't be told in
// timestamps, so all of them carry an offset that the segment takes off again.
#pragma once

#include <memory>

#include "playback/gst_handles.h"
#include "playback/sample_feed.h"

namespace tarn {

// Takes an open feed. Null when its form is none that GStreamer has a name for.
[[nodiscard]] GstElementPtr MakeTrackSource(std::unique_ptr<SampleFeed> feed);
// Another one in its place, in a graph that is stopped.
void ReplaceFeed(GstElement* source, std::unique_ptr<SampleFeed> feed);

// Why the source that posted an error did; no reason for an element of another kind.
Reason TrackSourceReason(gpointer element);

// Lets all tracks of a graph that was not started yet begin at `time`, in nanoseconds of the clip,
// so that no seek has to follow. False for a graph without such sources.
bool StartTracksAt(GstElement* graph, int64_t time);

}  // namespace tarn
