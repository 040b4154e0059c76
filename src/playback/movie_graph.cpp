#include "playback/movie_graph.h"

#include <algorithm>
#include <string_view>

#include "base/xp_file.h"
#include "effects/wave_header.h"

namespace tarn {
namespace {

constexpr char kWaveSourceName[] = "Source";
constexpr int64_t kUnitsPerSecond = 10'000'000;

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

// A file of another form than ours has no facts, but its parser may take it.
Reason read_wave_facts(const std::string& path, DecodedPins* pins) {
    XpFile file;
    if (const int error = file.Open(path, XpFile::Mode::kRead))
        return SystemReason(ReasonCode::kCantOpen, ReasonSide::kSource, path, error);
    WaveHeader header{};
    if (ReadWaveHeader(&file, &header) || header.sample_rate == 0) return {};
    const uint64_t bytes = std::min<uint64_t>(header.data_size, header.data_available);
    pins->duration =
        static_cast<int64_t>(bytes / kWaveFrameSize * kUnitsPerSecond / header.sample_rate);
    pins->soundRate = static_cast<int32_t>(std::min<uint32_t>(header.sample_rate, INT32_MAX));
    return {};
}

// A bin with the file and its parser; the file is its element "file".
GstElementPtr make_wave_source() {
    GstElementPtr bin = MakeBin(kWaveSourceName);
    GstElement* file = AddElement(bin.get(), "filesrc", "file");
    GstElement* parser = AddElement(bin.get(), "wavparse");
    const bool made = file && parser && gst_element_link(file, parser) &&
                      AddGhostPad(bin.get(), parser, "src", kAudioPin);
    return made ? std::move(bin) : nullptr;
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
    if (ends.audio && !reason)
        connect(graph, source.get(), kAudioPin, MakeAudioDecoder(ends.audio.get(), &reason),
                &pins->audio, &reason);
    return reason;
}

Reason AddWaveSource(GstElement* graph, const std::string& path, DecodedPins* pins) {
    if (Reason reason = read_wave_facts(path, pins)) return reason;
    GstElementPtr source(gst_bin_get_by_name(GST_BIN(graph), kWaveSourceName));
    const bool is_new = source == nullptr;
    if (is_new) source = make_wave_source();
    if (!source || (is_new && !gst_bin_add(GST_BIN(graph), source.get())))
        return MissingPart("filesrc, wavparse");
    const GstElementPtr file(gst_bin_get_by_name(GST_BIN(source.get()), "file"));
    g_object_set(file.get(), "location", path.c_str(), nullptr);
    if (!is_new) return {};
    const GstCapsPtr raw(gst_caps_new_empty_simple("audio/x-raw"));
    Reason reason;
    connect(graph, source.get(), kAudioPin, MakeAudioDecoder(raw.get(), &reason), &pins->audio,
            &reason);
    return reason;
}

}  // namespace tarn
