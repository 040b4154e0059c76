#include "playback/sound_effect_element.h"

#include <gst/audio/audio.h>
#include <gst/base/gstbasetransform.h>

#include <memory>

#include "playback/sound_effect_stream.h"

namespace tarn {
namespace {

// Comes to life as zero bytes from GObject; the stream is built into it.
struct SoundEffectElement {
    GstBaseTransform base;
    SoundEffectStream stream;
};

GstBaseTransformClass* parent_class() {
    return GST_BASE_TRANSFORM_CLASS(g_type_class_peek(GST_TYPE_BASE_TRANSFORM));
}

SoundEffectStream& stream_of(gpointer element) {
    return static_cast<SoundEffectElement*>(element)->stream;
}

constexpr char kForm[] =
    "audio/x-raw, format=" GST_AUDIO_NE(S16) ", layout=interleaved, channels=2, rate=[1000,384000]";
static_assert(kMinSampleRate == 1000 && kMaxSampleRate == 384000, "as in the caps");

// Nanoseconds of the clip; none where the buffer doesn't say.
std::optional<uint64_t> time_of(const GstBaseTransform* base, const GstBuffer* buffer) {
    const GstSegment& segment = base->segment;
    if (segment.format != GST_FORMAT_TIME || !GST_BUFFER_PTS_IS_VALID(buffer)) return {};
    guint64 time = 0;
    const gint sign =
        gst_segment_to_stream_time_full(&segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer), &time);
    if (sign == 0) return {};
    return sign > 0 ? time : 0;
}

gboolean start(GstBaseTransform* base) {
    stream_of(base).Flush();
    return TRUE;
}

gboolean set_caps(GstBaseTransform* base, GstCaps* caps, GstCaps*) {
    GstAudioInfo info;
    return gst_audio_info_from_caps(&info, caps) &&
           stream_of(base).SetFormat(static_cast<uint32_t>(GST_AUDIO_INFO_RATE(&info)));
}

// Comes with the streaming thread shut out.
gboolean sink_event(GstBaseTransform* base, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) stream_of(base).Flush();
    return parent_class()->sink_event(base, event);
}

GstFlowReturn transform_ip(GstBaseTransform* base, GstBuffer* buffer) {
    constexpr size_t kFrameSize = 2 * sizeof(int16_t);
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READWRITE)) return GST_FLOW_OK;
    stream_of(base).Process(reinterpret_cast<int16_t*>(map.data),
                            static_cast<uint32_t>(map.size / kFrameSize), time_of(base, buffer));
    gst_buffer_unmap(buffer, &map);
    return GST_FLOW_OK;
}

void finalize(GObject* object) {
    std::destroy_at(&stream_of(object));
    G_OBJECT_CLASS(parent_class())->finalize(object);
}

void init_class(gpointer type_class, gpointer) {
    G_OBJECT_CLASS(type_class)->finalize = finalize;

    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type_class), "Sound Effect",
                                          "Filter/Effect/Audio", "Treats the sound as a save does",
                                          "Tarn");
    AddPadTemplate(type_class, "sink", GST_PAD_SINK, kForm);
    AddPadTemplate(type_class, "src", GST_PAD_SRC, kForm);

    // With all effects off the sound is treated as well: the chain's limits are part of it.
    GstBaseTransformClass* const transform = GST_BASE_TRANSFORM_CLASS(type_class);
    transform->passthrough_on_same_caps = FALSE;
    transform->start = start;
    transform->set_caps = set_caps;
    transform->sink_event = sink_event;
    transform->transform_ip = transform_ip;
}

void init_element(GTypeInstance* instance, gpointer) {
    std::construct_at(&stream_of(instance));
    GstBaseTransform* const base = GST_BASE_TRANSFORM(instance);
    gst_base_transform_set_in_place(base, TRUE);
    gst_base_transform_set_passthrough(base, FALSE);
}

GType sound_effect_type() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_BASE_TRANSFORM, "TarnSoundEffect", sizeof(GstBaseTransformClass), init_class,
        sizeof(SoundEffectElement), init_element, GTypeFlags{});
    return type;
}

}  // namespace

GstElementPtr MakeSoundEffect() {
    return OwnElement(g_object_new(sound_effect_type(), "name", "Sound Effect", nullptr));
}

ISoundEffect* QuerySoundEffect(GstElement* element) {
    if (!element || !G_TYPE_CHECK_INSTANCE_TYPE(element, sound_effect_type())) return nullptr;
    return &stream_of(element);
}

}  // namespace tarn
