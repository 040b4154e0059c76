// atoms.h - the atoms of a movie file with real content. What a test does not name has the value
// of an ordinary clip: 320 x 180 pictures at 30000/1001, stereo at 48 kHz, English left undefined.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/byte_builder.h"

namespace tarn {

constexpr uint64_t kTestDate = 0xC5000000;  // seconds since 1904
constexpr uint16_t kLanguageUnd = 0x55C4;

// --- parts of atoms

inline Bytes Matrix() {
    return Be32({0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000});
}

inline Bytes Zeros(size_t count) {
    return Bytes(count, 0);
}

// A time or duration: 64 bits wide in version 1.
inline Bytes Timed(uint8_t version, uint64_t value) {
    Bytes out;
    AppendBe(&out, value, version == 1 ? 8 : 4);
    return out;
}

inline Bytes Counted(FourCC type, uint8_t version, size_t count, const Bytes& entries) {
    return FullAtom(type, version, 0, Be32({static_cast<int64_t>(count)}), entries);
}

// --- movie and track headers

inline Bytes Ftyp(FourCC major, uint32_t minor, const std::vector<FourCC>& compatible) {
    Bytes brands;
    for (const FourCC brand : compatible)
        AppendBe(&brands, brand.value, 4);
    return Atom("ftyp", Be32({major.value, minor}), brands);
}

struct MvhdFields {
    uint8_t version = 0;
    uint64_t creation = kTestDate, modification = kTestDate;
    uint32_t timescale = 1000;
    uint64_t duration = 0;
    uint32_t next_track_id = 3;
};
inline Bytes Mvhd(const MvhdFields& f = {}) {
    return FullAtom("mvhd", f.version, 0, Timed(f.version, f.creation),
                    Timed(f.version, f.modification), Be32({f.timescale}),
                    Timed(f.version, f.duration), Be32({0x10000}), Be16({0x100}), Zeros(10),
                    Matrix(), Zeros(24), Be32({f.next_track_id}));
}

struct TkhdFields {
    uint8_t version = 0;
    uint32_t flags = 7;
    uint64_t creation = kTestDate, modification = kTestDate;
    uint32_t track_id = 1;
    uint64_t duration = 0;
    uint16_t layer = 0, alternate_group = 0, volume = 0, width = 0, height = 0;
};
inline Bytes Tkhd(const TkhdFields& f = {}) {
    return FullAtom(
        "tkhd", f.version, f.flags, Timed(f.version, f.creation), Timed(f.version, f.modification),
        Be32({f.track_id, 0}), Timed(f.version, f.duration), Zeros(8),
        Be16({f.layer, f.alternate_group, f.volume, 0}), Matrix(), Be16({f.width, 0, f.height, 0}));
}

struct MdhdFields {
    uint8_t version = 0;
    uint64_t creation = kTestDate, modification = kTestDate;
    uint32_t timescale = 30000;
    uint64_t duration = 0;
    uint16_t language = kLanguageUnd;
};
inline Bytes Mdhd(const MdhdFields& f = {}) {
    return FullAtom("mdhd", f.version, 0, Timed(f.version, f.creation),
                    Timed(f.version, f.modification), Be32({f.timescale}),
                    Timed(f.version, f.duration), Be16({f.language, 0}));
}

inline Bytes Hdlr(FourCC handler, const std::string& name = "Handler") {
    return FullAtom("hdlr", 0, 0, Be32({0, handler.value, 0, 0, 0}), TextZ(name));
}
// vmhd, smhd or nmhd, whichever goes with the handler.
inline Bytes MediaHeader(FourCC handler) {
    if (handler.value == fourcc("vide")) return FullAtom("vmhd", 0, 1, Zeros(8));
    if (handler.value == fourcc("soun")) return FullAtom("smhd", 0, 0, Zeros(4));
    return FullAtom("nmhd", 0, 0);
}
// No location: the samples are in this very file.
inline Bytes Url(const std::string& location = "") {
    return location.empty() ? FullAtom("url ", 0, 1) : FullAtom("url ", 0, 0, TextZ(location));
}
inline Bytes Urn(const std::string& name, const std::string& location) {
    return FullAtom("urn ", 0, 0, TextZ(name), TextZ(location));
}
inline Bytes Dref(const std::vector<Bytes>& entries = {Url()}) {
    return Counted("dref", 0, entries.size(), JoinAll(entries));
}

struct Edit {
    uint64_t duration;   // movie timescale
    int64_t media_time;  // media timescale; -1 is an empty edit
    uint16_t rate = 1;
};
inline Bytes Elst(const std::vector<Edit>& edits, uint8_t version = 0) {
    Bytes out;
    for (const Edit& edit : edits)
        Append(&out,
               Join(Timed(version, edit.duration),
                    Timed(version, static_cast<uint64_t>(edit.media_time)), Be16({edit.rate, 0})));
    return Counted("elst", version, edits.size(), out);
}
// An object descriptor that names no profile.
inline Bytes Iods() {
    return FullAtom("iods", 0, 0, Descriptor(0x10, {0x00, 0x4F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

// --- sample descriptions

inline Bytes Stsd(const std::vector<Bytes>& entries) {
    return Counted("stsd", 0, entries.size(), JoinAll(entries));
}

// Reserved bytes, the data reference and what else there is: entries of other handlers.
inline Bytes PlainEntry(FourCC format, const Bytes& rest = {}) {
    return Atom(format, Zeros(6), Be16({1}), rest);
}

struct VisualFields {
    FourCC format = "avc1";
    uint16_t width = 320, height = 180;
    Bytes children = {};
};
inline Bytes VisualEntry(const VisualFields& f) {
    return PlainEntry(f.format,
                      Join(Zeros(16), Be16({f.width, f.height}), Be32({0x480000, 0x480000, 0}),
                           Be16({1}), Zeros(32), Be16({24, -1}), f.children));
}

struct AudioFields {
    FourCC format = "mp4a";
    uint16_t channels = 2, bits = 16;
    uint32_t rate = 48000;
    uint16_t version = 0;  // 1 and 2 have more bytes, which are the caller's, in front of children
    Bytes children = {};
};
inline Bytes AudioEntry(const AudioFields& f) {
    return PlainEntry(f.format, Join(Be16({f.version, 0, 0, 0, f.channels, f.bits, 0, 0}),
                                     Be32({int64_t{f.rate} << 16}), f.children));
}

inline Bytes Avcc(const std::vector<Bytes>& sequence_sets, const std::vector<Bytes>& picture_sets) {
    Bytes out{1, 0x4D, 0x40, 0x0D, 0xFF, static_cast<uint8_t>(0xE0 | sequence_sets.size())};
    for (const Bytes& set : sequence_sets)
        Append(&out, Join(Be16({static_cast<int64_t>(set.size())}), set));
    out.push_back(static_cast<uint8_t>(picture_sets.size()));
    for (const Bytes& set : picture_sets)
        Append(&out, Join(Be16({static_cast<int64_t>(set.size())}), set));
    return Atom("avcC", out);
}
// Without sets of the caller's own: those of 320 x 180 at 30000/1001, Main profile, level 1.3.
inline Bytes Avcc() {
    return Avcc({Join(Be32({0x674D400D, 0xECA0A0CF, 0xCF808800, 0x001F4800, 0x07530078}),
                      Be24({0xA14CB0}))},
                {Be32({0x68CE021C})});
}

struct EsFields {
    uint8_t object_type = 0x40;              // AAC; 0x20 is MPEG-4 video
    uint8_t stream_type = 5;                 // sound; 4 is video
    Bytes specific_info = Text("\x11\x90");  // AAC-LC, 48 kHz, stereo
    int length_bytes = 1;                    // the camera's short form; 4 is usual elsewhere
};
inline Bytes Esds(const EsFields& f = {}) {
    const Bytes config =
        Join(Bytes{f.object_type, static_cast<uint8_t>(f.stream_type << 2 | 1)}, Be24({6144}),
             Be32({128000, 96000}), Descriptor(5, f.specific_info, f.length_bytes));
    const Bytes es =
        Join(Zeros(3), Descriptor(4, config, f.length_bytes), Descriptor(6, {2}, f.length_bytes));
    return FullAtom("esds", 0, 0, Descriptor(3, es, f.length_bytes));
}

// avc1 with avcC, mp4v with esds, mp4a with esds, twos
inline Bytes Avc1() {
    return VisualEntry({.children = Avcc()});
}
inline Bytes Mp4v() {
    const Bytes info = Be32({0x000001B0, 0x01000001, 0xB58913});
    return VisualEntry(
        {.format = "mp4v",
         .children = Esds({.object_type = 0x20, .stream_type = 4, .specific_info = info})});
}
inline Bytes Mp4a(int length_bytes = 1) {
    return AudioEntry({.children = Esds({.length_bytes = length_bytes})});
}
inline Bytes Twos(uint16_t channels = 2) {
    return AudioEntry({.format = "twos", .channels = channels});
}

// --- sample tables

struct Run {
    uint32_t count, value;
    bool operator==(const Run&) const = default;
};
inline Bytes RunBytes(const std::vector<Run>& runs) {
    Bytes out;
    for (const Run& run : runs)
        Append(&out, Be32({run.count, run.value}));
    return out;
}
inline Bytes Stts(const std::vector<Run>& runs) {
    return Counted("stts", 0, runs.size(), RunBytes(runs));
}
inline Bytes Ctts(const std::vector<Run>& runs, uint8_t version = 0) {
    return Counted("ctts", version, runs.size(), RunBytes(runs));
}

struct ChunkRun {
    uint32_t first_chunk, samples, description;
};
inline Bytes Stsc(const std::vector<ChunkRun>& runs) {
    Bytes out;
    for (const ChunkRun& run : runs)
        Append(&out, Be32({run.first_chunk, run.samples, run.description}));
    return Counted("stsc", 0, runs.size(), out);
}
inline Bytes Stsz(const std::vector<uint32_t>& sizes) {
    return FullAtom("stsz", 0, 0, Be32({0, static_cast<int64_t>(sizes.size())}), BeList(sizes, 4));
}
inline Bytes StszConstant(uint32_t size, uint32_t count) {
    return FullAtom("stsz", 0, 0, Be32({size, count}));
}
inline Bytes Stz2(uint8_t field_size, const std::vector<uint32_t>& sizes) {
    Bytes out;
    for (size_t i = 0; i < sizes.size(); ++i) {
        if (field_size != 4) {
            AppendBe(&out, sizes[i], field_size / 8);
        } else if (i % 2 == 0) {
            out.push_back(static_cast<uint8_t>(sizes[i] << 4));
        } else {
            out.back() = static_cast<uint8_t>(out.back() | (sizes[i] & 0xF));
        }
    }
    return FullAtom("stz2", 0, 0, Be32({field_size, static_cast<int64_t>(sizes.size())}), out);
}
inline Bytes Stco(const std::vector<uint64_t>& offsets) {
    return Counted("stco", 0, offsets.size(), BeList(offsets, 4));
}
inline Bytes Co64(const std::vector<uint64_t>& offsets) {
    return Counted("co64", 0, offsets.size(), BeList(offsets, 8));
}
inline Bytes Stss(const std::vector<uint32_t>& samples) {
    return Counted("stss", 0, samples.size(), BeList(samples, 4));
}

// --- metadata and profile records

struct MetaItem {
    uint32_t type = 10;
    uint16_t language = kLanguageUnd, encoding = 0;
    Bytes data = {};
};
inline Bytes ItemList(FourCC type, const std::vector<MetaItem>& items) {
    Bytes out = Be16({static_cast<int64_t>(items.size())});
    for (const MetaItem& item : items)
        Append(&out, SmallAtom(item.type, Be16({item.language, item.encoding}), item.data));
    return Atom(type, out);
}
inline Bytes Mtdt(const std::vector<MetaItem>& items) {
    return ItemList("MTDT", items);
}
inline Bytes Mtdf(const std::vector<MetaItem>& items) {
    return ItemList("MTDF", items);
}
// The 'USMT' of a track that tells its role: 1 is the main one.
inline Bytes RoleRecord(uint32_t role, uint32_t detail = 0) {
    return Uuid("USMT", Mtdt({{.data = Be32({role, detail})}}));
}

inline Bytes Fprf(uint32_t profile = 0) {
    return FullAtom("FPRF", 0, 0, Be32({profile, 0}));
}
inline Bytes Aprf(uint32_t channels = 2) {
    return FullAtom("APRF", 0, 0, Be32({2, fourcc("mp4a"), 0x20F, 0, 128, 96, 48000, channels}));
}
inline Bytes Vprf() {
    return FullAtom("VPRF", 0, 0,
                    Be32({1, fourcc("avc1"), 0x014D0015, 0, 4000, 3000, 0x1DF853, 0x1DF853}),
                    Be16({320, 180, 1, 1}));
}
inline Bytes Prof(const std::vector<Bytes>& records = {Fprf(), Aprf(), Vprf()}) {
    return Uuid("PROF", Be32({0, static_cast<int64_t>(records.size())}), JoinAll(records));
}

// --- fragments

inline Bytes Mehd(uint64_t duration, uint8_t version = 0) {
    return FullAtom("mehd", version, 0, Timed(version, duration));
}

struct TrexFields {
    uint32_t track_id = 1, description = 1, duration = 0, size = 0, flags = 0;
};
inline Bytes Trex(const TrexFields& f = {}) {
    return FullAtom("trex", 0, 0, Be32({f.track_id, f.description, f.duration, f.size, f.flags}));
}

struct TfhdFields {
    uint32_t track_id = 1;
    std::optional<uint64_t> base_offset = {};
    std::optional<uint32_t> description = {}, duration = {}, size = {}, flags = {};
    uint32_t more_flags = 0;
};
inline Bytes Tfhd(const TfhdFields& f = {}) {
    uint32_t flags = f.more_flags;
    Bytes out = Be32({f.track_id});
    const auto add = [&](const auto& value, uint32_t flag, int width) {
        if (!value) return;
        flags |= flag;
        AppendBe(&out, *value, width);
    };
    add(f.base_offset, 0x01, 8);
    add(f.description, 0x02, 4);
    add(f.duration, 0x08, 4);
    add(f.size, 0x10, 4);
    add(f.flags, 0x20, 4);
    return FullAtom("tfhd", 0, flags, out);
}

struct TrunFields {
    std::optional<int32_t> data_offset = {};
    std::optional<uint32_t> first_flags = {};
    uint32_t row_flags = 0;  // 0x100 duration, 0x200 size, 0x400 flags, 0x800 composition
    uint32_t count = 0;
    std::vector<uint32_t> words = {};  // the rows, one after the other
    uint8_t version = 0;
};
inline Bytes Trun(const TrunFields& f) {
    Bytes head = Be32({f.count});
    if (f.data_offset) Append(&head, Be32({*f.data_offset}));
    if (f.first_flags) Append(&head, Be32({*f.first_flags}));
    const uint32_t flags = f.row_flags | (f.data_offset ? 1u : 0u) | (f.first_flags ? 4u : 0u);
    return FullAtom("trun", f.version, flags, head, BeList(f.words, 4));
}
// mfhd and the fragments of the tracks, each as Atom("traf", ...)
inline Bytes Moof(uint32_t sequence, const std::vector<Bytes>& trafs) {
    return Atom("moof", FullAtom("mfhd", 0, 0, Be32({sequence})), JoinAll(trafs));
}

struct TfraEntry {
    uint64_t time, moof_offset;
    uint32_t traf = 1, trun = 1, sample = 1;
};
// `lengths` has the byte counts of the three numbers less one, two bits each.
inline Bytes Tfra(uint32_t track_id, const std::vector<TfraEntry>& entries, uint8_t version = 0,
                  uint32_t lengths = 0) {
    Bytes out = Be32({track_id, lengths, static_cast<int64_t>(entries.size())});
    const auto width = [&](int shift) { return static_cast<int>(lengths >> shift & 3) + 1; };
    for (const TfraEntry& entry : entries) {
        Append(&out, Join(Timed(version, entry.time), Timed(version, entry.moof_offset)));
        AppendBe(&out, entry.traf, width(4));
        AppendBe(&out, entry.trun, width(2));
        AppendBe(&out, entry.sample, width(0));
    }
    return FullAtom("tfra", version, 0, out);
}
// Closed by its mfro.
inline Bytes Mfra(const std::vector<Bytes>& tfras) {
    const Bytes all = JoinAll(tfras);
    const auto size = static_cast<int64_t>(8 + all.size() + 16);
    return Atom("mfra", all, FullAtom("mfro", 0, 0, Be32({size})));
}

// --- finding an atom in bytes

// Offset of the atom at a path such as "moov/trak/mdia" or "moov/trak:2" (the second one there),
// to look into or to damage. The test ends here when there is none.
inline size_t AtomAt(const Bytes& bytes, const std::string& path) {
    size_t at = 0, end = bytes.size();
    for (size_t part = 0; part < path.size(); part = path.find('/', part) + 1) {
        int nth = path[part + 4] == ':' ? std::atoi(path.c_str() + part + 5) : 1;
        while (end - at >= 8 && (std::memcmp(&bytes[at + 4], &path[part], 4) != 0 || --nth > 0)) {
            const uint32_t size = get_be32(&bytes[at]);
            at = std::min(end, at + (size == 1 ? get_be64(&bytes[at + 8]) : std::max(size, 8u)));
        }
        if (end - at < 8) break;
        if (path.find('/', part) == std::string::npos) return at;
        end = at + get_be32(&bytes[at]);
        at += 8;
    }
    std::fprintf(stderr, "no atom at %s\n", path.c_str());
    std::abort();
}

}  // namespace tarn
