#include "playback/decoder_bins.h"

#include <gst/pbutils/pbutils.h>

#include <vector>

#include "playback/sample_quantizer.h"

namespace tarn {
namespace {

constexpr char kAudioName[] = "Audio Decoder";
// Decoded sound that waits: a decoder that is kept from the processor must not be heard.
constexpr guint64 kSoundAhead = 300 * GST_MSECOND;

bool is_hardware(GstElementFactory* factory) {
    return gst_element_factory_list_is_type(factory, GST_ELEMENT_FACTORY_TYPE_HARDWARE);
}

// The decoders that take these samples, the platform's favourite first.
std::vector<GstFactoryPtr> find_decoders(GstCaps* caps, GstElementFactoryListType media) {
    GList* all = gst_element_factory_list_get_elements(GST_ELEMENT_FACTORY_TYPE_DECODER | media,
                                                       GST_RANK_MARGINAL);
    GList* fitting = gst_element_factory_list_filter(all, caps, GST_PAD_SINK, FALSE);
    fitting = g_list_sort(fitting, gst_plugin_feature_rank_compare_func);
    std::vector<GstFactoryPtr> found;
    for (GList* at = fitting; at; at = at->next)
        found.emplace_back(static_cast<GstElementFactory*>(gst_object_ref(at->data)));
    gst_plugin_feature_list_free(fitting);
    gst_plugin_feature_list_free(all);
    return found;
}

// A decoder that works on this machine.
GstElementPtr start_decoder(GstElementFactory* factory) {
    GstElementPtr decoder = OwnElement(gst_element_factory_create(factory, nullptr));
    if (!decoder) return nullptr;
    const bool works =
        gst_element_set_state(decoder.get(), GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
    gst_element_set_state(decoder.get(), GST_STATE_NULL);
    return works ? std::move(decoder) : nullptr;
}

GstElementPtr pick_decoder(GstCaps* caps, GstElementFactoryListType media, DecoderMode mode,
                           Reason* reason) {
    const std::vector<GstFactoryPtr> found = find_decoders(caps, media);
    for (const bool hardware : {true, false}) {  // then the processor
        if (hardware && mode == DecoderMode::kSoftware) continue;
        for (const GstFactoryPtr& factory : found) {
            if (is_hardware(factory.get()) != hardware) continue;
            if (GstElementPtr decoder = start_decoder(factory.get())) return decoder;
        }
    }
    gchar* what = gst_pb_utils_get_decoder_description(caps);
    *reason = {ReasonCode::kNoPlugin, ReasonSide::kDevice, {}, {std::string(what)}};
    g_free(what);
    return nullptr;
}

// Hardware decoders want to know more of the samples than a movie tells.
GstElementPtr make_parser(GstElement* decoder, GstCaps* caps) {
    if (!is_hardware(gst_element_get_factory(decoder))) return nullptr;
    const GstStructure* form = gst_caps_get_structure(caps, 0);
    if (gst_structure_has_name(form, "video/x-h264")) return MakeElement("h264parse");
    if (gst_structure_has_name(form, "video/x-h265")) return MakeElement("h265parse");
    return nullptr;
}

// Links elements that the bin takes over, and shows both ends at the bin. Null ones are left out.
bool chain(GstElement* bin, std::vector<GstElement*> elements) {
    std::erase(elements, nullptr);
    for (GstElement* element : elements)
        if (!gst_bin_add(GST_BIN(bin), element)) return false;
    for (size_t i = 1; i < elements.size(); ++i)
        if (!gst_element_link(elements[i - 1], elements[i])) return false;
    return AddGhostPad(bin, elements.front(), "sink", "sink") &&
           AddGhostPad(bin, elements.back(), "src", "src");
}

}  // namespace

GstElementPtr MakeVideoDecoder(GstCaps* caps, DecoderMode mode, Reason* reason) {
    const GstElementPtr decoder =
        pick_decoder(caps, GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO, mode, reason);
    if (!decoder) return nullptr;
    const GstElementPtr parser = make_parser(decoder.get(), caps);
    GstElementPtr bin = MakeBin(kVideoDecoderName);
    if (chain(bin.get(), {parser.get(), decoder.get()})) return bin;
    *reason = {ReasonCode::kPictureNoDecoder, ReasonSide::kDevice, {}, {}};
    return nullptr;
}

GstElementPtr MakeAudioDecoder(GstCaps* caps, Reason* reason) {
    GstElementPtr decoder;
    const bool raw = gst_structure_has_name(gst_caps_get_structure(caps, 0), "audio/x-raw");
    if (!raw) {
        decoder = pick_decoder(caps, GST_ELEMENT_FACTORY_TYPE_MEDIA_AUDIO, DecoderMode::kSoftware,
                               reason);
        if (!decoder) return nullptr;
        // Samples that can't be decoded are passed over, however many there are.
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(decoder.get()), "max-errors"))
            g_object_set(decoder.get(), "max-errors", -1, nullptr);
    }
    // To floats in the order of time, whatever the decoder gives.
    const GstElementPtr converter = MakeElement("audioconvert");
    const GstElementPtr quantizer = MakeSampleQuantizer();
    const GstElementPtr queue = MakeElement("queue");
    if (!converter || !queue) {
        *reason = MissingPart("audioconvert, queue");
        return nullptr;
    }
    g_object_set(queue.get(), "max-size-buffers", 0u, "max-size-bytes", 0u, "max-size-time",
                 kSoundAhead, nullptr);
    gst_util_set_object_arg(G_OBJECT(converter.get()), "dithering", "none");
    GstElementPtr bin = MakeBin(kAudioName);
    if (chain(bin.get(), {decoder.get(), converter.get(), quantizer.get(), queue.get()}))
        return bin;
    *reason = {ReasonCode::kSoundNoDecoder, ReasonSide::kDevice, {}, {}};
    return nullptr;
}

}  // namespace tarn
