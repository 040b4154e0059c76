#include "mp4format/atoms/handler.h"

#include <cstring>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint32_t kVideoHeaderFlags = 1;  // the format asks for it

struct HandlerName {
    uint32_t type, media_header;
    const char* name;
};

constexpr HandlerName kHandlers[] = {
    {fourcc("vide"), fourcc("vmhd"), "Video Media Handler"},
    {fourcc("soun"), fourcc("smhd"), "Sound Media Handler"},
    {fourcc("GRAP"), fourcc("nmhd"), "Graphics Media Handler"},
    {fourcc("PKDT"), fourcc("nmhd"), "Packed Data Media Handler"},
    {fourcc("odsm"), fourcc("nmhd"), "ObjectDescriptor Media Handler"},
    {fourcc("BKDT"), fourcc("nmhd"), "Book Media Handler"},
};

const HandlerName* find_handler(uint32_t type) {
    for (const HandlerName& handler : kHandlers)
        if (handler.type == type) return &handler;
    return nullptr;
}

}  // namespace

Mp4Result mp4_read_hdlr(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4Handler* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    constexpr uint64_t kHandlerHead = 24;
    if (payload.size < kHandlerHead) return FF4_RET_FORMAT;
    uint8_t head[kHandlerHead];
    FF4_TRY(mp4_read_at(host, file, payload.offset, head, sizeof head));
    if (head[0] != 0) return FF4_RET_FORMAT;
    out->handler_type = get_be32(head + 8);
    out->name = {payload.offset + kHandlerHead, payload.size - kHandlerHead};
    return FF4_RET_OK;
}

Mp4Result mp4_write_hdlr(Mp4Sink& sink, uint32_t handler_type) {
    const HandlerName* handler = find_handler(handler_type);
    if (!handler) return FF4_RET_INTERNAL;
    Mp4Fields<64> fields;
    fields.U32(0);
    fields.Skip(4);
    fields.U32(handler_type);
    fields.Skip(12);
    fields.Copy(handler->name, std::strlen(handler->name) + 1);
    return mp4_write_fields(sink, fourcc("hdlr"), fields);
}

uint32_t mp4_media_header_of(uint32_t handler_type) {
    const HandlerName* handler = find_handler(handler_type);
    return handler ? handler->media_header : 0;
}

Mp4Result mp4_write_vmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    if (header.type != fourcc("vmhd")) return FF4_RET_INTERNAL;
    Mp4Fields<12> fields;
    fields.U32(kVideoHeaderFlags);
    fields.U16(header.graphics_mode);
    for (const uint16_t color : header.op_color)
        fields.U16(color);
    return mp4_write_fields(sink, fourcc("vmhd"), fields);
}

Mp4Result mp4_write_smhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    if (header.type != fourcc("smhd")) return FF4_RET_INTERNAL;
    Mp4Fields<8> fields;
    fields.U32(0);
    fields.U16(static_cast<uint16_t>(header.balance));
    fields.Skip(2);
    return mp4_write_fields(sink, fourcc("smhd"), fields);
}

Mp4Result mp4_write_nmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    if (header.type != fourcc("nmhd")) return FF4_RET_INTERNAL;
    return mp4_write_words(sink, fourcc("nmhd"), 0);
}

Mp4Result mp4_write_media_header(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    switch (header.type) {
        case fourcc("vmhd"):
            return mp4_write_vmhd(sink, header);
        case fourcc("smhd"):
            return mp4_write_smhd(sink, header);
        default:
            return mp4_write_nmhd(sink, header);
    }
}

}  // namespace tarn
