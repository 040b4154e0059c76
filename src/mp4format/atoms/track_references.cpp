#include "mp4format/atoms/track_references.h"

#include <algorithm>

namespace tarn {
namespace {

Mp4Result write_reference(Mp4Sink& sink, const Mp4TrackReference& reference) {
    const auto body = [&](Mp4Sink& to) {
        for (uint32_t i = 0; i < reference.count; ++i)
            FF4_TRY(mp4_put_words(to, reference.track_ids[i]));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, reference.type, body);
}

}  // namespace

Mp4Result mp4_add_track_reference(Mp4Host* host, uint32_t type, const uint32_t* track_ids,
                                  uint32_t count, Mp4TrackReferenceList* list) {
    if (!host || !track_ids || count == 0 || !list) return FF4_RET_ARGS;
    auto reference = mp4_make<Mp4TrackReference>(host);
    auto ids = mp4_make<uint32_t>(host, count);
    if (!reference || !ids) return FF4_RET_NOMEM;
    std::copy_n(track_ids, count, ids.get());
    reference->type = type;
    reference->track_ids = ids.release();
    reference->count = count;
    mp4_append(list, reference.release());
    return FF4_RET_OK;
}

void mp4_free_track_references(Mp4Host* host, Mp4TrackReferenceList* list) {
    mp4_free_list(list, [=](Mp4TrackReference* reference) {
        mp4_free(host, reference->track_ids);
        mp4_free(host, reference);
    });
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

}  // namespace tarn
