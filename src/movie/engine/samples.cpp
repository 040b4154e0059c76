#include "movie/engine/samples.h"

#include <algorithm>

#include "movie/engine/tracks.h"
#include "mp4format/tables/sample_tables.h"

namespace tarn {
namespace {

Mp4Result find_tables(Mp4ReadSession* session, uint32_t track, Mp4TableReader* tables) {
    const Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    *tables = mp4_tables_of(session, *open);
    return FF4_RET_OK;
}

// The same, for calls that name a sample of the tables.
Mp4Result find_tables_of_sample(Mp4ReadSession* session, uint32_t track, uint32_t number,
                                Mp4TableReader* tables) {
    if (number == 0) return FF4_RET_ARGS;
    FF4_TRY(find_tables(session, track, tables));
    FF4_TRY(mp4_need_times(*tables));
    return number > tables->at->sample_count ? FF4_RET_NOTFOUND : FF4_RET_OK;
}

Mp4Result read_sync(const Mp4TableReader& tables, uint32_t number, uint32_t* isSync) {
    bool sync = !present(tables.at->stss);  // without the table every sample is one
    if (!sync && tables.at->stss_count > 0) {
        FF4_TRY(mp4_lookup_is_sync(tables, number, &sync));
    }
    *isSync = sync ? 1 : 0;
    return FF4_RET_OK;
}

uint32_t track_id_of(Mp4ReadSession* session, uint32_t track) {
    return mp4_find_open_track(session, track)->tables.track_id;
}

Mp4Result find_in_fragments(Mp4ReadSession* session, uint32_t track, uint64_t time, bool numbered,
                            Mp4FragmentSample* sample) {
    FF4_TRY(mp4_use_track_fragments(session, track));
    return mp4_get_fragment_sample_at_time(session->fragments, track_id_of(session, track), time,
                                           numbered, sample);
}

Mp4SampleInfo from_fragment(const Mp4FragmentSample& sample) {
    return {sample.size,
            sample.offset,
            sample.duration,
            sample.is_sync,
            sample.composition_offset,
            sample.composition_signed,
            sample.description_index};
}

// The sample out of those that were found last.
bool take_alike(const Mp4AlikeSamples& last, uint32_t number, uint64_t* start, Mp4SampleInfo* out) {
    if (number < last.first || number - last.first >= last.count) return false;
    const uint64_t before = number - last.first;
    *out = last.info;
    out->offset += before * last.info.size;
    *start = last.start + before * last.info.duration;
    return true;
}

void keep_alike(const Mp4AlikeSamples& found, Mp4AlikeSamples* last) {
    uint64_t end = 0;
    const uint64_t bytes = uint64_t{found.count} * found.info.size;
    const uint64_t time = uint64_t{found.count} * found.info.duration;
    *last = found;
    if (mp4_add(found.info.offset, bytes, &end) != FF4_RET_OK ||
        mp4_add(found.start, time, &end) != FF4_RET_OK)
        last->count = 1;
}

// Where the sample lies: the start of its chunk and the sizes of those before it there.
Mp4Result locate(const Mp4TableReader& tables, uint32_t number, Mp4SampleInfo* info) {
    Mp4ChunkPlace place{};
    uint64_t before = 0;
    FF4_TRY(mp4_lookup_chunk(tables, number, &place));
    info->descriptionIndex = place.description_index;
    FF4_TRY(mp4_lookup_chunk_offset(tables, place.chunk, &info->offset));
    if (number > place.first_sample)
        FF4_TRY(
            mp4_lookup_size_sum(tables, place.first_sample, number - place.first_sample, &before));
    return mp4_add(info->offset, before, &info->offset);
}

}  // namespace

Mp4Result mp4_get_sample_count(Mp4ReadSession* session, uint32_t track, uint32_t* count) {
    if (!session || !count || track == 0) return FF4_RET_ARGS;
    Mp4TableReader tables{};
    FF4_TRY(find_tables(session, track, &tables));
    FF4_TRY(mp4_need_times(tables));
    *count = tables.at->sample_count;
    return FF4_RET_OK;
}

Mp4Result mp4_get_sample_info(Mp4ReadSession* session, uint32_t track, uint32_t number,
                              Mp4SampleInfo* out) {
    if (!session || !out || track == 0) return FF4_RET_ARGS;
    *out = {};
    Mp4TableReader tables{};
    FF4_TRY(find_tables_of_sample(session, track, number, &tables));
    Mp4SampleInfo info{};
    Mp4TimeRun run{};
    FF4_TRY(mp4_lookup_sample_size(tables, number, &info.size));
    FF4_TRY(mp4_lookup_sample_time(tables, number, &run));
    info.duration = run.sample_delta;
    if (present(tables.at->ctts)) {
        FF4_TRY(mp4_lookup_composition_offset(tables, number, &info.compositionOffset));
        info.compositionSigned = tables.at->ctts_version == 1 ? 1 : 0;
    }
    FF4_TRY(read_sync(tables, number, &info.isSync));
    FF4_TRY(locate(tables, number, &info));
    *out = info;
    return FF4_RET_OK;
}

Mp4Result mp4_find_sample_at_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                  uint32_t* isSync, uint32_t* number, uint64_t* start) {
    if (!session || !isSync || !number || !start || track == 0) return FF4_RET_ARGS;
    Mp4TableReader tables{};
    FF4_TRY(find_tables(session, track, &tables));
    Mp4TimeRun run{};
    FF4_TRY(mp4_lookup_time_sample(tables, time, &run));
    if (time > run.first_time && run.sample_delta == 0)
        return mp4_blame(session->host, fourcc("stts"), FF4_RET_FORMAT);
    const uint64_t steps = run.sample_delta == 0 ? 0 : (time - run.first_time) / run.sample_delta;
    const uint64_t found = run.first_sample + steps;
    *number = tables.at->sample_count;
    if (found > *number) {
        // The times go on after the last sample: they are its own, or those of the fragments.
        if (session->fragments) return FF4_RET_NOTFOUND;
        FF4_TRY(mp4_get_sample_time(session, track, *number, start));
    } else {
        *number = static_cast<uint32_t>(found);
        *start = run.first_time + steps * run.sample_delta;
    }
    return read_sync(tables, *number, isSync);
}

Mp4Result mp4_get_sample_time(Mp4ReadSession* session, uint32_t track, uint32_t number,
                              uint64_t* start) {
    if (!session || !start || track == 0) return FF4_RET_ARGS;
    Mp4TableReader tables{};
    FF4_TRY(find_tables_of_sample(session, track, number, &tables));
    Mp4TimeRun run{};
    FF4_TRY(mp4_lookup_sample_time(tables, number, &run));
    // Inside a run that the lookup has checked, so the product does not wrap.
    *start = run.first_time + uint64_t{number - run.first_sample} * run.sample_delta;
    return FF4_RET_OK;
}

Mp4Result mp4_next_sync_sample(Mp4ReadSession* session, uint32_t track, uint32_t number,
                               uint32_t* next, uint64_t* time) {
    if (!session || !next || !time || track == 0) return FF4_RET_ARGS;
    Mp4TableReader tables{};
    FF4_TRY(find_tables_of_sample(session, track, number, &tables));
    const uint32_t count = tables.at->sample_count;
    if (number >= count) return FF4_RET_NOTFOUND;
    uint32_t found = number + 1;
    if (present(tables.at->stss)) {
        if (tables.at->stss_count == 0) return FF4_RET_NOTFOUND;
        FF4_TRY(mp4_lookup_next_sync(tables, number, &found));
    }
    if (found == 0 || found > count) return FF4_RET_NOTFOUND;
    FF4_TRY(mp4_get_sample_time(session, track, found, time));
    *next = found;
    return FF4_RET_OK;
}

Mp4Result mp4_get_total_sample_count(Mp4ReadSession* session, uint32_t track, uint32_t* count) {
    FF4_TRY(mp4_get_sample_count(session, track, count));
    if (!session->fragments) return FF4_RET_OK;
    uint32_t behind = 0;
    FF4_TRY(mp4_use_track_fragments(session, track));
    FF4_TRY(mp4_count_fragment_samples(session->fragments, track_id_of(session, track), &behind));
    return __builtin_add_overflow(*count, behind, count) ? FF4_RET_OVERFLOW : FF4_RET_OK;
}

Mp4Result mp4_get_numbered_sample(Mp4ReadSession* session, uint32_t track, uint32_t number,
                                  uint64_t* start, Mp4SampleInfo* out) {
    if (!session || !start || !out || track == 0 || number == 0) return FF4_RET_ARGS;
    Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    if (take_alike(open->last, number, start, out)) return FF4_RET_OK;
    uint32_t count = 0, alike = 0;
    FF4_TRY(mp4_get_sample_count(session, track, &count));
    if (number <= count || !session->fragments) {
        FF4_TRY(mp4_get_sample_info(session, track, number, out));
        FF4_TRY(mp4_get_sample_time(session, track, number, start));
        FF4_TRY(mp4_count_alike_samples(mp4_tables_of(session, *open), number, &alike));
    } else {
        FF4_TRY(mp4_use_track_fragments(session, track));
        Mp4FragmentSample sample{};
        FF4_TRY(mp4_get_fragment_sample(session->fragments, track_id_of(session, track), number,
                                        &sample));
        *start = sample.start_time;
        *out = from_fragment(sample);
        alike = sample.alike;
    }
    keep_alike({number, alike, *start, *out}, &open->last);
    return FF4_RET_OK;
}

Mp4Result mp4_get_range_bytes(Mp4ReadSession* session, uint32_t track, uint32_t first,
                              uint32_t count, uint64_t* bytes) {
    if (!session || !bytes || track == 0 || first == 0) return FF4_RET_ARGS;
    *bytes = 0;
    uint32_t in_tables = 0;
    FF4_TRY(mp4_get_sample_count(session, track, &in_tables));
    uint64_t number = first, end = uint64_t{first} + count;
    if (number <= in_tables) {
        Mp4TableReader tables{};
        FF4_TRY(find_tables(session, track, &tables));
        const uint64_t tables_end = std::min<uint64_t>(end, uint64_t{in_tables} + 1);
        FF4_TRY(
            mp4_lookup_size_sum(tables, first, static_cast<uint32_t>(tables_end - number), bytes));
        number = tables_end;
    }
    const Mp4OpenTrack* open = mp4_find_open_track(session, track);
    while (number < end) {
        uint64_t start = 0;
        Mp4SampleInfo sample{};
        FF4_TRY(mp4_get_numbered_sample(session, track, static_cast<uint32_t>(number), &start,
                                        &sample));
        const uint64_t alike = uint64_t{open->last.first} + open->last.count - number;
        const uint64_t taken = std::min(alike, end - number);
        FF4_TRY(mp4_add(*bytes, taken * sample.size, bytes));
        number += taken;
    }
    return FF4_RET_OK;
}

Mp4Result mp4_get_media_bytes(Mp4ReadSession* session, uint32_t track, uint64_t* bytes) {
    uint32_t total = 0;
    FF4_TRY(mp4_get_total_sample_count(session, track, &total));
    return mp4_get_range_bytes(session, track, 1, total, bytes);
}

Mp4Result mp4_get_alike_samples(Mp4ReadSession* session, uint32_t track, uint32_t number,
                                uint32_t* count) {
    if (!session || !count || track == 0) return FF4_RET_ARGS;
    *count = 1;
    Mp4TableReader tables{};
    const Mp4Result found = find_tables_of_sample(session, track, number, &tables);
    if (found == FF4_RET_NOTFOUND && session->fragments) return FF4_RET_OK;
    FF4_TRY(found);
    if (tables.at->sample_size == 0) return FF4_RET_OK;
    Mp4ChunkPlace place{};
    Mp4TimeRun times{};
    FF4_TRY(mp4_lookup_chunk(tables, number, &place));
    FF4_TRY(mp4_lookup_sample_time(tables, number, &times));
    const uint32_t chunk_left = place.sample_count - (number - place.first_sample);
    const uint32_t run_left = times.sample_count - (number - times.first_sample);
    const uint32_t table_left = tables.at->sample_count - number + 1;
    *count = std::max(1u, std::min({chunk_left, run_left, table_left}));
    return FF4_RET_OK;
}

Mp4Result mp4_next_sync_number(Mp4ReadSession* session, uint32_t track, uint32_t number,
                               uint32_t* next, uint64_t* time) {
    if (!session || !next || !time || track == 0 || number == 0) return FF4_RET_ARGS;
    uint32_t in_tables = 0;
    FF4_TRY(mp4_get_sample_count(session, track, &in_tables));
    Mp4Result result = FF4_RET_NOTFOUND;
    if (number < in_tables) result = mp4_next_sync_sample(session, track, number, next, time);
    if (result != FF4_RET_NOTFOUND || !session->fragments) return result;
    for (uint64_t at = std::max(number, in_tables) + uint64_t{1}; at <= UINT32_MAX; ++at) {
        Mp4SampleInfo sample{};
        *next = static_cast<uint32_t>(at);
        FF4_TRY(mp4_get_numbered_sample(session, track, *next, time, &sample));
        if (sample.isSync != 0) return FF4_RET_OK;
    }
    return FF4_RET_NOTFOUND;
}

Mp4Result mp4_get_sample_info_at_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                      uint64_t* start, Mp4SampleInfo* out) {
    if (!session || !start || !out || track == 0) return FF4_RET_ARGS;
    *out = {};
    uint32_t sync = 0, number = 0;
    const Mp4Result found = mp4_find_sample_at_time(session, track, time, &sync, &number, start);
    if (found == FF4_RET_OK) return mp4_get_sample_info(session, track, number, out);
    if (found != FF4_RET_NOTFOUND || !session->fragments) return found;
    Mp4FragmentSample sample{};
    FF4_TRY(find_in_fragments(session, track, time, false, &sample));
    *start = sample.start_time;
    *out = from_fragment(sample);
    return FF4_RET_OK;
}

Mp4Result mp4_get_sample_number_at_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                        uint32_t* number) {
    uint32_t sync = 0;
    uint64_t start = 0;
    const Mp4Result found = mp4_find_sample_at_time(session, track, time, &sync, number, &start);
    if (found != FF4_RET_NOTFOUND || !session->fragments) return found;
    Mp4FragmentSample sample{};
    FF4_TRY(find_in_fragments(session, track, time, true, &sample));
    *number = sample.number;
    return FF4_RET_OK;
}

namespace {

// The first sync sample in the fragments that starts at `time` or later.
Mp4Result find_sync_in_fragments(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                 uint64_t* syncTime) {
    for (;;) {
        uint64_t start = 0;
        Mp4SampleInfo sample{};
        FF4_TRY(mp4_get_sample_info_at_time(session, track, time, &start, &sample));
        if (start >= time && sample.isSync != 0) {
            *syncTime = start;
            return FF4_RET_OK;
        }
        uint64_t next = 0;
        FF4_TRY(mp4_add(start, sample.duration, &next));
        if (next <= time)  // a step that does not advance
            return mp4_blame(session->host, fourcc("stts"), FF4_RET_FORMAT);
        time = next;
    }
}

}  // namespace

Mp4Result mp4_find_sync_after_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                   uint64_t* syncTime) {
    if (!session || !syncTime || track == 0) return FF4_RET_ARGS;
    uint32_t sync = 0, number = 0, next = 0;
    uint64_t start = 0;
    Mp4Result result = mp4_find_sample_at_time(session, track, time, &sync, &number, &start);
    if (result == FF4_RET_OK)
        result = mp4_next_sync_sample(session, track, number, &next, syncTime);
    if (result != FF4_RET_NOTFOUND || !session->fragments) return result;

    uint64_t tables_end = 0, behind = 0;
    FF4_TRY(mp4_get_tables_duration(session, track, &tables_end));
    if (time >= tables_end) {
        Mp4SampleInfo holding{};
        FF4_TRY(mp4_get_sample_info_at_time(session, track, time, &start, &holding));
        FF4_TRY(mp4_add(start, holding.duration, &behind));
    }
    return find_sync_in_fragments(session, track, std::max(behind, tables_end), syncTime);
}

}  // namespace tarn
