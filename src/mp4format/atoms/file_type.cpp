#include "mp4format/atoms/file_type.h"

namespace tarn {

Mp4Result mp4_write_ftyp(Mp4Sink& sink, const Mp4FileTypeBuild& type) {
    if (type.brand_count > 0 && !type.brands) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<8> head;
        head.U32(type.major_brand);
        head.U32(type.minor_version);
        FF4_TRY(mp4_put_fields(to, head));
        for (uint32_t i = 0; i < type.brand_count; ++i) {
            Mp4Fields<4> brand;
            brand.U32(type.brands[i]);
            FF4_TRY(mp4_put_fields(to, brand));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("ftyp"), body);
}

}  // namespace tarn
