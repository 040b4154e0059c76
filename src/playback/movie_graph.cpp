#include "playback/movie_graph.h"

#include <memory>
#include <string_view>
#include <utility>

#include "playback/picture_turn.h"
#include "playback/track_source.h"
#include "playback/wave_feed.h"

namespace tarn {
namespace {

constexpr char kWaveSourceName[] = "Source";

// Puts a decoder, where one was found, into the graph and connects the source's pin to it.
void connect(GstElement* graph, GstElement* source, const char* pin, const GstElementPtr& decoder,
             GstPadPtr* out, Reason* reason) {
    if (!decoder) return;
    if (gst_bin_add(GST_BIN(graph), decoder.get()) &&
        gst_element_link_pads_full(source, pin, decoder.get(), "sink", GST_PAD_LINK_CHECK_DEFAULT))
        out->reset(gst_element_get_static_pad(decoder.get(), "src"));
    const bool picture = std::string_view(pin) == kVideoPin;
    if (!*out)
        *reason = {picture ? ReasonCode::kPictureNoDecoder : ReasonCode::kSoundNoDecoder,
                   ReasonSide::kDevice,
                   {},
                   {}};
}

// Between the decoder and who takes its pictures.
Reason turn(GstElement* graph, int turn, GstPadPtr* out) {
    if (turn == 0 || !*out) return {};
    const GstElementPtr turner = MakePictureTurner(turn);
    if (!turner || !gst_bin_add(GST_BIN(graph), turner.get()))
        return MissingPart(kPictureTurnerParts);
    const GstPadPtr input(gst_element_get_static_pad(turner.get(), "sink"));
    if (gst_pad_link(out->get(), input.get()) != GST_PAD_LINK_OK)
        return {ReasonCode::kPictureNoDecoder, ReasonSide::kDevice, {}, {}};
    out->reset(gst_element_get_static_pad(turner.get(), "src"));
    return {};
}

}  // namespace

Reason AddMovieSource(GstElement* graph, const std::string& path, SourceTracks tracks,
                      DecoderMode mode, DecodedPins* pins) {
    SourcePins ends;
    Reason reason;
    const GstElementPtr source = MakeSourceSplitter(path, tracks, &ends, &reason);
    if (!source) return reason;
    if (!gst_bin_add(GST_BIN(graph), source.get())) return MissingPart("bin");
    gint64 duration = 0;
    if (gst_element_query_duration(source.get(), GST_FORMAT_TIME, &duration))
        pins->duration = duration / 100;
    if (ends.audio) {
        gst_structure_get_int(gst_caps_get_structure(ends.audio.get(), 0), "rate",
                              &pins->soundRate);
    }
    reason = {};
    if (ends.video)
        connect(graph, source.get(), kVideoPin, MakeVideoDecoder(ends.video.get(), mode, &reason),
                &pins->video, &reason);
    if (!reason) reason = turn(graph, ends.turn, &pins->video);
    if (ends.audio && !reason)
        connect(graph, source.get(), kAudioPin, MakeAudioDecoder(ends.audio.get(), &reason),
                &pins->audio, &reason);
    return reason;
}

Reason AddWaveSource(GstElement* graph, const std::string& path, DecodedPins* pins) {
    auto feed = std::make_unique<WaveFeed>();
    if (Reason reason = feed->Open(path)) return reason;
    pins->duration = feed->DurationNs() / 100;
    pins->soundRate = feed->Rate();
    const GstElementPtr old(gst_bin_get_by_name(GST_BIN(graph), kWaveSourceName));
    if (old) {
        const GstElementPtr track(gst_bin_get_by_name(GST_BIN(old.get()), kAudioPin));
        ReplaceFeed(track.get(), std::move(feed));
        return {};
    }
    const GstElementPtr source = MakeBin(kWaveSourceName);
    if (Reason reason = AddFeed(source.get(), std::move(feed), kAudioPin)) return reason;
    if (!gst_bin_add(GST_BIN(graph), source.get())) return MissingPart("bin");
    const GstCapsPtr raw(gst_caps_new_empty_simple("audio/x-raw"));
    Reason reason;
    connect(graph, source.get(), kAudioPin, MakeAudioDecoder(raw.get(), &reason), &pins->audio,
            &reason);
    return reason;
}

}  // namespace tarn
