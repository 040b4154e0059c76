// sample_entry_copy.h - a sample entry with all it owns, taken over from another session.
#pragma once

#include "mp4format/atoms/sample_entries.h"

namespace tarn {

// Appends a copy to the list. FF4_RET_NOMEM leaves the list as it was.
Mp4Result mp4_copy_sample_entry(Mp4Host* host, const Mp4SampleEntry& entry,
                                Mp4SampleEntryList* list);

}  // namespace tarn
