// write_atoms.h - the writers of a movie's atoms, one function each.
//
// Each puts its atom at `offset` of `file`, or with no file only counts, and adds the bytes to
// `total`. Layouts are those that the readers document; reserved bytes are zero. Besides the codes
// named here every writer can answer FF4_RET_FILE, and FF4_RET_STATE for a number that the write
// options forbid. The writers with a build record note the bytes in its `atom_size`.
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"
#include "mp4format/movie/movie_build.h"

namespace tarn {

// --- the top of the file

struct Mp4FileTypeBuild {
    uint32_t major_brand, minor_version;
    const uint32_t* brands;  // compatible ones
    uint32_t brand_count;
};
Mp4Result mp4_write_ftyp(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4FileTypeBuild& type, uint64_t* total);

// --- 'moov' and what is in it

// A track whose chunks were added in part is FF4_RET_STATE.
Mp4Result mp4_write_moov(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, Mp4MovieBuild* movie, uint64_t* total);
Mp4Result mp4_write_trak(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MovieBuild& movie, Mp4TrackBuild* track,
                         uint64_t* total);
Mp4Result mp4_write_mdia(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, Mp4MediaBuild* media, uint64_t* total);
Mp4Result mp4_write_stbl(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, Mp4TableBuild* tables, uint64_t* total);

// The headers choose their version by mp4_pick_version; the flags are the record's.
Mp4Result mp4_write_mvhd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MovieHeader& header, uint64_t* total);
Mp4Result mp4_write_tkhd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TrackHeader& header, uint64_t* total);
Mp4Result mp4_write_mdhd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MediaHeader& header, uint64_t* total);
// With the name that belongs to the handler; FF4_RET_INTERNAL for a handler without one.
Mp4Result mp4_write_hdlr(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, uint32_t handler_type, uint64_t* total);
// Each refuses the record of another type with FF4_RET_INTERNAL.
Mp4Result mp4_write_vmhd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MediaHeaderAtom& header, uint64_t* total);
Mp4Result mp4_write_smhd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MediaHeaderAtom& header, uint64_t* total);
Mp4Result mp4_write_nmhd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MediaHeaderAtom& header, uint64_t* total);

// --- edits and references

// Nothing for an empty list.
Mp4Result mp4_write_edts(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4EditList& edits, uint64_t* total);
Mp4Result mp4_write_elst(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4EditList& edits, uint64_t* total);
// Nothing for an empty list.
Mp4Result mp4_write_tref(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TrackReferenceList& references, uint64_t* total);
Mp4Result mp4_write_dref(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4DataRefs& refs, uint64_t* total);

// --- sample tables

Mp4Result mp4_write_stts(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TableBuild& tables, uint64_t* total);
// Version 1 when an offset is negative.
Mp4Result mp4_write_ctts(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TableBuild& tables, uint64_t* total);
Mp4Result mp4_write_stsc(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TableBuild& tables, uint64_t* total);
// 'stsz' or 'stz2', as the record says.
Mp4Result mp4_write_sizes(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                          uint64_t offset, const Mp4TableBuild& tables, uint64_t* total);
// 'stco' or 'co64', by the offset policy. FF4_RET_ARGS for an unknown policy.
Mp4Result mp4_write_chunk_offsets(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                                  uint64_t offset, const Mp4TableBuild& tables, uint64_t* total);
Mp4Result mp4_write_stss(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4TableBuild& tables, uint64_t* total);

// --- sample descriptions

Mp4Result mp4_write_stsd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4SampleEntryList& entries, uint64_t* total);
// FF4_RET_INTERNAL for an entry that has no code of its own and none by its kind.
Mp4Result mp4_write_sample_entry(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                                 uint64_t offset, const Mp4SampleEntry& entry, uint64_t* total);
Mp4Result mp4_write_esds(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4EsDescriptor& es, uint64_t* total);
// The bytes as they were read where the record has them, else its fields and sets.
Mp4Result mp4_write_avcc(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4AvcConfig& config, uint64_t* total);

// --- object descriptors (ISO/IEC 14496-1, 7.2.6; 14496-14, 3.1.1)

// Tag 16 names the movie's elementary streams by their track ids (32 bits each), tag 17 those of an
// object descriptor stream by the index of a reference (16 bits).
struct Mp4ObjectDescriptor {
    uint16_t id;                                                                         // 10 bits
    bool inline_profiles;                                                                // tag 16
    uint8_t od_profile, scene_profile, audio_profile, visual_profile, graphics_profile;  // tag 16
    const uint32_t* streams;
    uint32_t stream_count;
};
// Tag 11.
struct Mp4IpmpDescriptor {
    uint8_t id;
    uint16_t type;
    const uint8_t* data;
    uint32_t size;
};
Mp4Result mp4_write_initial_object_descriptor(Mp4Host* host, Mp4File* file, uint64_t offset,
                                              const Mp4ObjectDescriptor& object, uint64_t* total);
Mp4Result mp4_write_object_descriptor(Mp4Host* host, Mp4File* file, uint64_t offset,
                                      const Mp4ObjectDescriptor& object, uint64_t* total);
Mp4Result mp4_write_ipmp_descriptor(Mp4Host* host, Mp4File* file, uint64_t offset,
                                    const Mp4IpmpDescriptor& ipmp, uint64_t* total);
// A full atom around a descriptor in bytes.
Mp4Result mp4_write_iods(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4ByteBlock& descriptor, uint64_t* total);

}  // namespace tarn
