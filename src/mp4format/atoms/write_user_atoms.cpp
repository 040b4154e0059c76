#include "mp4format/atoms/write_user_atoms.h"

namespace tarn {
namespace {

constexpr uint64_t kItemHead = kSmallAtomHeader + 4;  // header, language, encoding

// A small atom: u16 size and u32 type, then u16 language with the flag on top, u16 encoding, data.
Mp4Result write_item(Mp4Host* host, Mp4File* file, uint64_t offset, const Mp4MetaItem& item,
                     uint64_t* total) {
    if (item.data.size > kMostMetaData) return FF4_RET_OVERFLOW;
    Mp4Fields<kItemHead> head;
    head.U16(static_cast<uint32_t>(kItemHead) + item.data.size);
    head.U32(item.type);
    head.U16(uint32_t{item.flag} << 15 | (item.language & 0x7FFFu));
    head.U16(item.encoding);
    uint64_t size = 0;
    FF4_TRY(mp4_put(host, file, offset, head.Data(), head.Size(), &size));
    FF4_TRY(mp4_put(host, file, offset + size, item.data.data, item.data.size, &size));
    *total += size;
    return FF4_RET_OK;
}

Mp4Result write_fprf(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     uint32_t profile, uint64_t* total) {
    Mp4Fields<12> fields;
    fields.U32(0);
    fields.U32(profile);
    fields.U32(0);
    return mp4_write_fields(host, options, file, offset, fourcc("FPRF"), fields, total);
}

Mp4Result write_aprf(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     const Mp4AudioProfile& profile, uint64_t* total) {
    Mp4Fields<36> fields;
    fields.U32(0);
    fields.U32(profile.track_id);
    fields.U32(profile.codec);
    fields.U32(profile.codec_detail);
    fields.U32(profile.attributes);
    fields.U32(profile.max_bitrate);
    fields.U32(profile.average_bitrate);
    fields.U32(profile.sampling_rate);
    fields.U32(profile.channels);
    return mp4_write_fields(host, options, file, offset, fourcc("APRF"), fields, total);
}

Mp4Result write_vprf(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     const Mp4VideoProfile& profile, uint64_t* total) {
    Mp4Fields<44> fields;
    fields.U32(0);
    fields.U32(profile.track_id);
    fields.U32(profile.codec);
    fields.U32(profile.codec_detail);
    fields.U32(profile.attributes);
    fields.U32(profile.max_bitrate);
    fields.U32(profile.average_bitrate);
    fields.U32(profile.max_frame_rate);
    fields.U32(profile.average_frame_rate);
    fields.U16(profile.width);
    fields.U16(profile.height);
    fields.U16(profile.aspect_horizontal);
    fields.U16(profile.aspect_vertical);
    return mp4_write_fields(host, options, file, offset, fourcc("VPRF"), fields, total);
}

}  // namespace

Mp4Result mp4_write_meta_list(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                              uint64_t offset, uint32_t type, const Mp4MetaList& list,
                              uint64_t* total) {
    if (list.count > UINT16_MAX) return FF4_RET_OVERFLOW;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        Mp4Fields<2> head;
        head.U16(list.count);
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        for (const Mp4MetaItem* item = list.head; item; item = item->next)
            FF4_TRY(write_item(host, to, at + *size, *item, size));
        return FF4_RET_OK;
    };
    return mp4_write_container(host, options, file, offset, type, body, total);
}

Mp4Result mp4_write_usmt(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4UserBuild& user, uint64_t* total) {
    if (!user.texts.head && !user.files.head) return FF4_RET_OK;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_put_extended_type(host, to, at + *size, fourcc("USMT"), size));
        if (user.texts.head) {
            FF4_TRY(mp4_write_meta_list(host, options, to, at + *size, fourcc("MTDT"), user.texts,
                                        size));
        }
        if (!user.files.head) return FF4_RET_OK;
        return mp4_write_meta_list(host, options, to, at + *size, fourcc("MTDF"), user.files, size);
    };
    return mp4_write_container(host, options, file, offset, fourcc("uuid"), body, total);
}

Mp4Result mp4_write_prof(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4ProfileBuild& profile, uint64_t* total) {
    const uint32_t count = uint32_t{profile.has_file} + profile.has_audio + profile.has_video;
    if (count == 0) return FF4_RET_OK;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_put_extended_type(host, to, at + *size, fourcc("PROF"), size));
        Mp4Fields<kTableHead> head;
        head.U32(0);
        head.U32(count);
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        if (profile.has_file)
            FF4_TRY(write_fprf(host, options, to, at + *size, profile.file_profile, size));
        if (profile.has_audio)
            FF4_TRY(write_aprf(host, options, to, at + *size, profile.audio, size));
        return profile.has_video ? write_vprf(host, options, to, at + *size, profile.video, size)
                                 : FF4_RET_OK;
    };
    return mp4_write_container(host, options, file, offset, fourcc("uuid"), body, total);
}

}  // namespace tarn
