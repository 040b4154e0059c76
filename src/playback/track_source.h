// track_source.h - a source element that gives one track of a movie to the graph.
//
// Seeks are accurate: a segment begins at the very time, and what has to be decoded before it
// comes first, with earlier timestamps. Times before the movie's start can't be told in
// timestamps, so all of them carry an offset that the segment takes off again.
#pragma once

#include <memory>

#include "playback/gst_handles.h"
#include "playback/track_feed.h"

namespace tarn {

// Takes an open feed. Null when the track's kind is none that GStreamer has a name for.
[[nodiscard]] GstElementPtr MakeTrackSource(std::unique_ptr<TrackFeed> feed);

// Why the source that posted an error did; no reason for an element of another kind.
Reason TrackSourceReason(gpointer element);

// The form of the track's samples under its description number `index`, from 0; null for a kind
// that has no name.
[[nodiscard]] GstCapsPtr MakeTrackCaps(const TrackFeed& feed, uint32_t index);

// Lets all tracks of a graph that was not started yet begin at `time`, in nanoseconds of the movie,
// so that no seek has to follow. False for a graph without such sources.
bool StartTracksAt(GstElement* graph, int64_t time);

}  // namespace tarn
