#include "playback/movie_graph.h"

#include <algorithm>

#include "base/xp_file.h"
#include "effects/wave_header.h"

namespace tarn {
namespace {

constexpr char kWaveSourceName[] = "Source";
constexpr int64_t kUnitsPerSecond = 10'000'000;

// Puts a decoder into the graph and connects the source's pin to it.
bool connect(GstElement* graph, GstElement* source, const char* pin, GstElementPtr decoder,
             GstPadPtr* out, std::string* reason) {
    if (!decoder) return false;
    *reason = "the decoder can't be connected";
    if (!gst_bin_add(GST_BIN(graph), decoder.get())) return false;
    if (!gst_element_link_pads_full(source, pin, decoder.get(), "sink", GST_PAD_LINK_CHECK_DEFAULT))
        return false;
    out->reset(gst_element_get_static_pad(decoder.get(), "src"));
    reason->clear();
    return *out != nullptr;
}

void read_wave_facts(const std::string& path, DecodedPins* pins) {
    XpFile file;
    WaveHeader header{};
    int error = 0;
    if (file.Open(path, XpFile::Mode::kRead) != 0 ||
        ReadWaveHeader(&file, &header, &error) != WaveHeaderFault::kNone)
        return;
    const uint64_t bytes = std::min<uint64_t>(header.data_size, header.data_available);
    pins->duration =
        static_cast<int64_t>(bytes / kWaveFrameSize * kUnitsPerSecond / header.sample_rate);
    pins->soundRate = static_cast<int32_t>(std::min<uint32_t>(header.sample_rate, INT32_MAX));
}

// A bin with the file and its parser; the file is its element "file".
GstElementPtr make_wave_source(std::string* reason) {
    GstElementPtr bin = MakeBin(kWaveSourceName);
    GstElement* file = AddElement(bin.get(), "filesrc", "file");
    GstElement* parser = AddElement(bin.get(), "wavparse");
    *reason = "no plug-in of GStreamer is there for this: WAV files";
    if (!file || !parser || !gst_element_link(file, parser) ||
        !AddGhostPad(bin.get(), parser, "src", kAudioPin))
        return nullptr;
    reason->clear();
    return bin;
}

}  // namespace

bool AddMovieSource(GstElement* graph, const std::string& path, SourceTracks tracks,
                    DecoderMode mode, DecodedPins* pins, std::string* reason) {
    SourcePins source_pins;
    const GstElementPtr source = MakeSourceSplitter(path, tracks, &source_pins, reason);
    if (!source || !gst_bin_add(GST_BIN(graph), source.get())) return false;
    gint64 duration = 0;
    if (gst_element_query_duration(source.get(), GST_FORMAT_TIME, &duration))
        pins->duration = duration / 100;
    if (source_pins.audio) {
        gst_structure_get_int(gst_caps_get_structure(source_pins.audio.get(), 0), "rate",
                              &pins->soundRate);
    }
    if (source_pins.video &&
        !connect(graph, source.get(), kVideoPin,
                 MakeVideoDecoder(source_pins.video.get(), mode, reason), &pins->video, reason))
        return false;
    return !source_pins.audio ||
           connect(graph, source.get(), kAudioPin,
                   MakeAudioDecoder(source_pins.audio.get(), reason), &pins->audio, reason);
}

bool AddWaveSource(GstElement* graph, const std::string& path, DecodedPins* pins,
                   std::string* reason) {
    GstElementPtr source(gst_bin_get_by_name(GST_BIN(graph), kWaveSourceName));
    const bool is_new = source == nullptr;
    if (is_new) source = make_wave_source(reason);
    if (!source || (is_new && !gst_bin_add(GST_BIN(graph), source.get()))) return false;
    const GstElementPtr file(gst_bin_get_by_name(GST_BIN(source.get()), "file"));
    g_object_set(file.get(), "location", path.c_str(), nullptr);
    read_wave_facts(path, pins);
    if (!is_new) return true;
    const GstCapsPtr raw(gst_caps_new_empty_simple("audio/x-raw"));
    return connect(graph, source.get(), kAudioPin, MakeAudioDecoder(raw.get(), reason),
                   &pins->audio, reason);
}

}  // namespace tarn
