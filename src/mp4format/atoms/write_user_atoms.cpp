#include "mp4format/atoms/write_user_atoms.h"

namespace tarn {
namespace {

constexpr uint64_t kItemHead = kSmallAtomHeader + 4;  // header, language, encoding

// A small atom: u16 size and u32 type, then u16 language with the flag on top, u16 encoding, data.
Mp4Result write_item(Mp4Sink& sink, const Mp4MetaItem& item) {
    if (item.data.size > kMostMetaData) return FF4_RET_OVERFLOW;
    Mp4Fields<kItemHead> head;
    head.U16(static_cast<uint32_t>(kItemHead) + item.data.size);
    head.U32(item.type);
    head.U16(uint32_t{item.flag} << 15 | (item.language & 0x7FFFu));
    head.U16(item.encoding);
    FF4_TRY(mp4_put_fields(sink, head));
    return mp4_put(sink, item.data.data, item.data.size);
}

Mp4Result write_fprf(Mp4Sink& sink, uint32_t profile) {
    Mp4Fields<12> fields;
    fields.U32(0);
    fields.U32(profile);
    fields.U32(0);
    return mp4_write_fields(sink, fourcc("FPRF"), fields);
}

Mp4Result write_aprf(Mp4Sink& sink, const Mp4AudioProfile& profile) {
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
    return mp4_write_fields(sink, fourcc("APRF"), fields);
}

Mp4Result write_vprf(Mp4Sink& sink, const Mp4VideoProfile& profile) {
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
    return mp4_write_fields(sink, fourcc("VPRF"), fields);
}

}  // namespace

Mp4Result mp4_write_meta_list(Mp4Sink& sink, uint32_t type, const Mp4MetaList& list) {
    if (list.count > UINT16_MAX) return FF4_RET_OVERFLOW;
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<2> head;
        head.U16(list.count);
        FF4_TRY(mp4_put_fields(to, head));
        for (const Mp4MetaItem* item = list.head; item; item = item->next)
            FF4_TRY(write_item(to, *item));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, type, body);
}

Mp4Result mp4_write_usmt(Mp4Sink& sink, const Mp4UserBuild& user) {
    if (!user.texts.head && !user.files.head) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_extended_type(to, fourcc("USMT")));
        if (user.texts.head) {
            FF4_TRY(mp4_write_meta_list(to, fourcc("MTDT"), user.texts));
        }
        if (!user.files.head) return FF4_RET_OK;
        return mp4_write_meta_list(to, fourcc("MTDF"), user.files);
    };
    return mp4_write_container(sink, fourcc("uuid"), body);
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
