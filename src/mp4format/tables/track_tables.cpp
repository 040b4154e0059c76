#include "mp4format/tables/track_tables.h"

#include <algorithm>

#include "mp4format/io.h"

namespace tarn {
namespace {

// What every walk below hands on.
struct Walker {
    Mp4Host* host;
    Mp4File* file;
    uint64_t file_size;
    Mp4TrackTables* tables;
};

uint32_t clamp(uint64_t count, uint64_t room) {
    return static_cast<uint32_t>(std::min(count, room));
}

// What is kept of a table.
struct TableFields {
    Mp4Span* table;
    uint32_t* count;
    Mp4Span* entries;
    uint32_t* version = nullptr;
};

// A table of fixed entries: keeps the first of its kind, its count cut to the entries that fit.
Mp4Result read_table(const Walker& w, const Mp4AtomInfo& atom, uint32_t max_version,
                     uint64_t entry_size, const TableFields& to) {
    if (present(*to.table)) return FF4_RET_OK;
    Mp4TableHeader head{};
    FF4_TRY(mp4_read_table_header(w.host, w.file, atom.payload, max_version, &head));
    *to.table = atom.payload;
    *to.count = clamp(head.count, head.entries.size / entry_size);
    *to.entries = head.entries;
    if (to.version) *to.version = full_version(head.version_flags);
    return FF4_RET_OK;
}

// The 12-byte head that 'stsz' and 'stz2' share: version and flags, then a word that is the
// constant size or holds the field size in its low byte, then the count.
Mp4Result read_size_table(const Walker& w, const Mp4AtomInfo& atom) {
    Mp4TrackTables* t = w.tables;
    if (present(t->size_table)) return FF4_RET_OK;
    constexpr uint64_t kSizeHead = 12;
    if (atom.payload.size < kSizeHead) return FF4_RET_FORMAT;
    uint8_t head[kSizeHead];
    FF4_TRY(mp4_read_at(w.host, w.file, atom.payload.offset, head, sizeof head));
    if (head[0] != 0) return FF4_RET_FORMAT;

    const uint64_t room = atom.payload.size - kSizeHead;
    const uint32_t count = get_be32(head + 8);
    if (atom.type == fourcc("stz2")) {
        const uint32_t bits = head[7];
        if (bits != 4 && bits != 8 && bits != 16) return FF4_RET_FORMAT;
        t->field_size = bits;
        t->sample_count = clamp(count, bits == 4 ? room * 2 : room / (bits / 8));
    } else {
        t->field_size = 32;
        t->sample_size = get_be32(head + 4);
        // A constant size has no entries to measure: no file holds more samples than bytes.
        t->sample_count = clamp(count, t->sample_size == 0 ? room / 4 : w.file_size);
    }
    t->size_type = atom.type;
    t->size_table = atom.payload;
    t->size_entries = {atom.payload.offset + kSizeHead, room};
    return FF4_RET_OK;
}

Mp4Result read_chunk_table(const Walker& w, const Mp4AtomInfo& atom) {
    Mp4TrackTables* t = w.tables;
    if (present(t->chunk_table)) return FF4_RET_OK;
    const uint64_t entry_size = atom.type == fourcc("co64") ? 8 : 4;
    FF4_TRY(
        read_table(w, atom, 0, entry_size, {&t->chunk_table, &t->chunk_count, &t->chunk_entries}));
    t->chunk_type = atom.type;
    return FF4_RET_OK;
}

// A list whose entries have no fixed size: keeps the first of its kind, its count as it says.
Mp4Result read_list(const Walker& w, const Mp4AtomInfo& atom, uint32_t max_version,
                    Mp4Span* entries, uint32_t* count, uint32_t* version_flags = nullptr) {
    if (present(*entries)) return FF4_RET_OK;
    Mp4TableHeader head{};
    FF4_TRY(mp4_read_table_header(w.host, w.file, atom.payload, max_version, &head));
    *entries = head.entries;
    *count = head.count;
    if (version_flags) *version_flags = head.version_flags;
    return FF4_RET_OK;
}

Mp4Result walk_stbl(const Walker& w, const Mp4Span& stbl) {
    Mp4TrackTables* t = w.tables;
    return mp4_walk(w.host, w.file, stbl, [&](const Mp4AtomInfo& atom) {
        switch (atom.type) {
            case fourcc("stsd"):
                return read_list(w, atom, 0, &t->stsd, &t->stsd_count);
            case fourcc("stts"):
                return read_table(w, atom, 0, 8, {&t->stts, &t->stts_count, &t->stts_entries});
            case fourcc("ctts"):
                return read_table(w, atom, 1, 8,
                                  {&t->ctts, &t->ctts_count, &t->ctts_entries, &t->ctts_version});
            case fourcc("stsc"):
                return read_table(w, atom, 0, 12, {&t->stsc, &t->stsc_count, &t->stsc_entries});
            case fourcc("stsz"):
            case fourcc("stz2"):
                return read_size_table(w, atom);
            case fourcc("stco"):
            case fourcc("co64"):
                return read_chunk_table(w, atom);
            case fourcc("stss"):
                return read_table(w, atom, 0, 4, {&t->stss, &t->stss_count, &t->stss_entries});
            default:
                return FF4_RET_OK;
        }
    });
}

Mp4Result walk_dinf(const Walker& w, const Mp4Span& dinf) {
    Mp4TrackTables* t = w.tables;
    return mp4_walk(w.host, w.file, dinf, [&](const Mp4AtomInfo& atom) {
        if (atom.type != fourcc("dref")) return FF4_RET_OK;
        return read_list(w, atom, 0, &t->dref_entries, &t->dref_count);
    });
}

Mp4Result read_media_header(const Walker& w, const Mp4AtomInfo& atom) {
    if (present(w.tables->media_header)) return FF4_RET_OK;
    if (atom.type == fourcc("nmhd")) {
        Mp4Span rest{};
        FF4_TRY(mp4_read_full_header(w.host, w.file, atom.payload, 0, &rest));
    }
    w.tables->media_header_type = atom.type;
    w.tables->media_header = atom.payload;
    return FF4_RET_OK;
}

Mp4Result walk_minf(const Walker& w, const Mp4Span& minf) {
    Mp4Span dinf{}, stbl{};
    return mp4_walk(w.host, w.file, minf, [&](const Mp4AtomInfo& atom) {
        switch (atom.type) {
            case fourcc("dinf"):
                return mp4_is_first(atom, &dinf) ? walk_dinf(w, atom.payload) : FF4_RET_OK;
            case fourcc("stbl"):
                return mp4_is_first(atom, &stbl) ? walk_stbl(w, atom.payload) : FF4_RET_OK;
            case fourcc("vmhd"):
            case fourcc("smhd"):
            case fourcc("hmhd"):
            case fourcc("nmhd"):
                return read_media_header(w, atom);
            default:
                return FF4_RET_OK;
        }
    });
}

Mp4Result walk_mdia(const Walker& w, const Mp4Span& mdia) {
    Mp4Span minf{};
    return mp4_walk(w.host, w.file, mdia, [&](const Mp4AtomInfo& atom) {
        const bool first = atom.type == fourcc("minf") && mp4_is_first(atom, &minf);
        return first ? walk_minf(w, atom.payload) : FF4_RET_OK;
    });
}

Mp4Result walk_edts(const Walker& w, const Mp4Span& edts) {
    Mp4TrackTables* t = w.tables;
    return mp4_walk(w.host, w.file, edts, [&](const Mp4AtomInfo& atom) {
        if (atom.type != fourcc("elst")) return FF4_RET_OK;
        return read_list(w, atom, 1, &t->elst_entries, &t->elst_count, &t->elst_version_flags);
    });
}

}  // namespace

Mp4Result mp4_read_track_tables(Mp4Host* host, Mp4File* file, const Mp4Span& trak,
                                uint64_t file_size, Mp4TrackTables* tables) {
    if (!host || !file || !tables) return FF4_RET_ARGS;
    const Walker w{host, file, file_size, tables};
    Mp4Span edts{}, mdia{};
    return mp4_walk(host, file, trak, [&](const Mp4AtomInfo& atom) {
        switch (atom.type) {
            case fourcc("tref"):
                if (!present(tables->tref)) tables->tref = atom.payload;
                return FF4_RET_OK;
            case fourcc("edts"):
                return mp4_is_first(atom, &edts) ? walk_edts(w, atom.payload) : FF4_RET_OK;
            case fourcc("mdia"):
                return mp4_is_first(atom, &mdia) ? walk_mdia(w, atom.payload) : FF4_RET_OK;
            default:
                return FF4_RET_OK;
        }
    });
}

}  // namespace tarn
