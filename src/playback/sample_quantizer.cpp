#include "playback/sample_quantizer.h"

#include <gst/base/gstbasetransform.h>

#include <algorithm>
#include <cmath>
#include <span>

namespace tarn {
namespace {

// Time stamps of sound without a gap are off by less; in a longer gap nothing was meant to sound.
constexpr GstClockTime kLeastGap = 5 * GST_MSECOND, kMostGap = 10 * GST_SECOND;
constexpr guint64 kSilentFrames = 1024;  // handed on together

struct SampleQuantizer {
    GstBaseTransform base;
    GstClockTime next;  // when the sound that came is over
    gint rate, channels;
};

SampleQuantizer* self_of(gpointer element) {
    return static_cast<SampleQuantizer*>(element);
}

GstBaseTransformClass* parent_class() {
    return GST_BASE_TRANSFORM_CLASS(g_type_class_peek(GST_TYPE_BASE_TRANSFORM));
}

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

gboolean set_caps(GstBaseTransform* base, GstCaps* caps, GstCaps*) {
    const GstStructure* form = gst_caps_get_structure(caps, 0);
    return gst_structure_get_int(form, "rate", &self_of(base)->rate) &&
           gst_structure_get_int(form, "channels", &self_of(base)->channels) &&
           self_of(base)->rate > 0;
}

gboolean sink_event(GstBaseTransform* base, GstEvent* event) {
    const GstEventType type = GST_EVENT_TYPE(event);
    if (type == GST_EVENT_FLUSH_STOP || type == GST_EVENT_SEGMENT)
        self_of(base)->next = GST_CLOCK_TIME_NONE;
    return parent_class()->sink_event(base, event);
}

// Some of the silence before the sound that waits; none where it follows what came before.
GstBuffer* make_silence(SampleQuantizer* self) {
    const GstBuffer* waiting = self->base.queued_buf;
    if (!waiting || !GST_BUFFER_PTS_IS_VALID(waiting) || !GST_CLOCK_TIME_IS_VALID(self->next))
        return nullptr;
    const GstClockTime at = GST_BUFFER_PTS(waiting);
    if (at < self->next + kLeastGap || at - self->next > kMostGap) return nullptr;
    const auto rate = static_cast<guint64>(self->rate);
    const guint64 missing = gst_util_uint64_scale_round(at - self->next, rate, GST_SECOND);
    const guint64 frames = std::min(missing, kSilentFrames);
    const gsize size = frames * static_cast<gsize>(self->channels) * sizeof(int16_t);
    GstBuffer* silence = gst_buffer_new_allocate(nullptr, size, nullptr);
    gst_buffer_memset(silence, 0, 0, size);
    GST_BUFFER_PTS(silence) = self->next;
    self->next =
        frames == missing ? at : self->next + gst_util_uint64_scale(frames, GST_SECOND, rate);
    GST_BUFFER_DURATION(silence) = self->next - GST_BUFFER_PTS(silence);
    return silence;
}

// Where samples could not be decoded silence keeps the place of what follows.
GstFlowReturn generate_output(GstBaseTransform* base, GstBuffer** out) {
    SampleQuantizer* self = self_of(base);
    *out = make_silence(self);
    if (*out) return GST_FLOW_OK;
    const GstFlowReturn flow = parent_class()->generate_output(base, out);
    if (flow != GST_FLOW_OK || !*out || !GST_BUFFER_PTS_IS_VALID(*out)) return flow;
    const gsize frames =
        gst_buffer_get_size(*out) / (static_cast<gsize>(self->channels) * sizeof(int16_t));
    self->next = GST_BUFFER_PTS(*out) +
                 gst_util_uint64_scale(frames, GST_SECOND, static_cast<guint64>(self->rate));
    return flow;
}

void init_instance(GTypeInstance* instance, gpointer) {
    self_of(instance)->next = GST_CLOCK_TIME_NONE;
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
    base->set_caps = set_caps;
    base->sink_event = sink_event;
    base->generate_output = generate_output;
}

GType quantizer_type() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_BASE_TRANSFORM, "TarnSampleQuantizer", sizeof(GstBaseTransformClass), init_class,
        sizeof(SampleQuantizer), init_instance, GTypeFlags{});
    return type;
}

}  // namespace

GstElementPtr MakeSampleQuantizer() {
    return OwnElement(g_object_new(quantizer_type(), nullptr));
}

}  // namespace tarn
