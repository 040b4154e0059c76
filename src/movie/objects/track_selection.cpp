#include "movie/objects/track_selection.h"

#include "movie/engine/samples.h"
#include "mp4format/atoms/hevc_entry.h"

namespace tarn {
namespace {

constexpr uint32_t kTrackEnabled = 1;

bool can_decode(uint32_t format) {
    return format == fourcc("mp4a") || format == fourcc("twos") || format == fourcc("sowt");
}

// FF4_RET_NOTFOUND for a track without any entry.
template <typename Look>
Mp4Result look_at_first(Mp4ReadSession* session, uint32_t track, Look look) {
    bool found = false;
    FF4_TRY(mp4_visit_sample_entries(session, track, 1, [&](uint32_t, const Mp4SampleEntry& entry) {
        found = true;
        look(entry);
        return FF4_RET_OK;
    }));
    return found ? FF4_RET_OK : FF4_RET_NOTFOUND;
}

// Whether the first entry is of a kind that this program serves.
Mp4Result is_served(Mp4ReadSession* session, uint32_t track, uint32_t handler, bool* served) {
    *served = false;
    if (handler != fourcc("vide") && handler != fourcc("soun")) return FF4_RET_OK;
    return look_at_first(session, track, [&](const Mp4SampleEntry& entry) {
        *served =
            handler == fourcc("soun") ? can_decode(entry.format) : entry.visual.config_type != 0;
    });
}

// Whether the samples lie in this file. A track without references, or an empty location, counts
// as the same file.
Mp4Result is_in_this_file(Mp4ReadSession* session, uint32_t track, bool* inside) {
    *inside = true;
    Mp4DataRefs* refs = nullptr;
    const Mp4Result result = mp4_open_data_refs(session, track, &refs);
    if (result == FF4_RET_NOTFOUND) return FF4_RET_OK;
    FF4_TRY(result);
    Mp4DataRefEntry ref{};
    if (mp4_get_data_ref(session, refs, 1, &ref) == FF4_RET_OK)
        *inside = !ref.location || ref.location[0] == '\0';
    return mp4_close_data_refs(session, refs);
}

Mp4Result first_sample(Mp4ReadSession* session, uint32_t track, Mp4SampleInfo* sample) {
    const Mp4Result result = mp4_get_sample_info(session, track, 1, sample);
    if (result != FF4_RET_NOTFOUND || !session->fragments) return result;
    uint64_t start = 0;
    return mp4_get_sample_info_at_time(session, track, 0, &start, sample);
}

// Failures that say nothing about the file.
bool is_of_the_machine(Mp4Result result) {
    return result == FF4_RET_FILE || result == FF4_RET_NOMEM;
}

struct Candidate {
    uint32_t handler;
    Mp4TrackRole role;
    Mp4SampleInfo first;
    bool served, inside;
    bool IsGood() const { return served && inside; }
};

Mp4Result examine_track(Mp4ReadSession* session, uint32_t track, Candidate* candidate) {
    Mp4TrackHeaderInfo header{};
    FF4_TRY(mp4_get_track_header(session, track, &header));
    if ((header.flags & kTrackEnabled) == 0) return FF4_RET_OK;
    Mp4HandlerInfo handler{};
    FF4_TRY(mp4_get_handler(session, track, &handler));
    candidate->handler = handler.type;
    FF4_TRY(is_served(session, track, handler.type, &candidate->served));
    if (!candidate->served) return FF4_RET_OK;
    FF4_TRY(first_sample(session, track, &candidate->first));
    return is_in_this_file(session, track, &candidate->inside);
}

// Takes the track unless there is one of its kind. True when it was taken.
bool take(uint32_t track, const Candidate& candidate, CMovieInfoType* info) {
    MovieTrackInfo& chosen = candidate.handler == fourcc("vide") ? info->video : info->audio;
    if (chosen.trackNumber != 0) return false;
    chosen.trackNumber = track;
    chosen.defaultDuration = candidate.first.duration;
    chosen.compositionSigned = candidate.first.compositionSigned;
    chosen.role = candidate.role.role;
    chosen.roleDetail = static_cast<uint16_t>(candidate.role.detail);
    return true;
}

// Why a track was not taken; none for a disabled one. It fails where the track is damaged.
Mp4Result find_fault(Mp4ReadSession* session, uint32_t track, TrackFault* fault, uint32_t* code) {
    Mp4TrackHeaderInfo header{};
    FF4_TRY(mp4_get_track_header(session, track, &header));
    if ((header.flags & kTrackEnabled) == 0) return FF4_RET_OK;
    FF4_TRY(mp4_open_track(session, track));
    FF4_TRY(
        look_at_first(session, track, [&](const Mp4SampleEntry& entry) { *code = entry.format; }));
    Candidate candidate{};
    FF4_TRY(examine_track(session, track, &candidate));
    // A kind that is served, where all of its description is there.
    if (!candidate.served && mp4_is_hevc(*code))
        return mp4_blame(session->host, *code, FF4_RET_FORMAT);
    *fault = !candidate.served  ? TrackFault::kKind
             : candidate.inside ? TrackFault::kRole
                                : TrackFault::kElsewhere;
    return FF4_RET_OK;
}

// Chunks are asked for run by run; a table that is broken elsewhere is told where it is walked.
Mp4Result check_descriptions(Mp4ReadSession* session, const Mp4TableReader& tables,
                             size_t descriptions) {
    Mp4ChunkRun run{};
    for (uint64_t sample = 1; sample <= tables.at->sample_count;
         sample = run.first_sample + uint64_t{run.chunk_count} * run.samples_per_chunk) {
        const Mp4Result result = mp4_lookup_chunk_run(tables, static_cast<uint32_t>(sample), &run);
        if (is_of_the_machine(result)) return result;
        if (result != FF4_RET_OK) {
            mp4_clear_fault(session->host);
            return FF4_RET_OK;
        }
        if (run.description_index == 0 || run.description_index > descriptions)
            return mp4_blame(session->host, fourcc("stsc"), FF4_RET_FORMAT);
    }
    return FF4_RET_OK;
}

void copy_block(const Mp4ByteBlock& block, std::vector<uint8_t>* out) {
    out->assign(block.data, block.data + block.size);
}

// Calls visit(index, entry) for the descriptions of a track, if there are any.
template <typename Visit>
Mp4Result visit_entries(Mp4ReadSession* session, uint32_t track, Visit visit) {
    const Mp4Result result = mp4_visit_sample_entries(session, track, UINT32_MAX, visit);
    return result == FF4_RET_NOTFOUND ? FF4_RET_OK : result;
}

}  // namespace

Mp4Result SelectTracks(Mp4ReadSession* session, bool camera, CMovieInfoType* info,
                       uint32_t* chosen) {
    uint32_t count = 0;
    *chosen = 0;
    FF4_TRY(mp4_get_track_count(session, &count));
    for (uint32_t track = 1; track <= count; ++track) {
        Candidate candidate{};
        mp4_clear_fault(session->host);  // of a track that was passed over
        Mp4Result result = mp4_open_track(session, track);
        const bool opened = result == FF4_RET_OK;
        if (opened && camera) {
            result = mp4_get_track_role(session, track, &candidate.role);
            if (result != FF4_RET_OK) {
                FF4_TRY(mp4_close_track(session, track));
                return is_of_the_machine(result) ? result : FF4_RET_OK;
            }
        }
        const bool main = !camera || candidate.role.role == kRoleMain;
        if (opened && main) result = examine_track(session, track, &candidate);
        if (is_of_the_machine(result)) return result;
        if (opened && main && result == FF4_RET_OK && candidate.IsGood() &&
            take(track, candidate, info)) {
            ++*chosen;
        } else if (opened) {
            FF4_TRY(mp4_close_track(session, track));
        }
    }
    return FF4_RET_OK;
}

TrackFault FindTrackFault(Mp4ReadSession* session, uint32_t handler, uint32_t* code) {
    uint32_t count = 0;
    *code = 0;
    mp4_clear_fault(session->host);
    static_cast<void>(mp4_get_track_count(session, &count));
    for (uint32_t track = 1; track <= count; ++track) {
        Mp4HandlerInfo found{};
        if (mp4_get_handler(session, track, &found) != FF4_RET_OK || found.type != handler)
            continue;
        TrackFault fault = TrackFault::kNone;
        if (find_fault(session, track, &fault, code) != FF4_RET_OK) {
            *code = mp4_fault_atom(session->host);
            return TrackFault::kDamaged;
        }
        if (fault != TrackFault::kNone) return fault;
    }
    return TrackFault::kNone;
}

Mp4Result CheckTrack(Mp4ReadSession* session, uint32_t track, size_t descriptions) {
    const Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    const Mp4TableReader tables = mp4_tables_of(session, *open);
    FF4_TRY(mp4_check_sync_order(tables));
    return check_descriptions(session, tables, descriptions);
}

Mp4Result ReadTrackInfo(Mp4ReadSession* session, MovieTrackInfo* track) {
    if (!mp4_find_open_track(session, track->trackNumber)) return FF4_RET_STATE;
    Mp4MediaHeaderInfo header{};
    FF4_TRY(mp4_get_media_header(session, track->trackNumber, &header));
    if (header.timescale == 0) return mp4_blame(session->host, fourcc("mdhd"), FF4_RET_FORMAT);
    track->timescale = header.timescale;
    FF4_TRY(mp4_get_track_duration(session, track->trackNumber, &track->duration));
    FF4_TRY(mp4_get_total_sample_count(session, track->trackNumber, &track->sampleCount));

    Mp4EditList* edits = nullptr;
    FF4_TRY(mp4_open_edit_list(session, track->trackNumber, &edits));
    for (const Mp4Edit* edit = edits->head; edit; edit = edit->next) {
        track->edits.push_back(
            {edit->segment_duration, edit->media_time,
             static_cast<uint32_t>(edit->rate_integer) << 16 | edit->rate_fraction});
    }
    return mp4_close_edit_list(session, edits);
}

Mp4Result ReadVideoDescriptions(Mp4ReadSession* session, uint32_t track,
                                std::vector<CVideoSampleDescriptionInfo>* list) {
    return visit_entries(session, track, [&](uint32_t index, const Mp4SampleEntry& entry) {
        CVideoSampleDescriptionInfo& info = list->emplace_back();
        info.index = index;
        info.entry = mp4_video_entry_of(entry);
        copy_block(entry.visual.pasp, &info.pixelAspect);
        copy_block(entry.visual.colr, &info.colour);
        copy_block(entry.visual.hvcc, &info.hevcConfig);
        if (entry.kind == kEntryMpeg4Visual) copy_block(entry.es.bytes, &info.decoderConfig);
        if (entry.kind != kEntryAvc) return FF4_RET_OK;
        copy_block(entry.visual.extra, &info.extraData);
        copy_block(entry.avc.bytes, &info.avcConfig);
        for (const Mp4ParameterSet* s = entry.avc.sequence_sets.head; s; s = s->next)
            copy_block(s->data, &info.spsData);
        for (const Mp4ParameterSet* s = entry.avc.picture_sets.head; s; s = s->next)
            copy_block(s->data, &info.ppsData);
        info.avc = mp4_avc_info_of(entry);
        return FF4_RET_OK;
    });
}

Mp4Result ReadAudioDescriptions(Mp4ReadSession* session, uint32_t track,
                                std::vector<CAudioSampleDescriptionInfo>* list) {
    return visit_entries(session, track, [&](uint32_t index, const Mp4SampleEntry& entry) {
        CAudioSampleDescriptionInfo& info = list->emplace_back();
        info.index = index;
        copy_block(entry.es.bytes, &info.decoderConfig);
        info.objectType = entry.es.object_type_indication;
        info.averageBitRate = entry.es.avg_bitrate;
        info.maximumBitRate = entry.es.max_bitrate;
        info.entry = mp4_audio_entry_of(entry);
        return FF4_RET_OK;
    });
}

}  // namespace tarn
