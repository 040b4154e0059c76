#include "support/atoms.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarn {
namespace {

const Bytes kMatrix = Be32({0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000});

Bytes Zeros(size_t count) {
    return Bytes(count, 0);
}

// A time or duration: 64 bits wide in version 1.
Bytes Timed(uint8_t version, uint64_t value) {
    Bytes out;
    AppendBe(&out, value, version == 1 ? 8 : 4);
    return out;
}

Bytes Counted(FourCC type, uint8_t version, size_t count, const Bytes& entries) {
    return FullAtom(type, version, 0, Be32({static_cast<int64_t>(count)}), entries);
}

Bytes RunBytes(const std::vector<Run>& runs) {
    Bytes out;
    for (const Run& run : runs)
        Append(&out, Be32({run.count, run.value}));
    return out;
}

Bytes ItemList(FourCC type, const std::vector<MetaItem>& items) {
    Bytes out = Be16({static_cast<int64_t>(items.size())});
    for (const MetaItem& item : items)
        Append(&out, SmallAtom(item.type, Be16({item.language, item.encoding}), item.data));
    return Atom(type, out);
}

}  // namespace

Bytes Ftyp(FourCC major, uint32_t minor, const std::vector<FourCC>& compatible) {
    Bytes brands;
    for (const FourCC brand : compatible)
        AppendBe(&brands, brand.value, 4);
    return Atom("ftyp", Be32({major.value, minor}), brands);
}

Bytes Mvhd(const MvhdFields& f) {
    return FullAtom("mvhd", f.version, 0, Timed(f.version, f.creation),
                    Timed(f.version, f.modification), Be32({f.timescale}),
                    Timed(f.version, f.duration), Be32({0x10000}), Be16({0x100}), Zeros(10),
                    kMatrix, Zeros(24), Be32({f.next_track_id}));
}

Bytes Tkhd(const TkhdFields& f) {
    return FullAtom(
        "tkhd", f.version, f.flags, Timed(f.version, f.creation), Timed(f.version, f.modification),
        Be32({f.track_id, 0}), Timed(f.version, f.duration), Zeros(8),
        Be16({f.layer, f.alternate_group, f.volume, 0}), kMatrix, Be16({f.width, 0, f.height, 0}));
}

Bytes Mdhd(const MdhdFields& f) {
    return FullAtom("mdhd", f.version, 0, Timed(f.version, f.creation),
                    Timed(f.version, f.modification), Be32({f.timescale}),
                    Timed(f.version, f.duration), Be16({f.language, 0}));
}

Bytes Hdlr(FourCC handler, const std::string& name) {
    return FullAtom("hdlr", 0, 0, Be32({0, handler.value, 0, 0, 0}), TextZ(name));
}

Bytes MediaHeader(FourCC handler) {
    if (handler.value == fourcc("vide")) return FullAtom("vmhd", 0, 1, Zeros(8));
    if (handler.value == fourcc("soun")) return FullAtom("smhd", 0, 0, Zeros(4));
    return FullAtom("nmhd", 0, 0);
}

Bytes Url(const std::string& location) {
    return location.empty() ? FullAtom("url ", 0, 1) : FullAtom("url ", 0, 0, TextZ(location));
}

Bytes Urn(const std::string& name, const std::string& location) {
    return FullAtom("urn ", 0, 0, TextZ(name), TextZ(location));
}

Bytes Dref(const std::vector<Bytes>& entries) {
    return Counted("dref", 0, entries.size(), JoinAll(entries));
}

Bytes Elst(const std::vector<Edit>& edits, uint8_t version) {
    Bytes out;
    for (const Edit& edit : edits)
        Append(&out,
               Join(Timed(version, edit.duration),
                    Timed(version, static_cast<uint64_t>(edit.media_time)), Be16({edit.rate, 0})));
    return Counted("elst", version, edits.size(), out);
}

Bytes Iods() {
    return FullAtom("iods", 0, 0, Descriptor(0x10, {0x00, 0x4F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

// --- sample descriptions

Bytes Stsd(const std::vector<Bytes>& entries) {
    return Counted("stsd", 0, entries.size(), JoinAll(entries));
}

Bytes PlainEntry(FourCC format, const Bytes& rest) {
    return Atom(format, Zeros(6), Be16({1}), rest);
}

Bytes VisualEntry(const VisualFields& f) {
    return PlainEntry(f.format,
                      Join(Zeros(16), Be16({f.width, f.height}), Be32({0x480000, 0x480000, 0}),
                           Be16({1}), Zeros(32), Be16({24, -1}), f.children));
}

Bytes AudioEntry(const AudioFields& f) {
    return PlainEntry(f.format, Join(Be16({f.version, 0, 0, 0, f.channels, f.bits, 0, 0}),
                                     Be32({int64_t{f.rate} << 16}), f.children));
}

Bytes Avcc() {
    return Avcc({Join(Be32({0x674D400D, 0xECA0A0CF, 0xCF808800, 0x001F4800, 0x07530078}),
                      Be24({0xA14CB0}))},
                {Be32({0x68CE021C})});
}

Bytes Avcc(const std::vector<Bytes>& sequence_sets, const std::vector<Bytes>& picture_sets) {
    Bytes out{1, 0x4D, 0x40, 0x0D, 0xFF, static_cast<uint8_t>(0xE0 | sequence_sets.size())};
    for (const Bytes& set : sequence_sets)
        Append(&out, Join(Be16({static_cast<int64_t>(set.size())}), set));
    out.push_back(static_cast<uint8_t>(picture_sets.size()));
    for (const Bytes& set : picture_sets)
        Append(&out, Join(Be16({static_cast<int64_t>(set.size())}), set));
    return Atom("avcC", out);
}

Bytes Esds(const EsFields& f) {
    const Bytes config =
        Join(Bytes{f.object_type, static_cast<uint8_t>(f.stream_type << 2 | 1)}, Be24({6144}),
             Be32({128000, 96000}), Descriptor(5, f.specific_info, f.length_bytes));
    const Bytes es =
        Join(Zeros(3), Descriptor(4, config, f.length_bytes), Descriptor(6, {2}, f.length_bytes));
    return FullAtom("esds", 0, 0, Descriptor(3, es, f.length_bytes));
}

Bytes Avc1() {
    return VisualEntry({.children = Avcc()});
}

Bytes Mp4v() {
    const Bytes info = Be32({0x000001B0, 0x01000001, 0xB58913});
    return VisualEntry(
        {.format = "mp4v",
         .children = Esds({.object_type = 0x20, .stream_type = 4, .specific_info = info})});
}

Bytes Mp4a(int length_bytes) {
    return AudioEntry({.children = Esds({.length_bytes = length_bytes})});
}

Bytes Twos(uint16_t channels) {
    return AudioEntry({.format = "twos", .channels = channels});
}

// --- sample tables

Bytes Stts(const std::vector<Run>& runs) {
    return Counted("stts", 0, runs.size(), RunBytes(runs));
}

Bytes Ctts(const std::vector<Run>& runs, uint8_t version) {
    return Counted("ctts", version, runs.size(), RunBytes(runs));
}

Bytes Stsc(const std::vector<ChunkRun>& runs) {
    Bytes out;
    for (const ChunkRun& run : runs)
        Append(&out, Be32({run.first_chunk, run.samples, run.description}));
    return Counted("stsc", 0, runs.size(), out);
}

Bytes Stsz(const std::vector<uint32_t>& sizes) {
    return FullAtom("stsz", 0, 0, Be32({0, static_cast<int64_t>(sizes.size())}), BeList(sizes, 4));
}

Bytes StszConstant(uint32_t size, uint32_t count) {
    return FullAtom("stsz", 0, 0, Be32({size, count}));
}

Bytes Stz2(uint8_t field_size, const std::vector<uint32_t>& sizes) {
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

Bytes Stco(const std::vector<uint64_t>& offsets) {
    return Counted("stco", 0, offsets.size(), BeList(offsets, 4));
}

Bytes Co64(const std::vector<uint64_t>& offsets) {
    return Counted("co64", 0, offsets.size(), BeList(offsets, 8));
}

Bytes Stss(const std::vector<uint32_t>& samples) {
    return Counted("stss", 0, samples.size(), BeList(samples, 4));
}

// --- metadata and profile records

Bytes Mtdt(const std::vector<MetaItem>& items) {
    return ItemList("MTDT", items);
}

Bytes Mtdf(const std::vector<MetaItem>& items) {
    return ItemList("MTDF", items);
}

Bytes RoleRecord(uint32_t role, uint32_t detail) {
    return Uuid("USMT", Mtdt({{.data = Be32({role, detail})}}));
}

Bytes Fprf(uint32_t profile) {
    return FullAtom("FPRF", 0, 0, Be32({profile, 0}));
}

Bytes Aprf(uint32_t channels) {
    return FullAtom("APRF", 0, 0, Be32({2, fourcc("mp4a"), 0x20F, 0, 128, 96, 48000, channels}));
}

Bytes Vprf() {
    return FullAtom("VPRF", 0, 0,
                    Be32({1, fourcc("avc1"), 0x014D0015, 0, 4000, 3000, 0x1DF853, 0x1DF853}),
                    Be16({320, 180, 1, 1}));
}

Bytes Prof(const std::vector<Bytes>& records) {
    return Uuid("PROF", Be32({0, static_cast<int64_t>(records.size())}), JoinAll(records));
}

// --- fragments

Bytes Mehd(uint64_t duration, uint8_t version) {
    return FullAtom("mehd", version, 0, Timed(version, duration));
}

Bytes Trex(const TrexFields& f) {
    return FullAtom("trex", 0, 0, Be32({f.track_id, f.description, f.duration, f.size, f.flags}));
}

Bytes Tfhd(const TfhdFields& f) {
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

Bytes Trun(const TrunFields& f) {
    Bytes head = Be32({f.count});
    if (f.data_offset) Append(&head, Be32({*f.data_offset}));
    if (f.first_flags) Append(&head, Be32({*f.first_flags}));
    const uint32_t flags = f.row_flags | (f.data_offset ? 1u : 0u) | (f.first_flags ? 4u : 0u);
    return FullAtom("trun", f.version, flags, head, BeList(f.words, 4));
}

Bytes Moof(uint32_t sequence, const std::vector<Bytes>& trafs) {
    return Atom("moof", FullAtom("mfhd", 0, 0, Be32({sequence})), JoinAll(trafs));
}

Bytes Tfra(uint32_t track_id, const std::vector<TfraEntry>& entries, uint8_t version,
           uint32_t lengths) {
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

Bytes Mfra(const std::vector<Bytes>& tfras) {
    const Bytes all = JoinAll(tfras);
    const auto size = static_cast<int64_t>(8 + all.size() + 16);
    return Atom("mfra", all, FullAtom("mfro", 0, 0, Be32({size})));
}

// --- finding an atom in bytes

size_t AtomAt(const Bytes& bytes, const std::string& path) {
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
