// handler.h - of what kind a track's media is: 'hdlr', and the media header that goes with it
// (ISO/IEC 14496-12, 8.4.3 and 8.4.5).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"

namespace tarn {

struct Mp4Handler {
    uint32_t handler_type;
    Mp4Span name;  // all that follows the fixed part; no closing zero is required
};

// FF4_RET_FORMAT for a payload below 24 bytes or a version.
Mp4Result mp4_read_hdlr(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4Handler* out);
// With the name that belongs to the handler; FF4_RET_INTERNAL for a handler without one.
Mp4Result mp4_write_hdlr(Mp4Sink& sink, uint32_t handler_type);

// 'vmhd', 'smhd' or 'nmhd'.
struct Mp4MediaHeaderAtom {
    uint32_t type;
    uint16_t graphics_mode, op_color[3];  // 'vmhd'
    int16_t balance;                      // 'smhd', 8.8, 0 is the centre
};

// The type of the media header that goes with a handler, 0 for a handler unknown to us.
uint32_t mp4_media_header_of(uint32_t handler_type);
// Each refuses the record of another type with FF4_RET_INTERNAL.
Mp4Result mp4_write_vmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);
Mp4Result mp4_write_smhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);
Mp4Result mp4_write_nmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);
// The one that the record is of.
Mp4Result mp4_write_media_header(Mp4Sink& sink, const Mp4MediaHeaderAtom& header);

}  // namespace tarn
