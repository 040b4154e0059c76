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

Mp4Result put_text(Mp4Host* host, Mp4File* file, uint64_t offset, const char* text,
                   uint64_t* total) {
    return text ? mp4_put(host, file, offset, text, std::strlen(text) + 1, total) : FF4_RET_OK;
}

// One entry of 'dref'. In a 'urn ' the name comes first.
Mp4Result write_data_ref(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4DataRef& ref, uint64_t* total) {
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        Mp4Fields<kFullHead> head;
        head.U32(ref.version_flags);
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        FF4_TRY(put_text(host, to, at + *size, ref.name, size));
        return put_text(host, to, at + *size, ref.location, size);
    };
    return mp4_write_container(host, options, file, offset, ref.type, body, total);
}

}  // namespace

Mp4Result mp4_write_elst(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4EditList& edits, uint64_t* total) {
    uint32_t version = 0;
    FF4_TRY(elst_version(options, edits, &version));
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        Mp4Fields<kTableHead> head;
        head.U32(version << 24);
        head.U32(edits.count);
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        for (const Mp4Edit* edit = edits.head; edit; edit = edit->next) {
            Mp4Fields<20> entry;
            entry.Time(version, edit->segment_duration);
            entry.Time(version, static_cast<uint64_t>(edit->media_time));
            entry.U16(edit->rate_integer);
            entry.U16(edit->rate_fraction);
            FF4_TRY(mp4_put(host, to, at + *size, entry.Data(), entry.Size(), size));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(host, options, file, offset, fourcc("elst"), body, total);
}

Mp4Result mp4_write_edts(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4EditList& edits, uint64_t* total) {
    if (!edits.head) return FF4_RET_OK;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        return mp4_write_elst(host, options, to, at + *size, edits, size);
    };
    return mp4_write_container(host, options, file, offset, fourcc("edts"), body, total);
}

Mp4Result mp4_write_tref(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TrackReferenceList& references,
                         uint64_t* total) {
    if (!references.head) return FF4_RET_OK;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        for (const Mp4TrackReference* r = references.head; r; r = r->next) {
            const auto ids = [&](Mp4File* ids_to, uint64_t ids_at, uint64_t* ids_size) {
                for (uint32_t i = 0; i < r->count; ++i) {
                    Mp4Fields<4> id;
                    id.U32(r->track_ids[i]);
                    FF4_TRY(
                        mp4_put(host, ids_to, ids_at + *ids_size, id.Data(), id.Size(), ids_size));
                }
                return FF4_RET_OK;
            };
            FF4_TRY(mp4_write_container(host, options, to, at + *size, r->type, ids, size));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(host, options, file, offset, fourcc("tref"), body, total);
}

Mp4Result mp4_write_dref(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4DataRefs& refs, uint64_t* total) {
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        Mp4Fields<kTableHead> head;
        head.U32(0);
        head.U32(refs.count);
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        for (const Mp4DataRef* ref = refs.head; ref; ref = ref->next)
            FF4_TRY(write_data_ref(host, options, to, at + *size, *ref, size));
        return FF4_RET_OK;
    };
    return mp4_write_container(host, options, file, offset, fourcc("dref"), body, total);
}

}  // namespace tarn
