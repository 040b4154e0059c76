#include "playback/picture_gate.h"

#include <utility>

namespace tarn {
namespace {

// Puts a segment into the place of the one that an event on its way bears.
void replace_segment(GstPadProbeInfo* info, const GstSegment& segment) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    GstEvent* made = gst_event_new_segment(&segment);
    gst_event_set_seqnum(made, gst_event_get_seqnum(event));
    gst_event_unref(event);
    info->data = made;
}

}  // namespace

std::shared_ptr<PictureGate> PictureGate::Attach(GstElement* decoder) {
    auto gate = std::make_shared<PictureGate>();
    const auto watch = [&](const char* name, int types, GstPadProbeCallback callback) {
        const GstPadPtr pad(gst_element_get_static_pad(decoder, name));
        gst_pad_add_probe(pad.get(), static_cast<GstPadProbeType>(types), callback,
                          std::make_unique<Keeper>(gate).release(), [](gpointer keeper) {
                              const std::unique_ptr<Keeper> owner(static_cast<Keeper*>(keeper));
                          });
    };
    watch("sink", GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_BUFFER, TakeInput);
    watch("src", GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_BUFFER, TakeOutput);
    return gate;
}

void PictureGate::Hurry() {
    const std::lock_guard lock(m_lock);
    m_hurry = true;
}

// Decoding begins with a sync sample: how far it lies before the place tells how far they are
// apart.
bool PictureGate::GoOn(int64_t offset) {
    const std::lock_guard lock(m_lock);
    const guint64 goal = m_segment.start + static_cast<guint64>(offset);
    if (!m_hasSegment || m_last == 0 || m_last >= m_segment.start || goal <= m_last ||
        goal - m_last > m_segment.start - m_first)
        return false;
    m_goal = goal;
    m_hurry = false;
    return true;
}

GstPadProbeReturn PictureGate::TakeInput(GstPad*, GstPadProbeInfo* info, gpointer keeper) {
    const Keeper& gate = *static_cast<Keeper*>(keeper);
    if (info->type & GST_PAD_PROBE_TYPE_BUFFER) {
        const std::lock_guard lock(gate->m_lock);
        if (gate->m_first == 0) gate->m_first = GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info));
    } else if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_SEGMENT) {
        gate->Open(info);
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn PictureGate::TakeOutput(GstPad*, GstPadProbeInfo* info, gpointer keeper) {
    const Keeper& gate = *static_cast<Keeper*>(keeper);
    if (info->type & GST_PAD_PROBE_TYPE_BUFFER) return gate->Pass(info);
    if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_SEGMENT) gate->GiveBack(info);
    return GST_PAD_PROBE_OK;
}

// The decoder gets a segment that leaves nothing out.
void PictureGate::Open(GstPadProbeInfo* info) {
    const std::lock_guard lock(m_lock);
    gst_event_copy_segment(GST_PAD_PROBE_INFO_EVENT(info), &m_segment);
    m_hasSegment = m_segment.format == GST_FORMAT_TIME;
    m_first = 0;
    if (!m_hasSegment) return;
    GstSegment all;
    gst_segment_init(&all, GST_FORMAT_TIME);
    replace_segment(info, all);
}

void PictureGate::GiveBack(GstPadProbeInfo* info) {
    const std::lock_guard lock(m_lock);
    m_hurry = false;
    m_last = m_goal = 0;
    if (m_hasSegment) replace_segment(info, m_segment);
}

GstPadProbeReturn PictureGate::Pass(GstPadProbeInfo* info) {
    const std::lock_guard lock(m_lock);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (!m_hasSegment || !GST_BUFFER_PTS_IS_VALID(buffer)) return GST_PAD_PROBE_OK;
    const guint64 start = GST_BUFFER_PTS(buffer);
    const bool lasts = GST_BUFFER_DURATION_IS_VALID(buffer);
    const guint64 stop = lasts ? start + GST_BUFFER_DURATION(buffer) : GST_CLOCK_TIME_NONE;
    guint64 from = start, to = stop;
    m_last = start;
    if (m_goal > 0) {
        if (lasts && stop <= m_goal && !std::exchange(m_hurry, false)) return GST_PAD_PROBE_DROP;
        from = to = m_segment.start;
    } else if (!gst_segment_clip(&m_segment, GST_FORMAT_TIME, start, stop, &from, &to)) {
        if (!std::exchange(m_hurry, false) || start >= m_segment.start) return GST_PAD_PROBE_DROP;
        from = to = m_segment.start;
    } else {
        m_last = from;  // it is there
    }
    if (from == start && to == stop) return GST_PAD_PROBE_OK;
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = from;
    if (lasts) GST_BUFFER_DURATION(buffer) = to - from;
    info->data = buffer;
    return GST_PAD_PROBE_OK;
}

}  // namespace tarn
