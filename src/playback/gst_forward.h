// gst_forward.h - the names of GStreamer's types, so that public headers need not include it.
#pragma once

// The library's own tags.
// NOLINTBEGIN(bugprone-reserved-identifier)
typedef struct _GstBus GstBus;
typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;
typedef struct _GstPad GstPad;
// NOLINTEND(bugprone-reserved-identifier)
