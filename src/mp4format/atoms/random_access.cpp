#include "mp4format/atoms/random_access.h"

#include <algorithm>
#include <utility>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kMfroSize = 16;

constexpr uint32_t number_size(uint32_t length_sizes, int shift) {
    return (length_sizes >> shift & 3) + 1;
}

uint32_t entry_size(const Mp4TrackRandomAccess& table) {
    const uint32_t times = table.version == 1 ? 16 : 8;
    return times + number_size(table.length_sizes, 4) + number_size(table.length_sizes, 2) +
           number_size(table.length_sizes, 0);
}

Mp4Result read_tfra(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4RandomAccess* access) {
    constexpr uint64_t kHead = 16;
    if (payload.size < kHead) return FF4_RET_FORMAT;
    uint8_t head[kHead];
    FF4_TRY(mp4_read_at(host, file, payload.offset, head, sizeof head));
    const uint32_t version = full_version(get_be32(head));
    if (version > 1) return FF4_RET_ARGS;

    auto table = mp4_make<Mp4TrackRandomAccess>(host);
    if (!table) return FF4_RET_NOMEM;
    table->version = version;
    table->track_id = get_be32(head + 4);
    table->length_sizes = get_be32(head + 8) & 0x3F;
    table->entries = {payload.offset + kHead, payload.size - kHead};
    const uint64_t fitting = table->entries.size / entry_size(*table);
    table->count = static_cast<uint32_t>(std::min<uint64_t>(get_be32(head + 12), fitting));
    mp4_append(access, table.release());
    return FF4_RET_OK;
}

Mp4RandomAccessPoint decode_point(const Mp4TrackRandomAccess& table, const uint8_t* p) {
    Mp4FieldReader fields(p);
    Mp4RandomAccessPoint point{};
    point.time = fields.Time(table.version);
    point.moof_offset = fields.Time(table.version);
    point.traf_number = fields.Number(number_size(table.length_sizes, 4));
    point.trun_number = fields.Number(number_size(table.length_sizes, 2));
    point.sample_number = fields.Number(number_size(table.length_sizes, 0));
    return point;
}

bool earlier(const Mp4RandomAccessPoint& a, const Mp4RandomAccessPoint& b) {
    return a.time < b.time;
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
    FF4_TRY(put_number(point.traf_number, number_size(length_sizes, 4), &fields));
    FF4_TRY(put_number(point.trun_number, number_size(length_sizes, 2), &fields));
    FF4_TRY(put_number(point.sample_number, number_size(length_sizes, 0), &fields));
    return mp4_put_fields(sink, fields);
}

// The size of the whole 'mfra', for whoever comes from the end of the file. Always in the short
// form: readers look at the last 16 bytes.
Mp4Result write_mfro(Mp4Sink& sink, uint64_t mfra_size) {
    if (mfra_size > UINT32_MAX) return FF4_RET_OVERFLOW;
    const uint32_t policy = std::exchange(sink.options.size_policy, kSize32);
    const Mp4Result result =
        mp4_write_words(sink, fourcc("mfro"), 0, static_cast<uint32_t>(mfra_size));
    sink.options.size_policy = policy;
    return result;
}

}  // namespace

Mp4Result mp4_read_mfra(Mp4Host* host, Mp4File* file, const Mp4AtomInfo& atom,
                        Mp4RandomAccess* access) {
    if (!host || !file || !access) return FF4_RET_ARGS;
    Mp4RandomAccess found{atom.atom, atom.payload, nullptr, nullptr};
    const Mp4Result result =
        mp4_walk(host, file, atom.payload, [&](const Mp4AtomInfo& child) -> Mp4Result {
            return child.type == fourcc("tfra") ? read_tfra(host, file, child.payload, &found)
                                                : FF4_RET_OK;
        });
    if (result != FF4_RET_OK) {
        mp4_free_mfra(host, &found);
        return result;
    }
    // One at offset 0 does not count as present: what was read of it goes.
    mp4_free_mfra(host, access);
    *access = found;
    return FF4_RET_OK;
}

Mp4Result mp4_find_mfra(Mp4Host* host, Mp4File* file, uint64_t file_size, Mp4RandomAccess* access) {
    if (!host || !file || !access) return FF4_RET_ARGS;
    if (file_size < kMfroSize || present(access->atom)) return FF4_RET_OK;
    uint8_t tail[kMfroSize];
    FF4_TRY(mp4_read_at(host, file, file_size - kMfroSize, tail, sizeof tail));
    if (get_be32(tail) != kMfroSize || get_be32(tail + 4) != fourcc("mfro")) return FF4_RET_OK;

    const uint64_t size = get_be32(tail + 12);
    if (size > file_size || size < kAtomHeader) return FF4_RET_OK;
    Mp4AtomInfo info{};
    FF4_TRY(mp4_read_atom_header(host, file, file_size - size, size, &info));
    if (info.type != fourcc("mfra")) return FF4_RET_OK;
    return mp4_read_mfra(host, file, info, access);
}

void mp4_free_mfra(Mp4Host* host, Mp4RandomAccess* access) {
    mp4_free_list(access, [=](Mp4TrackRandomAccess* table) {
        mp4_free(host, table->points);
        mp4_free(host, table);
    });
}

Mp4TrackRandomAccess* mp4_find_tfra(const Mp4RandomAccess& access, uint32_t track_id) {
    Mp4TrackRandomAccess* table = access.head;
    while (table && table->track_id != track_id)
        table = table->next;
    return table;
}

Mp4Result mp4_load_tfra(Mp4Host* host, Mp4File* file, Mp4TrackRandomAccess* table) {
    if (!host || !file || !table) return FF4_RET_ARGS;
    if (table->points || table->count == 0) return FF4_RET_OK;
    const uint32_t size = entry_size(*table);
    HostPtr<uint8_t> bytes(nullptr, {host});
    FF4_TRY(
        mp4_read_block(host, file, table->entries.offset, uint64_t{table->count} * size, &bytes));
    auto points = mp4_make<Mp4RandomAccessPoint>(host, table->count);
    if (!points) return FF4_RET_NOMEM;
    for (uint32_t i = 0; i < table->count; ++i)
        points.get()[i] = decode_point(*table, bytes.get() + uint64_t{i} * size);

    std::stable_sort(points.get(), points.get() + table->count, earlier);
    table->points = points.release();
    return FF4_RET_OK;
}

const Mp4RandomAccessPoint* mp4_find_access_point(const Mp4TrackRandomAccess& table,
                                                  uint64_t time) {
    if (!table.points) return nullptr;
    const Mp4RandomAccessPoint target{time, 0, 0, 0, 0};
    const Mp4RandomAccessPoint* above =
        std::upper_bound(table.points, table.points + table.count, target, earlier);
    return above == table.points ? nullptr : above - 1;
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
