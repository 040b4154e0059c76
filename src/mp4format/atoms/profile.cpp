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

// What take_common takes, with version and flags.
template <typename Fields, typename Profile>
void put_common(const Profile& profile, Fields* fields) {
    fields->U32(0);
    fields->U32(profile.track_id);
    fields->U32(profile.codec);
    fields->U32(profile.codec_detail);
    fields->U32(profile.attributes);
    fields->U32(profile.max_bitrate);
    fields->U32(profile.average_bitrate);
}

Mp4Result write_fprf(Mp4Sink& sink, uint32_t profile) {
    Mp4Fields<kFileRecord> fields;
    fields.U32(0);
    fields.U32(profile);
    fields.U32(0);
    return mp4_write_fields(sink, fourcc("FPRF"), fields);
}

Mp4Result write_aprf(Mp4Sink& sink, const Mp4AudioProfile& profile) {
    Mp4Fields<kAudioRecord> fields;
    put_common(profile, &fields);
    fields.U32(profile.sampling_rate);
    fields.U32(profile.channels);
    return mp4_write_fields(sink, fourcc("APRF"), fields);
}

Mp4Result write_vprf(Mp4Sink& sink, const Mp4VideoProfile& profile) {
    Mp4Fields<kVideoRecord> fields;
    put_common(profile, &fields);
    fields.U32(profile.max_frame_rate);
    fields.U32(profile.average_frame_rate);
    fields.U16(profile.width);
    fields.U16(profile.height);
    fields.U16(profile.aspect_horizontal);
    fields.U16(profile.aspect_vertical);
    return mp4_write_fields(sink, fourcc("VPRF"), fields);
}

}  // namespace

Mp4Result mp4_count_profiles(const Mp4UserAtomList& list, Mp4ProfileCounts* counts) {
    if (!counts) return FF4_RET_ARGS;
    if (!present(list.atom)) return FF4_RET_NOTFOUND;
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

Mp4Result mp4_write_prof(Mp4Sink& sink, const Mp4ProfileBuild& profile) {
    const uint32_t count = uint32_t{profile.has_file} + profile.has_audio + profile.has_video;
    if (count == 0) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_extended_type(to, fourcc("PROF")));
        Mp4Fields<kTableHead> head;
        head.U32(0);
        head.U32(count);
        FF4_TRY(mp4_put_fields(to, head));
        if (profile.has_file) FF4_TRY(write_fprf(to, profile.file_profile));
        if (profile.has_audio) FF4_TRY(write_aprf(to, profile.audio));
        return profile.has_video ? write_vprf(to, profile.video) : FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("uuid"), body);
}

}  // namespace tarn
