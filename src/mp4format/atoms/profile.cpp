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

// The fields of both records after version and flags, read or written in this order.
template <typename Fields, typename Profile>
void each_common(Fields& fields, Profile& profile) {
    fields.U32(profile.track_id);
    fields.U32(profile.codec);
    fields.U32(profile.codec_detail);
    fields.U32(profile.attributes);
    fields.U32(profile.max_bitrate);
    fields.U32(profile.average_bitrate);
}

template <typename Fields, typename Profile>
void each_audio(Fields& fields, Profile& profile) {
    each_common(fields, profile);
    fields.U32(profile.sampling_rate);
    fields.U32(profile.channels);
}

template <typename Fields, typename Profile>
void each_video(Fields& fields, Profile& profile) {
    each_common(fields, profile);
    fields.U32(profile.max_frame_rate);
    fields.U32(profile.average_frame_rate);
    fields.U16(profile.width);
    fields.U16(profile.height);
    fields.U16(profile.aspect_horizontal);
    fields.U16(profile.aspect_vertical);
}

Mp4Result write_aprf(Mp4Sink& sink, const Mp4AudioProfile& profile) {
    Mp4Fields<kAudioRecord> fields;
    fields.U32(0);
    each_audio(fields, profile);
    return mp4_write_fields(sink, fourcc("APRF"), fields);
}

Mp4Result write_vprf(Mp4Sink& sink, const Mp4VideoProfile& profile) {
    Mp4Fields<kVideoRecord> fields;
    fields.U32(0);
    each_video(fields, profile);
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
    Mp4FieldReader fields(bytes + 4);
    each_video(fields, *profile);
    return FF4_RET_OK;
}

Mp4Result mp4_read_audio_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                 Mp4AudioProfile* profile) {
    if (!host || !file || !profile) return FF4_RET_ARGS;
    uint8_t bytes[kAudioRecord];
    FF4_TRY(read_record(host, file, list, fourcc("APRF"), bytes, sizeof bytes));
    Mp4FieldReader fields(bytes + 4);
    each_audio(fields, *profile);
    return FF4_RET_OK;
}

Mp4Result mp4_write_prof(Mp4Sink& sink, const Mp4ProfileBuild& profile) {
    const uint32_t count = uint32_t{profile.has_file} + profile.has_audio + profile.has_video;
    if (count == 0) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_extended_type(to, fourcc("PROF")));
        FF4_TRY(mp4_put_words(to, 0, count));
        if (profile.has_file)
            FF4_TRY(mp4_write_words(to, fourcc("FPRF"), 0, profile.file_profile, 0));
        if (profile.has_audio) FF4_TRY(write_aprf(to, profile.audio));
        return profile.has_video ? write_vprf(to, profile.video) : FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("uuid"), body);
}

}  // namespace tarn
