#include "mp4format/atoms/profile.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kFileRecord = 12, kVideoRecord = 44, kAudioRecord = 36;

// The fixed part of the first record of a type.
Mp4Result read_record(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list, uint32_t type,
                      uint8_t* bytes, uint64_t size) {
    const Mp4UserAtom* record = mp4_find_user_atom(list, type);
    if (!record) return FF4_RET_NOTFOUND;
    if (record->payload.size < size) return mp4_blame(host, type, FF4_RET_FORMAT);
    return mp4_read_at(host, file, record->payload.offset, bytes, size);
}

// What the records of picture and sound begin with, behind version and flags.
template <typename Profile>
Mp4FieldReader take_common(const uint8_t* bytes, Profile* profile) {
    Mp4FieldReader fields(bytes + 4);
    profile->track_id = fields.U32();
    profile->codec = fields.U32();
    profile->codec_detail = fields.U32();
    profile->attributes = fields.U32();
    profile->max_bitrate = fields.U32();
    profile->average_bitrate = fields.U32();
    return fields;
}

}  // namespace

Mp4Result mp4_count_profiles(const Mp4UserAtomList& list, Mp4ProfileCounts* counts) {
    if (!counts) return FF4_RET_ARGS;
    if (list.atom.offset == 0) return FF4_RET_NOTFOUND;
    *counts = {};
    for (const Mp4UserAtom* record = list.head; record; record = record->next) {
        counts->fprf += record->type == fourcc("FPRF");
        counts->vprf += record->type == fourcc("VPRF");
        counts->aprf += record->type == fourcc("APRF");
        counts->bprf += record->type == fourcc("BPRF");
        counts->pprf += record->type == fourcc("PPRF");
    }
    return FF4_RET_OK;
}

Mp4Result mp4_read_file_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                uint32_t* profile) {
    if (!host || !file || !profile) return FF4_RET_ARGS;
    uint8_t bytes[kFileRecord];
    FF4_TRY(read_record(host, file, list, fourcc("FPRF"), bytes, sizeof bytes));
    if (full_version(get_be32(bytes)) != 0) return mp4_blame(host, fourcc("FPRF"), FF4_RET_FORMAT);
    *profile = get_be32(bytes + 4);
    return FF4_RET_OK;
}

Mp4Result mp4_read_video_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                 Mp4VideoProfile* profile) {
    if (!host || !file || !profile) return FF4_RET_ARGS;
    uint8_t bytes[kVideoRecord];
    FF4_TRY(read_record(host, file, list, fourcc("VPRF"), bytes, sizeof bytes));
    Mp4FieldReader fields = take_common(bytes, profile);
    profile->max_frame_rate = fields.U32();
    profile->average_frame_rate = fields.U32();
    profile->width = fields.U16();
    profile->height = fields.U16();
    profile->aspect_horizontal = fields.U16();
    profile->aspect_vertical = fields.U16();
    return FF4_RET_OK;
}

Mp4Result mp4_read_audio_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                 Mp4AudioProfile* profile) {
    if (!host || !file || !profile) return FF4_RET_ARGS;
    uint8_t bytes[kAudioRecord];
    FF4_TRY(read_record(host, file, list, fourcc("APRF"), bytes, sizeof bytes));
    Mp4FieldReader fields = take_common(bytes, profile);
    profile->sampling_rate = fields.U32();
    profile->channels = fields.U32();
    return FF4_RET_OK;
}

}  // namespace tarn
