// atoms.h - the atoms of a movie file with real content. What a test does not name has the value
// of an ordinary clip: 320 x 180 pictures at 30000/1001, stereo at 48 kHz, English left undefined.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/byte_builder.h"

namespace tarn {

constexpr uint64_t kTestDate = 0xC5000000;  // seconds since 1904
constexpr uint16_t kLanguageUnd = 0x55C4;

// --- movie and track headers

Bytes Ftyp(FourCC major, uint32_t minor, const std::vector<FourCC>& compatible);

struct MvhdFields {
    uint8_t version = 0;
    uint64_t creation = kTestDate, modification = kTestDate;
    uint32_t timescale = 1000;
    uint64_t duration = 0;
    uint32_t next_track_id = 3;
};
Bytes Mvhd(const MvhdFields& fields = {});

struct TkhdFields {
    uint8_t version = 0;
    uint32_t flags = 7;
    uint64_t creation = kTestDate, modification = kTestDate;
    uint32_t track_id = 1;
    uint64_t duration = 0;
    uint16_t layer = 0, alternate_group = 0, volume = 0, width = 0, height = 0;
};
Bytes Tkhd(const TkhdFields& fields = {});

struct MdhdFields {
    uint8_t version = 0;
    uint64_t creation = kTestDate, modification = kTestDate;
    uint32_t timescale = 30000;
    uint64_t duration = 0;
    uint16_t language = kLanguageUnd;
};
Bytes Mdhd(const MdhdFields& fields = {});

Bytes Hdlr(FourCC handler, const std::string& name = "Handler");
// vmhd, smhd or nmhd, whichever goes with the handler.
Bytes MediaHeader(FourCC handler);
// No location: the samples are in this very file.
Bytes Url(const std::string& location = "");
Bytes Urn(const std::string& name, const std::string& location);
Bytes Dref(const std::vector<Bytes>& entries = {Url()});

struct Edit {
    uint64_t duration;   // movie timescale
    int64_t media_time;  // media timescale; -1 is an empty edit
    uint16_t rate = 1;
};
Bytes Elst(const std::vector<Edit>& edits, uint8_t version = 0);
// An object descriptor that names no profile.
Bytes Iods();

// --- sample descriptions

Bytes Stsd(const std::vector<Bytes>& entries);

struct VisualFields {
    FourCC format = "avc1";
    uint16_t width = 320, height = 180;
    Bytes children = {};
};
Bytes VisualEntry(const VisualFields& fields);

struct AudioFields {
    FourCC format = "mp4a";
    uint16_t channels = 2, bits = 16;
    uint32_t rate = 48000;
    uint16_t version = 0;  // 1 and 2 have more bytes, which are the caller's, in front of children
    Bytes children = {};
};
Bytes AudioEntry(const AudioFields& fields);
// Reserved bytes, the data reference and what else there is: entries of other handlers.
Bytes PlainEntry(FourCC format, const Bytes& rest = {});

// Without sets of the caller's own: those of 320 x 180 at 30000/1001, Main profile, level 1.3.
Bytes Avcc();
Bytes Avcc(const std::vector<Bytes>& sequence_sets, const std::vector<Bytes>& picture_sets);

struct EsFields {
    uint8_t object_type = 0x40;          // AAC; 0x20 is MPEG-4 video
    uint8_t stream_type = 5;             // sound; 4 is video
    Bytes specific_info = {0x11, 0x90};  // AAC-LC, 48 kHz, stereo
    int length_bytes = 1;                // the camera's short form; 4 is usual elsewhere
};
Bytes Esds(const EsFields& fields = {});

// avc1 with avcC, mp4v with esds, mp4a with esds, twos
Bytes Avc1();
Bytes Mp4v();
Bytes Mp4a(int length_bytes = 1);
Bytes Twos(uint16_t channels = 2);

// --- sample tables

struct Run {
    uint32_t count, value;
    bool operator==(const Run&) const = default;
};
Bytes Stts(const std::vector<Run>& runs);
Bytes Ctts(const std::vector<Run>& runs, uint8_t version = 0);

struct ChunkRun {
    uint32_t first_chunk, samples, description;
};
Bytes Stsc(const std::vector<ChunkRun>& runs);
Bytes Stsz(const std::vector<uint32_t>& sizes);
Bytes StszConstant(uint32_t size, uint32_t count);
Bytes Stz2(uint8_t field_size, const std::vector<uint32_t>& sizes);
Bytes Stco(const std::vector<uint64_t>& offsets);
Bytes Co64(const std::vector<uint64_t>& offsets);
Bytes Stss(const std::vector<uint32_t>& samples);

// --- metadata and profile records

struct MetaItem {
    uint32_t type = 10;
    uint16_t language = kLanguageUnd, encoding = 0;
    Bytes data = {};
};
Bytes Mtdt(const std::vector<MetaItem>& items);
Bytes Mtdf(const std::vector<MetaItem>& items);
// The 'USMT' of a track that tells its role: 1 is the main one.
Bytes RoleRecord(uint32_t role, uint32_t detail = 0);

Bytes Fprf(uint32_t profile = 0);
Bytes Aprf(uint32_t channels = 2);
Bytes Vprf();
Bytes Prof(const std::vector<Bytes>& records = {Fprf(), Aprf(), Vprf()});

// --- fragments

Bytes Mehd(uint64_t duration, uint8_t version = 0);

struct TrexFields {
    uint32_t track_id = 1, description = 1, duration = 0, size = 0, flags = 0;
};
Bytes Trex(const TrexFields& fields = {});

struct TfhdFields {
    uint32_t track_id = 1;
    std::optional<uint64_t> base_offset = {};
    std::optional<uint32_t> description = {}, duration = {}, size = {}, flags = {};
    uint32_t more_flags = 0;
};
Bytes Tfhd(const TfhdFields& fields = {});

struct TrunFields {
    std::optional<int32_t> data_offset = {};
    std::optional<uint32_t> first_flags = {};
    uint32_t row_flags = 0;  // 0x100 duration, 0x200 size, 0x400 flags, 0x800 composition
    uint32_t count = 0;
    std::vector<uint32_t> words = {};  // the rows, one after the other
    uint8_t version = 0;
};
Bytes Trun(const TrunFields& fields);
// mfhd and the fragments of the tracks, each as Atom("traf", ...)
Bytes Moof(uint32_t sequence, const std::vector<Bytes>& trafs);

struct TfraEntry {
    uint64_t time, moof_offset;
    uint32_t traf = 1, trun = 1, sample = 1;
};
// `lengths` has the byte counts of the three numbers less one, two bits each.
Bytes Tfra(uint32_t track_id, const std::vector<TfraEntry>& entries, uint8_t version = 0,
           uint32_t lengths = 0);
// Closed by its mfro.
Bytes Mfra(const std::vector<Bytes>& tfras);

// --- finding an atom in bytes

// Offset of the atom at a path such as "moov/trak/mdia" or "moov/trak:2" (the second one there),
// to look into or to damage. The test ends here when there is none.
size_t AtomAt(const Bytes& bytes, const std::string& path);

}  // namespace tarn
