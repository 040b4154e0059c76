#include "hostile_files.h"

#include <algorithm>

#include "support/atoms.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

constexpr size_t kMost = kHostileBytes - 16384;  // what is left beside the ordinary parts
constexpr uint32_t kMediaAt = 32;                // behind 'ftyp' and the head of 'mdat'
constexpr uint32_t kMedia = 4096;

Bytes repeat(const Bytes& piece, size_t count) {
    Bytes out;
    out.reserve(piece.size() * count);
    for (size_t n = 0; n < count; ++n)
        out.insert(out.end(), piece.begin(), piece.end());
    return out;
}

// As many as fit beside the rest of a file.
size_t fitting(size_t size, size_t most = kMost) {
    return most / size;
}
Bytes fill(const Bytes& piece, size_t most = kMost) {
    return repeat(piece, fitting(piece.size(), most));
}

template <typename Make>
Bytes each(size_t count, Make make) {
    Bytes out;
    for (size_t n = 0; n < count; ++n) {
        const Bytes piece = make(static_cast<uint32_t>(n));
        out.insert(out.end(), piece.begin(), piece.end());
    }
    return out;
}

// A track whose parts can be told one by one: four pictures, or 1024 frames of PCM.
struct Parts {
    FourCC handler = "vide";
    uint32_t id = 1, timescale = 1000;
    Bytes stsd = Stsd({Avc1()}), stts = Stts({{4, 1000}}), ctts = {}, stsc = Stsc({{1, 4, 1}}),
          sizes = StszConstant(1024, 4), chunks = Stco({kMediaAt}), stss = {}, edits = {},
          dref = Dref(), extra = {};
    Bytes Trak() const {
        return Atom("trak", Tkhd({.track_id = id}), edits.empty() ? edits : Atom("edts", edits),
                    Atom("mdia", Mdhd({.timescale = timescale}), Hdlr(handler),
                         Atom("minf", MediaHeader(handler), Atom("dinf", dref),
                              Atom("stbl", stsd, stts, ctts, stsc, sizes, chunks, stss))),
                    extra);
    }
};

Parts sound(const Bytes& entry = Twos(), uint32_t samples = 1024, uint32_t size = 4,
            uint32_t duration = 1) {
    return {.handler = "soun",
            .id = 2,
            .timescale = 48000,
            .stsd = Stsd({entry}),
            .stts = Stts({{samples, duration}}),
            .stsc = Stsc({{1, samples, 1}}),
            .sizes = StszConstant(size, samples)};
}

Bytes head(size_t media = kMedia) {
    return Join(Ftyp("isom", 0, {"mp42", "isom"}), Atom("mdat", Bytes(media, 0)));
}
Bytes movie(const Bytes& tracks, const Bytes& extra = {}, size_t media = kMedia) {
    return Join(head(media), Atom("moov", Mvhd(), tracks, extra));
}
// One of the tracks in place of its ordinary form.
Bytes with(const Parts& parts, size_t media = kMedia) {
    const Bytes other = parts.handler.value == fourcc("soun") ? Parts{}.Trak() : sound().Trak();
    // With room for both: more than the file has would not be saved at all.
    return movie(Join(parts.Trak(), other), {}, media + kMedia);
}

// --- lists

Bytes meta_items() {
    return movie(Join(Parts{}.Trak(), sound().Trak()),
                 Uuid("USMT", Mtdt(std::vector<MetaItem>(65535, {.type = 1, .data = {0, 65}})),
                      Mtdf(std::vector<MetaItem>(65535, {.type = 1, .data = {0, 65}}))));
}
Bytes track_meta_items() {
    Parts picture;
    picture.extra = Uuid("USMT", Mtdt(std::vector<MetaItem>(65535, {.type = 1})));
    return Join(Ftyp("MSNV", 0, {"MSNV"}), Atom("mdat", Bytes(kMedia, 0)), Prof(),
                Atom("moov", Mvhd(), picture.Trak(), sound().Trak()));
}
Bytes user_atoms() {
    return movie(Join(Parts{}.Trak(), sound().Trak()), Uuid("USMT", fill(Atom("free"))));
}
Bytes brands() {
    return Join(Atom("ftyp", Be32({fourcc("isom"), 0}), fill(Be32({fourcc("abcd")}))),
                Atom("moov", Mvhd(), Parts{}.Trak()));
}
Bytes empty_tracks() {
    return movie(Join(Parts{}.Trak(), fill(Atom("trak"))));
}
Bytes foreign_tracks() {
    return movie(Join(Parts{}.Trak(), fill(Atom("trak", Atom("mdia", Hdlr("text", ""))))));
}
Bytes picture_tracks() {
    return movie(fill(Atom("trak", Tkhd(), Atom("mdia", Mdhd({}), Hdlr("vide", "")))));
}
Bytes sound_entries() {
    Parts parts = sound();
    const size_t count = fitting(Twos().size());
    parts.stsd = Counted("stsd", 0, count, repeat(Twos(), count));
    return with(parts);
}
Bytes picture_entries() {
    Parts parts;
    const size_t count = fitting(Avc1().size());
    parts.stsd = Counted("stsd", 0, count, repeat(Avc1(), count));
    return with(parts);
}
Bytes protections() {
    return with({.stsd = Stsd({VisualEntry({.children = Join(Avcc(), fill(Atom("sinf")))})})});
}
Bytes descriptors() {
    Parts parts = sound(AudioEntry({.children = FullAtom("esds", 0, 0, Descriptor(3, Zeros(3), 4),
                                                         fill(Descriptor(4, Zeros(13))))}));
    return with(parts);
}
Bytes references() {
    Parts parts;
    const size_t count = fitting(Url().size());
    parts.dref = Counted("dref", 0, count, repeat(Url(), count));
    return with(parts);
}
Bytes edits() {
    const size_t count = fitting(12);
    return with({.edits = Counted("elst", 0, count, repeat(Be32({1, -1, 0x10000}), count))});
}

// --- tables

constexpr uint32_t kRows = 300000;

Parts long_picture(uint32_t count) {
    return {.stts = Stts({{count, 1000}}),
            .stsc = Stsc({{1, count, 1}}),
            .sizes = StszConstant(1, count)};
}
Bytes time_rows() {
    Parts parts = long_picture(kRows);
    parts.stts = Counted("stts", 0, kRows, each(kRows, [](uint32_t n) {
                             return Be32({1, 1000 + (n & 1)});
                         }));
    return with(parts, kRows);
}
Bytes composition_rows() {
    Parts parts = long_picture(kRows);
    parts.ctts = Counted("ctts", 0, kRows, each(kRows, [](uint32_t n) {
                             return Be32({1, n % 3 * 1000});
                         }));
    return with(parts, kRows);
}
Bytes chunk_rows() {
    constexpr uint32_t kCount = 200000;
    Parts parts = long_picture(kCount);
    parts.stsc = Counted("stsc", 0, kCount, each(kCount, [](uint32_t n) {
                             return Be32({n + 1, 1, 1});
                         }));
    parts.chunks =
        Counted("stco", 0, kCount, each(kCount, [](uint32_t n) { return Be32({kMediaAt + n}); }));
    return with(parts, kCount);
}
Bytes sync_rows() {
    constexpr uint32_t kCount = 800000;
    Parts parts = long_picture(kCount);
    parts.stss = Counted("stss", 0, kCount, each(kCount, [](uint32_t n) { return Be32({n + 1}); }));
    return with(parts, kCount);
}
Bytes no_sync() {
    Parts parts = long_picture(kMost);
    parts.stss = Stss({});
    return with(parts, kMost);
}
Bytes late_pictures() {  // each is shown long after its decoding
    Parts parts = long_picture(kMost);
    parts.ctts = Ctts({{kMost, 0x7FFFFFFF}});
    return with(parts, kMost);
}
Bytes no_time() {
    Parts parts = long_picture(kMost);
    parts.stts = Stts({{1, 1000}, {kMost - 1, 0}});
    return with(parts, kMost);
}
Bytes giant_time() {
    Parts parts = long_picture(kMost);
    parts.stts = Stts({{kMost, 0xFFFFFFFF}});
    return with(parts, kMost);
}
Bytes nibbles() {
    Parts parts = sound(Mp4a());
    const uint32_t count = 2 * kMost;
    parts.stts = Stts({{count, 1024}});
    parts.stsc = Stsc({{1, count, 1}});
    parts.sizes = FullAtom("stz2", 0, 0, Be32({4, count}), Bytes(kMost, 0));
    return with(parts);
}
Bytes aac_bytes() {
    return with(sound(Mp4a(), kMost, 1, 1024), kMost);
}
Bytes aac_pairs() {
    return with(sound(Mp4a(), kMost / 2, 2, 1024), kMost);
}
Bytes pcm_bytes() {
    return with(sound(Twos(), kMost, 1), kMost);
}
Bytes pcm_slow() {  // as many points as can be
    Parts parts = sound(AudioEntry({.format = "twos", .rate = 1}), kMost / 4, 4, 0xFFFFFFFF);
    parts.timescale = 1;
    return with(parts, kMost);
}
Bytes pcm_chunks() {
    constexpr uint32_t kCount = 500000;
    Parts parts = sound(Twos(), kCount);
    parts.stsc = Stsc({{1, 1, 1}});
    parts.chunks = Counted("stco", 0, kCount,
                           each(kCount, [](uint32_t n) { return Be32({kMediaAt + 4 * n}); }));
    return with(parts, 4 * kCount);
}
Bytes overlapping() {  // each sample is half of the file, and the same half
    constexpr uint32_t kCount = 500000, kSize = 2 << 20;
    Parts parts = long_picture(kCount);
    parts.stsc = Stsc({{1, 1, 1}});
    parts.sizes = StszConstant(kSize, kCount);
    parts.chunks = Counted("stco", 0, kCount, repeat(Be32({kMediaAt}), kCount));
    return with(parts, kSize);
}
Bytes overlapping_sound() {
    constexpr uint32_t kCount = 500000, kSize = 2 << 20;
    Parts parts = sound(Mp4a(), kCount, kSize, 1024);
    parts.stsc = Stsc({{1, 1, 1}});
    parts.chunks = Counted("stco", 0, kCount, repeat(Be32({kMediaAt}), kCount));
    return with(parts, kSize);
}

// --- fragments

Bytes fragmented(const Bytes& tracks, const Bytes& defaults, const Bytes& fragments,
                 const Bytes& end = {}) {
    return Join(Ftyp("isom", 0, {"isom"}), Atom("moov", Mvhd(), tracks, Atom("mvex", defaults)),
                fragments, end);
}
Parts to_be_continued(uint32_t id = 1) {
    return {.id = id,
            .stts = Stts({}),
            .stsc = Stsc({}),
            .sizes = StszConstant(0, 0),
            .chunks = Stco({})};
}
Bytes runs_without_rows(uint32_t size) {
    const Bytes run = Trun({.count = 0xFFFFFFFF});
    const Bytes trex = Trex({.duration = 1, .size = size});
    return fragmented(to_be_continued().Trak(), trex, Moof(1, {Atom("traf", Tfhd(), fill(run))}));
}
Bytes runs_of_nothing() {
    return runs_without_rows(0);
}
Bytes runs_of_bytes() {
    return runs_without_rows(1);
}
Bytes runs_of_pages() {  // fewer samples than a number holds
    return runs_without_rows(4096);
}
Bytes moofs() {
    const auto make = [](uint32_t n) {
        return Moof(n + 1, {Atom("traf", Tfhd(), Trun({.count = 1}))});
    };
    return fragmented(to_be_continued().Trak(), Trex({.duration = 1000, .size = 1}),
                      each(fitting(make(0).size()), make));
}
Bytes trafs() {
    return fragmented(to_be_continued().Trak(), Trex({.duration = 1000, .size = 1}),
                      Atom("moof", FullAtom("mfhd", 0, 0, Be32({1})),
                           fill(Atom("traf", Tfhd(), Trun({.count = 1})))));
}
Bytes rows() {
    const size_t count = fitting(8);
    return fragmented(to_be_continued().Trak(), Trex(),
                      Moof(1, {Atom("traf", Tfhd(),
                                    FullAtom("trun", 0, 0x300, Be32({static_cast<int64_t>(count)}),
                                             repeat(Be32({1000, 1}), count)))}));
}
Bytes tracks_and_moofs() {  // of each track the end is wanted
    constexpr uint32_t kTracks = 4000;
    return fragmented(
        each(kTracks, [](uint32_t n) { return to_be_continued(n + 1).Trak(); }),
        each(kTracks, [](uint32_t n) { return Trex({.track_id = n + 1, .duration = 1000}); }),
        each(25000, [](uint32_t n) {
            return Moof(n + 1,
                        {Atom("traf", Tfhd({.track_id = n % kTracks + 1}), Trun({.count = 1}))});
        }));
}
Bytes defaults() {
    return fragmented(to_be_continued().Trak(), fill(Trex({.duration = 1000, .size = 1})),
                      Moof(1, {Atom("traf", Tfhd(), Trun({.count = 1}))}));
}
Bytes index_tables() {
    return fragmented(to_be_continued().Trak(), Trex({.duration = 1000, .size = 1}),
                      Moof(1, {Atom("traf", Tfhd(), Trun({.count = 1}))}),
                      Mfra({fill(Tfra(7, {}))}));
}
Bytes index_points() {
    const size_t count = fitting(11);
    return fragmented(
        to_be_continued().Trak(), Trex({.duration = 1000, .size = 1}),
        each(20,
             [](uint32_t n) { return Moof(n + 1, {Atom("traf", Tfhd(), Trun({.count = 1}))}); }),
        Mfra({FullAtom("tfra", 0, 0, Be32({1, 0, static_cast<int64_t>(count)}),
                       repeat(Bytes(11, 1), count))}));
}

// --- atoms

Bytes top_atoms() {
    return Join(head(), fill(Atom("free")), Atom("moov", Mvhd(), Parts{}.Trak()));
}
Bytes child_atoms() {
    return movie(Parts{}.Trak(), Atom("udta", fill(Atom("free"))));
}
Bytes nested() {
    Bytes out;
    const size_t depth = fitting(8);
    for (size_t n = 0; n < depth; ++n)
        Append(&out, Be32({static_cast<int64_t>(8 * (depth - n)), fourcc("udta")}));
    return movie(Parts{}.Trak(), out);
}
Bytes segment_index() {
    const size_t count = std::min<size_t>(65535, fitting(12));
    return Join(head(),
                fill(FullAtom("sidx", 0, 0, Be32({1, 1000, 0, 0, static_cast<int64_t>(count)}),
                              repeat(Be32({1, 1, 1}), count))),
                Atom("moov", Mvhd(), Parts{}.Trak()));
}

// --- WAV

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}
Bytes wave_chunks() {
    std::string junk;
    while (junk.size() < kMost)
        junk += "JUNK" + Le(0);
    return bytes_of(WaveFile({.rate = 48000, .chunks = junk}, std::string(4096, 'a')));
}
Bytes wave_slow() {
    return bytes_of(WaveFile({.rate = 1000}, std::string(kMost, 'a')));
}

}  // namespace

std::vector<HostileFile> HostileFiles() {
    return {
        {"metadata items", ".mp4", meta_items},
        {"metadata items of a track", ".mp4", track_meta_items},
        {"atoms of a metadata list", ".mp4", user_atoms},
        {"brands", ".mp4", brands},
        {"empty tracks", ".mp4", empty_tracks},
        {"foreign tracks", ".mp4", foreign_tracks},
        {"picture tracks without tables", ".mp4", picture_tracks},
        {"sound descriptions", ".mp4", sound_entries},
        {"picture descriptions", ".mp4", picture_entries},
        {"protections", ".mp4", protections},
        {"descriptors", ".mp4", descriptors},
        {"data references", ".mp4", references},
        {"edits", ".mp4", edits},
        {"rows of stts", ".mp4", time_rows},
        {"rows of ctts", ".mp4", composition_rows},
        {"rows of stsc", ".mp4", chunk_rows},
        {"rows of stss", ".mp4", sync_rows},
        {"no sync sample", ".mp4", no_sync},
        {"pictures shown late", ".mp4", late_pictures},
        {"samples of no time", ".mp4", no_time},
        {"samples of giant time", ".mp4", giant_time},
        {"sizes of 4 bits", ".mp4", nibbles},
        {"AAC of one byte a sample", ".mp4", aac_bytes},
        {"AAC of two bytes a sample", ".mp4", aac_pairs},
        {"PCM of one byte a sample", ".mp4", pcm_bytes},
        {"PCM at 1 Hz", ".mp4", pcm_slow},
        {"PCM, a chunk a frame", ".mp4", pcm_chunks},
        {"pictures over each other", ".mp4", overlapping},
        {"AAC over each other", ".mp4", overlapping_sound},
        {"runs of nothing", ".mp4", runs_of_nothing},
        {"runs of one byte a sample", ".mp4", runs_of_bytes},
        {"runs of 4 KB a sample", ".mp4", runs_of_pages},
        {"fragments", ".mp4", moofs},
        {"tracks of a fragment", ".mp4", trafs},
        {"rows of a run", ".mp4", rows},
        {"tracks times fragments", ".mp4", tracks_and_moofs},
        {"fragment defaults", ".mp4", defaults},
        {"tables of an index", ".mp4", index_tables},
        {"points of an index", ".mp4", index_points},
        {"atoms", ".mp4", top_atoms},
        {"atoms in one", ".mp4", child_atoms},
        {"atoms in each other", ".mp4", nested},
        {"segment indexes", ".mp4", segment_index},
        {"chunks of a WAV", ".wav", wave_chunks},
        {"WAV at 1 kHz", ".wav", wave_slow},
    };
}

}  // namespace tarn
