#include "mp4format/fragments/write_fragments.h"

#include <algorithm>

namespace tarn {
namespace {

Mp4Result write_mfhd(Mp4Sink& sink, uint32_t sequence_number) {
    Mp4Fields<8> fields;
    fields.U32(0);
    fields.U32(sequence_number);
    return mp4_write_fields(sink, fourcc("mfhd"), fields);
}

Mp4Result write_tfhd(Mp4Sink& sink, const Mp4TfhdBuild& head) {
    Mp4Fields<32> fields;
    fields.U32(full_flags(head.flags));
    fields.U32(head.track_id);
    if (head.flags & kTfhdBaseOffset) fields.U64(head.base_offset);
    if (head.flags & kTfhdDescription) fields.U32(head.description_index);
    if (head.flags & kTfhdDuration) fields.U32(head.default_duration);
    if (head.flags & kTfhdSize) fields.U32(head.default_size);
    if (head.flags & kTfhdFlags) fields.U32(head.default_flags);
    return mp4_write_fields(sink, fourcc("tfhd"), fields);
}

uint64_t row_size(uint32_t flags) {
    uint64_t size = 0;
    for (const uint32_t field : {kTrunDuration, kTrunSize, kTrunSampleFlags, kTrunComposition})
        size += flags & field ? 4 : 0;
    return size;
}

// All rows in one write.
Mp4Result put_rows(Mp4Sink& sink, const Mp4TrunBuild& run) {
    const uint64_t size = row_size(run.flags) * run.row_count;
    if (!sink.file) {
        sink.position += size;
        return FF4_RET_OK;
    }
    auto bytes = mp4_make<uint8_t>(sink.host, size);
    if (!bytes) return FF4_RET_NOMEM;
    uint8_t* to = bytes.get();
    const auto put = [&](uint32_t field, uint32_t value) {
        if (!(run.flags & field)) return;
        put_be32(to, value);
        to += 4;
    };
    for (uint32_t i = 0; i < run.row_count; ++i) {
        const Mp4TrunRow& row = run.rows[i];
        put(kTrunDuration, row.duration);
        put(kTrunSize, row.size);
        put(kTrunSampleFlags, row.flags);
        put(kTrunComposition, static_cast<uint32_t>(row.composition_offset));
    }
    return mp4_put(sink, bytes.get(), size);
}

Mp4Result write_trun(Mp4Sink& sink, const Mp4TrunBuild& run) {
    if (!run.rows && run.row_count > 0) return FF4_RET_ARGS;
    const bool negative = (run.flags & kTrunComposition) &&
                          std::any_of(run.rows, run.rows + run.row_count,
                                      [](const Mp4TrunRow& r) { return r.composition_offset < 0; });
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<16> head;
        head.U32(uint32_t{negative} << 24 | full_flags(run.flags));
        head.U32(run.row_count);
        if (run.flags & kTrunDataOffset) head.U32(static_cast<uint32_t>(run.data_offset));
        if (run.flags & kTrunFirstFlags) head.U32(run.first_sample_flags);
        FF4_TRY(mp4_put_fields(to, head));
        return put_rows(to, run);
    };
    return mp4_write_container(sink, fourcc("trun"), body);
}

Mp4Result write_traf(Mp4Sink& sink, const Mp4TrafBuild& traf) {
    if (!traf.runs && traf.run_count > 0) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(write_tfhd(to, traf.head));
        for (uint32_t i = 0; i < traf.run_count; ++i)
            FF4_TRY(write_trun(to, traf.runs[i]));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("traf"), body);
}

}  // namespace

Mp4Result mp4_write_moof(Mp4Sink& sink, const Mp4MoofBuild& moof) {
    if (!moof.trafs && moof.traf_count > 0) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(write_mfhd(to, moof.sequence_number));
        for (uint32_t i = 0; i < moof.traf_count; ++i)
            FF4_TRY(write_traf(to, moof.trafs[i]));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("moof"), body);
}

}  // namespace tarn
