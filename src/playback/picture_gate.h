// picture_gate.h - stands after the picture decoder and lets through what is to be shown.
//
// On the way to the place of a seek a decoder gives many pictures that are not wanted. It would
// leave them out by itself; here it is done after it, so that whoever is in a hurry can have one
// of them.
#pragma once

#include <memory>
#include <mutex>

#include "playback/gst_handles.h"

namespace tarn {

class PictureGate {
public:
    // On the pads "sink" and "src" of the decoder, which share it.
    static std::shared_ptr<PictureGate> Attach(GstElement* decoder);

    // From any thread. The next picture stands for the one that was sought, unless that has passed
    // already.
    void Hurry();
    // Lets the decoder go on from such a picture towards another place, `offset` nanoseconds after
    // the one that was sought. False when a seek comes nearer.
    bool GoOn(int64_t offset);

private:
    using Keeper = std::shared_ptr<PictureGate>;
    static GstPadProbeReturn TakeInput(GstPad* pad, GstPadProbeInfo* info, gpointer gate);
    static GstPadProbeReturn TakeOutput(GstPad* pad, GstPadProbeInfo* info, gpointer gate);
    void Open(GstPadProbeInfo* info);
    void GiveBack(GstPadProbeInfo* info);
    GstPadProbeReturn Pass(GstPadProbeInfo* info);

    std::mutex m_lock;
    GstSegment m_segment;  // as the source has it
    bool m_hasSegment = false;
    bool m_hurry = false;
    guint64 m_first = 0, m_last = 0;  // went into the decoder first, came out last
    guint64 m_goal = 0;               // 0: the place that was sought
};

}  // namespace tarn
