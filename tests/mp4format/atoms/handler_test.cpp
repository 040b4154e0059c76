#include "mp4format/atoms/handler.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(Handler, NamesAndMediaHeaders) {
    const struct {
        FourCC type;
        const char* name;
        decltype(mp4_write_vmhd)* media_header;
    } cases[] = {
        {"vide", "Video Media Handler", mp4_write_vmhd},
        {"soun", "Sound Media Handler", mp4_write_smhd},
        {"GRAP", "Graphics Media Handler", mp4_write_nmhd},
        {"PKDT", "Packed Data Media Handler", mp4_write_nmhd},
        {"odsm", "ObjectDescriptor Media Handler", mp4_write_nmhd},
        {"BKDT", "Book Media Handler", mp4_write_nmhd},
    };
    TestHost host;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Written(host, mp4_write_hdlr, c.type.value), Hdlr(c.type, c.name));
        Mp4MediaHeaderAtom header{};
        header.type = mp4_media_header_of(c.type.value);
        EXPECT_EQ(Written(host, mp4_write_media_header, header), MediaHeader(c.type));
        EXPECT_EQ(Written(host, c.media_header, header), MediaHeader(c.type));
        auto* wrong = c.media_header == mp4_write_nmhd ? mp4_write_smhd : mp4_write_nmhd;
        EXPECT_EQ(DryRun(host, wrong, header), FF4_RET_INTERNAL);
    }
    EXPECT_EQ(DryRun(host, mp4_write_hdlr, fourcc("text")), FF4_RET_INTERNAL);
}

TEST(Handler, TooShortOrOfAVersion) {
    const Bytes hdlr = Hdlr("vide", "");
    for (const auto& [size, version, result] :
         {std::tuple{24, 0, FF4_RET_OK}, {23, 0, FF4_RET_FORMAT}, {24, 1, FF4_RET_FORMAT}}) {
        Bytes bytes = hdlr;
        bytes[8] = static_cast<uint8_t>(version);
        TestHost host(bytes);
        Mp4Handler handler{};
        EXPECT_EQ(mp4_read_hdlr(host, host.File(), {8, uint64_t(size)}, &handler), result);
        EXPECT_EQ(handler.handler_type, result == FF4_RET_OK ? fourcc("vide") : 0);
        EXPECT_EQ(handler.name.size, 0u);
    }
}

}  // namespace
}  // namespace tarn
