#include "playback/source_splitter.h"

#include <utility>

#include "movie/engine/tracks.h"
#include "playback/picture_turn.h"
#include "playback/track_feed.h"
#include "playback/track_source.h"

namespace tarn {
namespace {

// Compressed samples read ahead of the decoder: a slow card must not be heard.
constexpr guint kAheadBytes = 16 << 20;
constexpr guint64 kAheadTime = 2 * GST_SECOND;

int turn_of(const TrackFeed& feed) {
    Mp4TrackHeaderInfo header{};
    const Mp4Result result =
        mp4_get_track_header(feed.Session(), feed.Track().trackNumber, &header);
    return result == FF4_RET_OK ? TurnOfMatrix(header.matrix) : 0;
}

// True, with no caps, for a movie without such a track or with one of an unknown kind.
bool add_track(GstElement* bin, const std::string& path, TrackFeed::Kind kind, GstCapsPtr* caps,
               int* turn, Reason* reason) {
    auto feed = std::make_unique<TrackFeed>();
    *reason = feed->Open(path, kind);
    if (*reason) return reason->code == TrackFeed::NoTrack(kind);
    GstCapsPtr form = feed->Caps(0);
    if (!form) {
        *reason = {ReasonCode::kNoPlugin, ReasonSide::kSource, path, {ReasonAtom{feed->Format()}}};
        return true;
    }
    if (turn) *turn = turn_of(*feed);
    const char* pin = kind == TrackFeed::Kind::kVideo ? kVideoPin : kAudioPin;
    *reason = AddFeed(bin, std::move(feed), pin);
    if (!*reason) *caps = std::move(form);
    return !*reason;
}

}  // namespace

Reason AddFeed(GstElement* bin, std::unique_ptr<SampleFeed> feed, const char* pin) {
    const GstElementPtr source = MakeTrackSource(std::move(feed));
    GstElement* queue = AddElement(bin, "queue");
    if (source) gst_object_set_name(GST_OBJECT(source.get()), pin);
    if (!source || !queue || !gst_bin_add(GST_BIN(bin), source.get())) return MissingPart("queue");
    g_object_set(queue, "max-size-buffers", 0u, "max-size-bytes", kAheadBytes, "max-size-time",
                 kAheadTime, nullptr);
    if (!gst_element_link(source.get(), queue) || !AddGhostPad(bin, queue, "src", pin))
        return MissingPart("queue");
    return {};
}

GstElementPtr MakeSourceSplitter(const std::string& path, SourceTracks tracks, SourcePins* pins,
                                 Reason* reason) {
    GstElementPtr bin = MakeBin("Source Splitter");
    Reason video;
    if (!add_track(bin.get(), path, TrackFeed::Kind::kVideo, &pins->video, &pins->turn, &video)) {
        *reason = video;
        return nullptr;
    }
    if (tracks == SourceTracks::kAll &&
        !add_track(bin.get(), path, TrackFeed::Kind::kAudio, &pins->audio, nullptr, reason))
        return nullptr;
    if (pins->video || pins->audio) return bin;
    *reason = video;
    return nullptr;
}

}  // namespace tarn
