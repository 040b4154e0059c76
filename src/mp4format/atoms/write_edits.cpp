// Edit lists, and what a track refers to: other tracks and the places of its samples.
#include "mp4format/atoms/write_atoms.h"

namespace tarn {
namespace {

Mp4Result elst_version(const Mp4WriteOptions& options, const Mp4EditList& edits,
                       uint32_t* version) {
    if (options.version_policy > kVersionAlways1) return FF4_RET_INTERNAL;
    *version = options.version_policy == kVersionAlways1 ? 1 : 0;
    for (const Mp4Edit* edit = edits.head; edit; edit = edit->next) {
        if (!mp4_edit_needs_64_bits(*edit)) continue;
        if (options.version_policy == kVersion0 || options.version_policy == kVersion0Too)
            return FF4_RET_STATE;
        *version = 1;
    }
    return FF4_RET_OK;
}

Mp4Result put_text(Mp4Sink& sink, const char* text) {
    return text ? mp4_put(sink, text, std::strlen(text) + 1) : FF4_RET_OK;
}

// One entry of 'dref'. In a 'urn ' the name comes first.
Mp4Result write_data_ref(Mp4Sink& sink, const Mp4DataRef& ref) {
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<kFullHead> head;
        head.U32(ref.version_flags);
        FF4_TRY(mp4_put_fields(to, head));
        FF4_TRY(put_text(to, ref.name));
        return put_text(to, ref.location);
    };
    return mp4_write_container(sink, ref.type, body);
}

Mp4Result write_reference(Mp4Sink& sink, const Mp4TrackReference& reference) {
    const auto body = [&](Mp4Sink& to) {
        for (uint32_t i = 0; i < reference.count; ++i) {
            Mp4Fields<4> id;
            id.U32(reference.track_ids[i]);
            FF4_TRY(mp4_put_fields(to, id));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, reference.type, body);
}

}  // namespace

Mp4Result mp4_write_elst(Mp4Sink& sink, const Mp4EditList& edits) {
    uint32_t version = 0;
    FF4_TRY(elst_version(sink.options, edits, &version));
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<kTableHead> head;
        head.U32(version << 24);
        head.U32(edits.count);
        FF4_TRY(mp4_put_fields(to, head));
        for (const Mp4Edit* edit = edits.head; edit; edit = edit->next) {
            Mp4Fields<20> entry;
            entry.Time(version, edit->segment_duration);
            entry.Time(version, static_cast<uint64_t>(edit->media_time));
            entry.U16(edit->rate_integer);
            entry.U16(edit->rate_fraction);
            FF4_TRY(mp4_put_fields(to, entry));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("elst"), body);
}

Mp4Result mp4_write_edts(Mp4Sink& sink, const Mp4EditList& edits) {
    if (!edits.head) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) { return mp4_write_elst(to, edits); };
    return mp4_write_container(sink, fourcc("edts"), body);
}

Mp4Result mp4_write_tref(Mp4Sink& sink, const Mp4TrackReferenceList& references) {
    if (!references.head) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) {
        for (const Mp4TrackReference* r = references.head; r; r = r->next)
            FF4_TRY(write_reference(to, *r));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("tref"), body);
}

Mp4Result mp4_write_dref(Mp4Sink& sink, const Mp4DataRefs& refs) {
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<kTableHead> head;
        head.U32(0);
        head.U32(refs.count);
        FF4_TRY(mp4_put_fields(to, head));
        for (const Mp4DataRef* ref = refs.head; ref; ref = ref->next)
            FF4_TRY(write_data_ref(to, *ref));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("dref"), body);
}

}  // namespace tarn
