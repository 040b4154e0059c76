#include "playback/source_splitter.h"

#include <utility>

#include "playback/track_source.h"

namespace tarn {
namespace {

// Compressed samples read ahead of the decoder: a slow card must not be heard.
constexpr guint kAheadBytes = 16 << 20;
constexpr guint64 kAheadTime = 2 * GST_SECOND;

// Adds a source and its queue and shows them as the bin's pad. True, with no caps, for a movie
// without such a track.
bool add_track(GstElement* bin, const std::string& path, TrackFeed::Kind kind, const char* pin,
               GstCapsPtr* caps, std::string* reason) {
    auto feed = std::make_unique<TrackFeed>();
    const MovieCode code = feed->Open(path, kind, reason);
    if (code == kMovieNoTrack) return true;
    if (code != kMovieOk) return false;
    GstCapsPtr form = MakeTrackCaps(*feed, 0);
    *reason = kind == TrackFeed::Kind::kVideo ? "its picture is of an unknown kind"
                                              : "its sound is of an unknown kind";
    if (!form) return true;
    const GstElementPtr source = MakeTrackSource(std::move(feed), path);
    if (!source || !gst_bin_add(GST_BIN(bin), source.get())) return false;
    GstElement* queue = AddElement(bin, "queue");
    *reason = "GStreamer's core elements are missing";
    if (!queue) return false;
    g_object_set(queue, "max-size-buffers", 0u, "max-size-bytes", kAheadBytes, "max-size-time",
                 kAheadTime, nullptr);
    if (!gst_element_link(source.get(), queue) || !AddGhostPad(bin, queue, "src", pin))
        return false;
    *caps = std::move(form);
    reason->clear();
    return true;
}

}  // namespace

GstElementPtr MakeSourceSplitter(const std::string& path, SourceTracks tracks, SourcePins* pins,
                                 std::string* reason) {
    GstElementPtr bin = MakeBin("Source Splitter");
    std::string video, audio;
    if (!add_track(bin.get(), path, TrackFeed::Kind::kVideo, kVideoPin, &pins->video, &video)) {
        *reason = video;
        return nullptr;
    }
    if (tracks == SourceTracks::kAll &&
        !add_track(bin.get(), path, TrackFeed::Kind::kAudio, kAudioPin, &pins->audio, &audio)) {
        *reason = audio;
        return nullptr;
    }
    *reason = video.empty() ? audio : video;
    return pins->video || pins->audio ? std::move(bin) : nullptr;
}

}  // namespace tarn
