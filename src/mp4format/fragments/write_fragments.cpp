#include "mp4format/fragments/write_fragments.h"

#include <algorithm>
#include <utility>

namespace tarn {
namespace {

constexpr uint64_t kMfroSize = 16;

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
    Mp4Fields<24> fields;
    fields.U32(0);
    fields.U32(trex.track_id);
    fields.U32(trex.default_description_index);
    fields.U32(trex.default_duration);
    fields.U32(trex.default_size);
    fields.U32(trex.default_flags);
    return mp4_write_fields(sink, fourcc("trex"), fields);
}

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

Mp4Result tfra_version(const Mp4WriteOptions& options, const Mp4TrackRandomAccess& table,
                       uint32_t* version) {
    uint64_t most = 0;
    for (uint32_t i = 0; i < table.count; ++i)
        most = std::max({most, table.points[i].time, table.points[i].moof_offset});
    const bool wide = most > UINT32_MAX;
    switch (options.version_policy) {
        case kVersion0:
        case kVersionAlways1:
            *version = 1;
            return FF4_RET_OK;
        case kVersionAuto:
            *version = wide ? 1 : 0;
            return FF4_RET_OK;
        case kVersion0Too:
            *version = 0;
            return wide ? FF4_RET_STATE : FF4_RET_OK;
        default:
            return FF4_RET_INTERNAL;
    }
}

// The low `width` bytes of a number.
template <typename Fields>
Mp4Result put_number(uint32_t value, uint32_t width, Fields* fields) {
    if (width < 4 && value >> (8 * width) != 0) return FF4_RET_OVERFLOW;
    for (uint32_t i = width; i-- > 0;)
        fields->U8(value >> (8 * i));
    return FF4_RET_OK;
}

Mp4Result put_point(Mp4Sink& sink, uint32_t version, uint32_t length_sizes,
                    const Mp4RandomAccessPoint& point) {
    Mp4Fields<28> fields;
    fields.Time(version, point.time);
    fields.Time(version, point.moof_offset);
    FF4_TRY(put_number(point.traf_number, (length_sizes >> 4 & 3) + 1, &fields));
    FF4_TRY(put_number(point.trun_number, (length_sizes >> 2 & 3) + 1, &fields));
    FF4_TRY(put_number(point.sample_number, (length_sizes & 3) + 1, &fields));
    return mp4_put_fields(sink, fields);
}

// The size of the whole 'mfra', for whoever comes from the end of the file. Always in the short
// form: readers look at the last 16 bytes.
Mp4Result write_mfro(Mp4Sink& sink, uint64_t mfra_size) {
    if (mfra_size > UINT32_MAX) return FF4_RET_OVERFLOW;
    Mp4Fields<8> fields;
    fields.U32(0);
    fields.U32(static_cast<uint32_t>(mfra_size));
    const uint32_t policy = std::exchange(sink.options.size_policy, kSize32);
    const Mp4Result result = mp4_write_fields(sink, fourcc("mfro"), fields);
    sink.options.size_policy = policy;
    return result;
}

}  // namespace

Mp4Result mp4_write_mvex(Mp4Sink& sink, const Mp4MovieExtends& extends) {
    const auto body = [&](Mp4Sink& to) {
        if (extends.fragment_duration > 0) FF4_TRY(write_mehd(to, extends.fragment_duration));
        for (const Mp4Trex* trex = extends.head; trex; trex = trex->next)
            FF4_TRY(write_trex(to, *trex));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("mvex"), body);
}

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

Mp4Result mp4_write_tfra(Mp4Sink& sink, const Mp4TrackRandomAccess& table) {
    if (!table.points && table.count > 0) return FF4_RET_ARGS;
    uint32_t version = 0;
    FF4_TRY(tfra_version(sink.options, table, &version));
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<16> head;
        head.U32(version << 24);
        head.U32(table.track_id);
        head.U32(table.length_sizes & 0x3F);
        head.U32(table.count);
        FF4_TRY(mp4_put_fields(to, head));
        for (uint32_t i = 0; i < table.count; ++i)
            FF4_TRY(put_point(to, version, table.length_sizes, table.points[i]));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("tfra"), body);
}

Mp4Result mp4_write_mfra(Mp4Sink& sink, const Mp4RandomAccess& access) {
    uint64_t whole = 0;
    Mp4Sink tables = mp4_counting(sink);
    for (const Mp4TrackRandomAccess* table = access.head; table; table = table->next)
        FF4_TRY(mp4_write_tfra(tables, *table));
    FF4_TRY(mp4_atom_total_size(sink.host, sink.options, tables.position + kMfroSize, &whole));
    const auto body = [&](Mp4Sink& to) {
        for (const Mp4TrackRandomAccess* table = access.head; table; table = table->next)
            FF4_TRY(mp4_write_tfra(to, *table));
        return write_mfro(to, whole);
    };
    return mp4_write_container(sink, fourcc("mfra"), body);
}

}  // namespace tarn
