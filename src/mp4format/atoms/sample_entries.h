// sample_entries.h - what a track's samples are: the entries of 'stsd' (ISO/IEC 14496-12, 8.5.2;
// the AVC and MPEG-4 children after parts 14 and 15).
//
// Read when a track's format is first asked for. The track's handler decides the layout, not the
// entry's own code. What the writer needs to put an entry out again is kept; other children are
// stepped over. An entry of HEVC is kept whole and written as it was read, whatever it holds.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atoms/avc_config.h"
#include "mp4format/atoms/descriptors.h"
#include "mp4format/byte_block.h"

namespace tarn {

enum Mp4EntryKind : uint32_t {
    kEntryUnknown = 0,  // another handler, or a picture that is neither of these two
    kEntryMpeg4Visual = 1,
    kEntryAvc = 2,
    kEntryAudio = 3,
    kEntryStream = 4,
    kEntryBookmark = 5,
    kEntryMetadata = 6,
    kEntryPackedData = 7,
    kEntryGraphics = 8,
    kEntryGraphicsStereo = 9  // with '3STP'
};

// In place of a handler: the layout follows from the entry's code.
constexpr uint32_t kHandlerByFormat = 0x7F6D7465;

// One 'sinf'. Nothing is deciphered.
struct Mp4ProtectionInfo {
    uint32_t original_format;  // of 'frma'; 0 when there is none
    Mp4ByteBlock payload;
    Mp4ProtectionInfo* next;
};

struct Mp4ProtectionList {
    Mp4ProtectionInfo* head;
    Mp4ProtectionInfo* tail;
};

struct Mp4VisualFields {
    uint16_t width, height;                               // pixels
    uint32_t horizontal_resolution, vertical_resolution;  // 16.16 pixels an inch
    uint16_t frame_count;
    uint8_t compressor_name[32];  // a length byte and the text
    uint16_t depth;
    uint32_t config_type;  // 'esds', 'avcC', 'hvcC' of HEVC that is whole, or 0
    Mp4ByteBlock pasp;     // payloads, as are the next two
    Mp4ByteBlock colr;
    Mp4ByteBlock hvcc;
    Mp4ByteBlock extra;    // what follows the name of the '3DDS' uuid
    Mp4ByteBlock as_read;  // the entry's whole payload, where the configuration is 'hvcC'
};

struct Mp4AudioFields {
    uint16_t version;  // 1 and 2 are the QuickTime forms
    uint16_t channel_count;
    uint16_t sample_size;    // bits
    uint32_t sample_rate;    // 16.16; 0 where it does not fit
    uint32_t sampling_rate;  // whole Hz, of version 2 also above 65,535
};

struct Mp4GraphicsFields {
    uint8_t numbers[24];     // not interpreted
    uint8_t stereo_version;  // '3STP'
    uint8_t stereo_numbers[6];
};

struct Mp4SampleEntry {
    uint32_t kind;    // Mp4EntryKind
    uint32_t format;  // the entry's four-character code
    uint16_t data_reference_index;
    Mp4VisualFields visual;
    Mp4AudioFields audio;
    Mp4GraphicsFields graphics;
    Mp4EsDescriptor es;  // kinds 1, 3 and 4
    Mp4AvcConfig avc;    // kind 2
    Mp4ProtectionList sinf;
    Mp4SampleEntry* next;
};

struct Mp4SampleEntryList {
    Mp4SampleEntry* head;
    Mp4SampleEntry* tail;
    uint32_t count;
};

// Appends the entries in `entries`, the bytes behind the head of 'stsd', at most `count` of them.
// FF4_RET_FORMAT for an entry or configuration that is too short. Entries before a failure stay.
Mp4Result mp4_read_sample_entries(Mp4Host* host, Mp4File* file, const Mp4Span& entries,
                                  uint32_t count, uint32_t handler, Mp4SampleEntryList* list);
// The entry at the front of `left`, which moves on past it. The caller frees it.
Mp4Result mp4_take_sample_entry(Mp4Host* host, Mp4File* file, uint32_t handler, Mp4Span* left,
                                Mp4SampleEntry** entry);
void mp4_free_sample_entry(Mp4Host* host, Mp4SampleEntry* entry);
void mp4_free_sample_entries(Mp4Host* host, Mp4SampleEntryList* list);

// The n-th entry, from 1 as samples name it, or null.
const Mp4SampleEntry* mp4_sample_entry_at(const Mp4SampleEntryList& list, uint32_t n);

Mp4Result mp4_write_stsd(Mp4Sink& sink, const Mp4SampleEntryList& entries);
// FF4_RET_INTERNAL for an entry that has no code of its own and none by its kind.
Mp4Result mp4_write_sample_entry(Mp4Sink& sink, const Mp4SampleEntry& entry);

}  // namespace tarn
