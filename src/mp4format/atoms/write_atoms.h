// write_atoms.h - the writers of a movie's atoms, one function each.
//
// Each puts its atom where the sink stands, or only counts it. Layouts are those that the readers
// document; reserved bytes are zero. Besides the codes named here every writer can answer
// FF4_RET_FILE, and FF4_RET_STATE for a number that the write options forbid. The writers with a
// build record note the bytes in its `atom_size`.
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
Mp4Result mp4_write_ftyp(Mp4Sink& sink, const Mp4FileTypeBuild& type);

// --- 'moov' and what is in it

// A track whose chunks were added in part is FF4_RET_STATE.
Mp4Result mp4_write_moov(Mp4Sink& sink, Mp4MovieBuild* movie);
Mp4Result mp4_write_trak(Mp4Sink& sink, const Mp4MovieBuild& movie, Mp4TrackBuild* track);
Mp4Result mp4_write_mdia(Mp4Sink& sink, Mp4MediaBuild* media);
Mp4Result mp4_write_stbl(Mp4Sink& sink, Mp4TableBuild* tables);

// The headers choose their version by mp4_pick_version; the flags are the record's.
Mp4Result mp4_write_mvhd(Mp4Sink& sink, const Mp4MovieHeader& header);
Mp4Result mp4_write_tkhd(Mp4Sink& sink, const Mp4TrackHeader& header);
Mp4Result mp4_write_mdhd(Mp4Sink& sink, const Mp4MediaHeader& header);
// With the name that belongs to the handler; FF4_RET_INTERNAL for a handler without one.
Mp4Result mp4_write_hdlr(Mp4Sink& sink, uint32_t handler_type);
// Each refuses the record of another type with FF4_RET_INTERNAL.
Mp4Result mp4_write_vmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);
Mp4Result mp4_write_smhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);
Mp4Result mp4_write_nmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);

// --- edits and references

// Nothing for an empty list.
Mp4Result mp4_write_edts(Mp4Sink& sink, const Mp4EditList& edits);
Mp4Result mp4_write_elst(Mp4Sink& sink, const Mp4EditList& edits);
// Nothing for an empty list.
Mp4Result mp4_write_tref(Mp4Sink& sink, const Mp4TrackReferenceList& references);
Mp4Result mp4_write_dref(Mp4Sink& sink, const Mp4DataRefs& refs);

// --- sample tables

Mp4Result mp4_write_stts(Mp4Sink& sink, const Mp4TableBuild& tables);
// Version 1 when an offset is negative.
Mp4Result mp4_write_ctts(Mp4Sink& sink, const Mp4TableBuild& tables);
Mp4Result mp4_write_stsc(Mp4Sink& sink, const Mp4TableBuild& tables);
// 'stsz' or 'stz2', as the record says.
Mp4Result mp4_write_sizes(Mp4Sink& sink, const Mp4TableBuild& tables);
// 'stco' or 'co64', by the offset policy. FF4_RET_ARGS for an unknown policy.
Mp4Result mp4_write_chunk_offsets(Mp4Sink& sink, const Mp4TableBuild& tables);
Mp4Result mp4_write_stss(Mp4Sink& sink, const Mp4TableBuild& tables);

// --- sample descriptions

Mp4Result mp4_write_stsd(Mp4Sink& sink, const Mp4SampleEntryList& entries);
// FF4_RET_INTERNAL for an entry that has no code of its own and none by its kind.
Mp4Result mp4_write_sample_entry(Mp4Sink& sink, const Mp4SampleEntry& entry);
Mp4Result mp4_write_esds(Mp4Sink& sink, const Mp4EsDescriptor& es);
// The bytes as they were read where the record has them, else its fields and sets.
Mp4Result mp4_write_avcc(Mp4Sink& sink, const Mp4AvcConfig& config);

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
Mp4Result mp4_write_initial_object_descriptor(Mp4Sink& sink, const Mp4ObjectDescriptor& object);
Mp4Result mp4_write_object_descriptor(Mp4Sink& sink, const Mp4ObjectDescriptor& object);
Mp4Result mp4_write_ipmp_descriptor(Mp4Sink& sink, const Mp4IpmpDescriptor& ipmp);
// A full atom around a descriptor in bytes.
Mp4Result mp4_write_iods(Mp4Sink& sink, const Mp4ByteBlock& descriptor);

}  // namespace tarn
