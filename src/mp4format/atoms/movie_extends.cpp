#include "mp4format/atoms/movie_extends.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

Mp4Result read_mehd(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                    Mp4MovieExtends* extends) {
    constexpr uint64_t kVersion0 = 8, kVersion1 = 12;
    if (payload.size < kVersion0) return FF4_RET_FORMAT;
    uint8_t bytes[kVersion1];
    FF4_TRY(mp4_read_at(host, file, payload.offset, bytes, kVersion0));
    const uint32_t version = full_version(get_be32(bytes));
    if (version > 1 || (version == 1 && payload.size < kVersion1)) return FF4_RET_FORMAT;
    if (version == 1) FF4_TRY(mp4_read(host, file, bytes + kVersion0, kVersion1 - kVersion0));

    extends->fragment_duration = version == 1 ? get_be64(bytes + 4) : get_be32(bytes + 4);
    extends->mehd = payload;
    return FF4_RET_OK;
}

Mp4Result read_trex(Mp4Host* host, Mp4File* file, const Mp4AtomInfo& atom,
                    Mp4MovieExtends* extends) {
    constexpr uint64_t kTrex = 24;
    if (atom.payload.size < kTrex) return FF4_RET_FORMAT;
    uint8_t bytes[kTrex];
    FF4_TRY(mp4_read_at(host, file, atom.payload.offset, bytes, sizeof bytes));

    Mp4FieldReader fields(bytes + 4);
    Mp4Trex trex{};
    trex.atom = atom.atom;
    fields.U32(trex.track_id);
    fields.U32(trex.default_description_index);
    fields.U32(trex.default_duration);
    fields.U32(trex.default_size);
    fields.U32(trex.default_flags);
    return mp4_append_copy(host, extends, trex);
}

Mp4Result write_mehd(Mp4Sink& sink, uint64_t duration) {
    // Three times the same, so that a duration that doesn't fit is refused and not cut.
    uint32_t version = 0;
    FF4_TRY(mp4_pick_version(sink.host, sink.options, duration, duration, duration, &version));
    Mp4Fields<12> fields;
    fields.U32(version << 24);
    fields.Time(version, duration);
    return mp4_write_fields(sink, fourcc("mehd"), fields);
}

Mp4Result write_trex(Mp4Sink& sink, const Mp4Trex& trex) {
    return mp4_write_words(sink, fourcc("trex"), 0, trex.track_id, trex.default_description_index,
                           trex.default_duration, trex.default_size, trex.default_flags);
}

}  // namespace

Mp4Result mp4_read_mvex(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                        Mp4MovieExtends* extends) {
    if (!host || !file || !extends) return FF4_RET_ARGS;
    return mp4_walk(host, file, payload, [&](const Mp4AtomInfo& child) -> Mp4Result {
        if (child.type == fourcc("mehd") && !present(extends->mehd))
            return read_mehd(host, file, child.payload, extends);
        if (child.type == fourcc("trex")) return read_trex(host, file, child, extends);
        return FF4_RET_OK;
    });
}

void mp4_free_mvex(Mp4Host* host, Mp4MovieExtends* extends) {
    mp4_free_list(host, extends);
}

const Mp4Trex* mp4_find_trex(const Mp4MovieExtends& extends, uint32_t track_id) {
    const Mp4Trex* trex = extends.head;
    while (trex && trex->track_id != track_id)
        trex = trex->next;
    return trex;
}

Mp4Result mp4_write_mvex(Mp4Sink& sink, const Mp4MovieExtends& extends) {
    const auto body = [&](Mp4Sink& to) {
        if (extends.fragment_duration > 0) FF4_TRY(write_mehd(to, extends.fragment_duration));
        for (const Mp4Trex* trex = extends.head; trex; trex = trex->next)
            FF4_TRY(write_trex(to, *trex));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("mvex"), body);
}

}  // namespace tarn
