// gst_handles.h - owners for what GStreamer counts references of, and the start of the library.
//
// For the folder's own sources: no public header of it includes GStreamer.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

#include "base/reason.h"

namespace tarn {

struct GstDeleter {
    void operator()(void* object) const { gst_object_unref(object); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
};
template <typename T>
using GstPtr = std::unique_ptr<T, GstDeleter>;
using GstObjectPtr = GstPtr<GstObject>;
using GstElementPtr = GstPtr<GstElement>;
using GstPadPtr = GstPtr<GstPad>;
using GstBusPtr = GstPtr<GstBus>;
using GstFactoryPtr = GstPtr<GstElementFactory>;
using GstMessagePtr = GstPtr<GstMessage>;
using GstCapsPtr = GstPtr<GstCaps>;
using GstSamplePtr = GstPtr<GstSample>;

// Starts the library, once for the process. False where it can't be started.
[[nodiscard]] bool StartGst();

// Owns a new element, which GStreamer leaves to the first one that takes it.
[[nodiscard]] GstElementPtr OwnElement(gpointer created);
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
// Gives the class of an element a pad that is always there, of that form.
void AddPadTemplate(gpointer element_class, const char* name, GstPadDirection direction,
                    const std::string& caps);
// Takes an element out of its bin, stopped.
void RemoveElement(GstElement* bin, GstElement* element);

// One of these elements is missing, or can't be put together with the others.
Reason MissingPart(const char* elements);

}  // namespace tarn
