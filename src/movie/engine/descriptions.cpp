#include "movie/engine/descriptions.h"

#include <algorithm>
#include <cstring>

#include "movie/engine/tracks.h"

namespace tarn {
namespace {

// The fields of an entry, as of() gives them, on a track that has that handler.
template <typename Fields>
Mp4Result get_fields(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t handler,
                     uint32_t index, Fields (*of)(const Mp4SampleEntry&), Fields* out) {
    if (!out) return FF4_RET_ARGS;
    *out = {};
    if (!session || !entries) return FF4_RET_ARGS;
    if (entries->handler != handler) return FF4_RET_STATE;
    const Mp4SampleEntry* entry = nullptr;
    FF4_TRY(mp4_get_sample_entry(session, entries, index, &entry));
    *out = of(*entry);
    return FF4_RET_OK;
}

// Where the entries of a track lie.
Mp4Result find_entries(Mp4ReadSession* session, uint32_t track, const Mp4OpenTrack** open) {
    *open = mp4_find_open_track(session, track);
    if (!*open) return FF4_RET_STATE;
    return present((*open)->tables.stsd) ? FF4_RET_OK : FF4_RET_NOTFOUND;
}

Mp4Result find_config(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                      const Mp4ByteBlock** config) {
    const Mp4SampleEntry* entry = nullptr;
    FF4_TRY(mp4_get_sample_entry(session, entries, index, &entry));
    if (entry->kind != kEntryMpeg4Visual && entry->kind != kEntryAudio &&
        entry->kind != kEntryStream)
        return FF4_RET_STATE;
    *config = &entry->es.bytes;
    return entry->es.bytes.size == 0 ? FF4_RET_NOTFOUND : FF4_RET_OK;
}

enum class Sets { kSequence, kPicture };

Mp4Result find_set(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                   Sets which, uint32_t set, const Mp4ByteBlock** data) {
    const Mp4SampleEntry* entry = nullptr;
    FF4_TRY(mp4_get_sample_entry(session, entries, index, &entry));
    if (entry->kind != kEntryAvc) return FF4_RET_STATE;
    const Mp4ParameterSet* found = mp4_parameter_set_at(
        which == Sets::kSequence ? entry->avc.sequence_sets : entry->avc.picture_sets, set);
    if (!found) return FF4_RET_NOTFOUND;
    *data = &found->data;
    return FF4_RET_OK;
}

Mp4Result copy_out(const Mp4ByteBlock& block, uint32_t capacity, uint8_t* buffer) {
    if (!buffer || capacity < block.size) return FF4_RET_ARGS;
    if (block.size > 0) std::memcpy(buffer, block.data, block.size);
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_open_sample_entries(Mp4ReadSession* session, uint32_t track,
                                  Mp4SampleEntries** entries) {
    if (!session || !entries || track == 0) return FF4_RET_ARGS;
    const Mp4OpenTrack* open = nullptr;
    FF4_TRY(find_entries(session, track, &open));
    auto made = mp4_make<Mp4SampleEntries>(session->host);
    if (!made) return FF4_RET_NOMEM;
    made->track = track;
    made->handler = open->index->facts->handler_type;
    const Mp4Result result =
        mp4_read_sample_entries(session->host, session->file, open->tables.stsd,
                                open->tables.stsd_count, made->handler, &made->list);
    if (result != FF4_RET_OK) {
        mp4_free_sample_entries(session->host, &made->list);
        return result;
    }
    *entries = made.release();
    return FF4_RET_OK;
}

Mp4Result mp4_visit_sample_entries(
    Mp4ReadSession* session, uint32_t track, uint32_t most,
    const std::function<Mp4Result(uint32_t, const Mp4SampleEntry&)>& visit) {
    if (!session || track == 0) return FF4_RET_ARGS;
    const Mp4OpenTrack* open = nullptr;
    FF4_TRY(find_entries(session, track, &open));
    const uint32_t end = std::min(most, open->tables.stsd_count);
    Mp4Span left = open->tables.stsd;
    for (uint32_t n = 0; n < end && left.size >= kAtomHeader; ++n) {
        Mp4SampleEntry* entry = nullptr;
        FF4_TRY(mp4_take_sample_entry(session->host, session->file,
                                      open->index->facts->handler_type, &left, &entry));
        const Mp4Result result = visit(n + 1, *entry);
        mp4_free_sample_entry(session->host, entry);
        FF4_TRY(result);
    }
    return FF4_RET_OK;
}

Mp4Result mp4_get_sample_entry_count(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                     uint32_t* count) {
    if (!session || !entries || !count) return FF4_RET_ARGS;
    *count = entries->list.count;
    return FF4_RET_OK;
}

Mp4Result mp4_close_sample_entries(Mp4ReadSession* session, Mp4SampleEntries* entries) {
    if (!session || !entries) return FF4_RET_ARGS;
    mp4_free_sample_entries(session->host, &entries->list);
    mp4_free(session->host, entries);
    return FF4_RET_OK;
}

Mp4Result mp4_get_sample_entry(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                               uint32_t index, const Mp4SampleEntry** out) {
    if (!session || !entries || !out) return FF4_RET_ARGS;
    *out = mp4_sample_entry_at(entries->list, index);
    return *out ? FF4_RET_OK : FF4_RET_NOTFOUND;
}

Mp4VideoEntry mp4_video_entry_of(const Mp4SampleEntry& entry) {
    const Mp4VisualFields& v = entry.visual;
    Mp4VideoEntry out{entry.kind,
                      entry.format,
                      entry.data_reference_index,
                      v.width,
                      v.height,
                      v.horizontal_resolution,
                      v.vertical_resolution,
                      v.frame_count,
                      v.depth,
                      {},
                      v.config_type};
    std::memcpy(out.compressor_name, v.compressor_name, sizeof out.compressor_name);
    return out;
}

Mp4AudioEntry mp4_audio_entry_of(const Mp4SampleEntry& entry) {
    const Mp4AudioFields& a = entry.audio;
    return {entry.kind,      entry.format,  entry.data_reference_index,
            a.channel_count, a.sample_size, a.sample_rate,
            a.sampling_rate};
}

Mp4Result mp4_get_video_entry(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                              uint32_t index, Mp4VideoEntry* out) {
    return get_fields(session, entries, fourcc("vide"), index, mp4_video_entry_of, out);
}

Mp4Result mp4_get_audio_entry(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                              uint32_t index, Mp4AudioEntry* out) {
    return get_fields(session, entries, fourcc("soun"), index, mp4_audio_entry_of, out);
}

Mp4Result mp4_get_decoder_config_size(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                      uint32_t index, uint32_t* size) {
    if (!size) return FF4_RET_ARGS;
    const Mp4ByteBlock* config = nullptr;
    FF4_TRY(find_config(session, entries, index, &config));
    *size = config->size;
    return FF4_RET_OK;
}

Mp4Result mp4_get_decoder_config(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                 uint32_t index, uint32_t capacity, uint8_t* buffer) {
    const Mp4ByteBlock* config = nullptr;
    FF4_TRY(find_config(session, entries, index, &config));
    return copy_out(*config, capacity, buffer);
}

Mp4AvcInfo mp4_avc_info_of(const Mp4SampleEntry& entry) {
    const Mp4AvcConfig& avc = entry.avc;
    return {avc.configuration_version,
            avc.profile,
            avc.profile_compatibility,
            avc.level,
            static_cast<uint8_t>(avc.length_size_minus_one + 1),
            avc.sequence_sets.count,
            avc.picture_sets.count};
}

Mp4Result mp4_get_avc_config_info(Mp4ReadSession* session, const Mp4SampleEntries* entries,
                                  uint32_t index, Mp4AvcInfo* out) {
    if (!out) return FF4_RET_ARGS;
    *out = {};
    const Mp4SampleEntry* entry = nullptr;
    FF4_TRY(mp4_get_sample_entry(session, entries, index, &entry));
    if (entry->kind != kEntryAvc) return FF4_RET_STATE;
    *out = mp4_avc_info_of(*entry);
    return FF4_RET_OK;
}

Mp4Result mp4_get_sps_size(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                           uint32_t set, uint32_t* size) {
    if (!size) return FF4_RET_ARGS;
    const Mp4ByteBlock* data = nullptr;
    FF4_TRY(find_set(session, entries, index, Sets::kSequence, set, &data));
    *size = data->size;
    return FF4_RET_OK;
}

Mp4Result mp4_get_sps(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                      uint32_t set, uint32_t capacity, uint8_t* buffer) {
    const Mp4ByteBlock* data = nullptr;
    FF4_TRY(find_set(session, entries, index, Sets::kSequence, set, &data));
    return copy_out(*data, capacity, buffer);
}

Mp4Result mp4_get_pps_size(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                           uint32_t set, uint32_t* size) {
    if (!size) return FF4_RET_ARGS;
    const Mp4ByteBlock* data = nullptr;
    FF4_TRY(find_set(session, entries, index, Sets::kPicture, set, &data));
    *size = data->size;
    return FF4_RET_OK;
}

Mp4Result mp4_get_pps(Mp4ReadSession* session, const Mp4SampleEntries* entries, uint32_t index,
                      uint32_t set, uint32_t capacity, uint8_t* buffer) {
    const Mp4ByteBlock* data = nullptr;
    FF4_TRY(find_set(session, entries, index, Sets::kPicture, set, &data));
    return copy_out(*data, capacity, buffer);
}

}  // namespace tarn
