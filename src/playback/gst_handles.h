// gst_handles.h - owners for what GStreamer counts references of, and the start of the library.
//
// For the folder's own sources: no public header of it includes GStreamer.
#pragma once

#include <gst/gst.h>

#include <memory>

#include "base/reason.h"

namespace tarn {

struct GstObjectDeleter {
    void operator()(void* object) const { gst_object_unref(object); }
};
using GstObjectPtr = std::unique_ptr<GstObject, GstObjectDeleter>;
using GstElementPtr = std::unique_ptr<GstElement, GstObjectDeleter>;
using GstPadPtr = std::unique_ptr<GstPad, GstObjectDeleter>;
using GstBusPtr = std::unique_ptr<GstBus, GstObjectDeleter>;
using GstFactoryPtr = std::unique_ptr<GstElementFactory, GstObjectDeleter>;

struct GstMessageDeleter {
    void operator()(GstMessage* message) const { gst_message_unref(message); }
};
using GstMessagePtr = std::unique_ptr<GstMessage, GstMessageDeleter>;

struct GstCapsDeleter {
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using GstCapsPtr = std::unique_ptr<GstCaps, GstCapsDeleter>;

struct GstSampleDeleter {
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
};
using GstSamplePtr = std::unique_ptr<GstSample, GstSampleDeleter>;

// Starts the library, once for the process. False where it can't be started.
[[nodiscard]] bool StartGst();

// A new element that the caller owns (never floating); null where no plug-in has the factory.
[[nodiscard]] GstElementPtr MakeElement(const char* factory, const char* name = nullptr);
// An empty bin of that name, owned by the caller.
[[nodiscard]] GstElementPtr MakeBin(const char* name);
// Puts a new element of the factory into the bin, which owns it. Null where there is none.
[[nodiscard]] GstElement* AddElement(GstElement* bin, const char* factory,
                                     const char* name = nullptr);
// Shows the pad of an element inside a bin at the bin, under that name.
[[nodiscard]] bool AddGhostPad(GstElement* bin, GstElement* inside, const char* pad,
                               const char* name);
// Takes an element out of its bin, stopped.
void RemoveElement(GstElement* bin, GstElement* element);

// One of these elements is missing, or can't be put together with the others.
Reason MissingPart(const char* elements);

}  // namespace tarn
