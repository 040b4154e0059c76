#include "playback/sample_quantizer.h"

#include <gst/base/gstbasetransform.h>

#include <algorithm>
#include <cmath>
#include <span>

namespace tarn {
namespace {

GstCaps* transform_caps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps,
                        GstCaps* filter) {
    GstCaps* result = gst_caps_copy(caps);
    gst_caps_set_simple(result, "format", G_TYPE_STRING,
                        direction == GST_PAD_SINK ? "S16LE" : "F32LE", nullptr);
    if (filter) {
        GstCaps* both = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(result);
        result = both;
    }
    return result;
}

gboolean unit_size(GstBaseTransform*, GstCaps* caps, gsize* size) {
    const GstStructure* form = gst_caps_get_structure(caps, 0);
    gint channels = 0;
    if (!gst_structure_get_int(form, "channels", &channels)) return FALSE;
    const bool floats = g_strcmp0(gst_structure_get_string(form, "format"), "F32LE") == 0;
    *size = static_cast<gsize>(channels) * (floats ? sizeof(float) : sizeof(int16_t));
    return TRUE;
}

// To the nearest, halves to even, and held at the ends. What is no number is silence.
int16_t quantize(float sample) {
    const float scaled = sample * 32768.0f;
    if (!(scaled > -32768.0f)) return scaled <= -32768.0f ? INT16_MIN : int16_t{0};
    return static_cast<int16_t>(scaled >= 32767.0f ? 32767L : std::lrint(scaled));
}

GstFlowReturn transform(GstBaseTransform*, GstBuffer* in, GstBuffer* out) {
    GstMapInfo from, to;
    if (!gst_buffer_map(in, &from, GST_MAP_READ)) return GST_FLOW_ERROR;
    if (!gst_buffer_map(out, &to, GST_MAP_WRITE)) {
        gst_buffer_unmap(in, &from);
        return GST_FLOW_ERROR;
    }
    const size_t count = std::min(from.size / sizeof(float), to.size / sizeof(int16_t));
    const std::span<const float> samples(reinterpret_cast<const float*>(from.data), count);
    std::transform(samples.begin(), samples.end(), reinterpret_cast<int16_t*>(to.data), quantize);
    gst_buffer_unmap(out, &to);
    gst_buffer_unmap(in, &from);
    return GST_FLOW_OK;
}

void init_class(gpointer type, gpointer) {
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type), "Sample quantizer",
                                          "Filter/Converter/Audio",
                                          "Makes 16-bit samples out of floats", "Tarn studio");
    const std::string form =
        "audio/x-raw, layout=interleaved, rate=[1,2147483647], channels=[1,64], format=";
    AddPadTemplate(type, "sink", GST_PAD_SINK, form + "F32LE");
    AddPadTemplate(type, "src", GST_PAD_SRC, form + "S16LE");
    GstBaseTransformClass* base = GST_BASE_TRANSFORM_CLASS(type);
    base->transform_caps = transform_caps;
    base->get_unit_size = unit_size;
    base->transform = transform;
}

GType quantizer_type() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_BASE_TRANSFORM, "TarnSampleQuantizer", sizeof(GstBaseTransformClass), init_class,
        sizeof(GstBaseTransform), nullptr, GTypeFlags{});
    return type;
}

}  // namespace

GstElementPtr MakeSampleQuantizer() {
    return OwnElement(g_object_new(quantizer_type(), nullptr));
}

}  // namespace tarn
