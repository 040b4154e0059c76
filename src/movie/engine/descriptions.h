// descriptions.h - what a track's samples are: the entries of its sample description.
//
// A list remembers the track it was opened for. Indexes count from 1.
#pragma once

#include <cstdint>
#include <functional>

#include "movie/engine/session.h"
#include "mp4format/atoms/sample_entries.h"

namespace tarn {

struct Mp4SampleEntries {
    uint32_t track;
    uint32_t handler;
    Mp4SampleEntryList list;
};

// FF4_RET_NOTFOUND when the track has no 'stsd'.
Mp4Result mp4_open_sample_entries(Mp4ReadSession* session, uint32_t track,
                                  Mp4SampleEntries** entries);
Mp4Result mp4_get_sample_entry_count(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                     uint32_t* count);
Mp4Result mp4_close_sample_entries(Mp4ReadSession* session, Mp4SampleEntries* entries);

// Calls visit(index, entry) for the first `most` entries of an open track in turn. One at a time is
// in memory: a table may have very many. Results as of mp4_open_sample_entries.
Mp4Result mp4_visit_sample_entries(
    Mp4ReadSession* session, uint32_t track, uint32_t most,
    const std::function<Mp4Result(uint32_t, const Mp4SampleEntry&)>& visit);

struct Mp4VideoEntry {
    uint32_t kind;    // Mp4EntryKind
    uint32_t format;  // 'avc1', 'mp4v', …
    uint16_t data_reference_index;
    uint16_t width, height;
    uint32_t horizontal_resolution, vertical_resolution;  // 16.16
    uint16_t frame_count, depth;
    uint8_t compressor_name[32];  // a length byte and the text
    uint32_t config_type;         // as Mp4VisualFields has it
};

struct Mp4AudioEntry {
    uint32_t kind;
    uint32_t format;  // 'mp4a', 'twos', …
    uint16_t data_reference_index;
    uint16_t channel_count;
    uint16_t sample_size;    // bits
    uint32_t sample_rate;    // 16.16, as stored
    uint32_t sampling_rate;  // whole Hz
};

Mp4VideoEntry mp4_video_entry_of(const Mp4SampleEntry& entry);
Mp4AudioEntry mp4_audio_entry_of(const Mp4SampleEntry& entry);
// FF4_RET_STATE on a track of another handler.
Mp4Result mp4_get_video_entry(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                              uint32_t index, Mp4VideoEntry* out);
Mp4Result mp4_get_audio_entry(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                              uint32_t index, Mp4AudioEntry* out);

// The bytes of 'esds' behind its version and flags, for kinds 1, 3 and 4; any other kind is
// FF4_RET_STATE, no bytes FF4_RET_NOTFOUND, a capacity below the size FF4_RET_ARGS.
Mp4Result mp4_get_decoder_config_size(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                      uint32_t index, uint32_t* size);
Mp4Result mp4_get_decoder_config(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                 uint32_t index, uint32_t capacity, uint8_t* buffer);

struct Mp4AvcInfo {
    uint8_t version, profile, compatibility, level;
    uint8_t length_size;  // bytes in front of each unit: 1 to 4
    uint32_t sps_count, pps_count;
};
Mp4AvcInfo mp4_avc_info_of(const Mp4SampleEntry& entry);
// Kind 2 alone, else FF4_RET_STATE. Sets are addressed from 1.
Mp4Result mp4_get_avc_config_info(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                  uint32_t index, Mp4AvcInfo* out);
Mp4Result mp4_get_sps_size(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                           uint32_t set, uint32_t* size);
Mp4Result mp4_get_sps(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                      uint32_t set, uint32_t capacity, uint8_t* buffer);
Mp4Result mp4_get_pps_size(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                           uint32_t set, uint32_t* size);
Mp4Result mp4_get_pps(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                      uint32_t set, uint32_t capacity, uint8_t* buffer);

// The whole record, borrowed from the list: what a copy carries along beyond the above.
Mp4Result mp4_get_sample_entry(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                               uint32_t index, const Mp4SampleEntry** out);

}  // namespace tarn
