#include "mp4format/atoms/handler.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(Handler, NamesAndMediaHeaders) {
    const std::pair<FourCC, const char*> cases[] = {
        {"vide", "Video Media Handler"},
        {"soun", "Sound Media Handler"},
        {"GRAP", "Graphics Media Handler"},
        {"PKDT", "Packed Data Media Handler"},
        {"odsm", "ObjectDescriptor Media Handler"},
        {"BKDT", "Book Media Handler"},
    };
    TestHost host;
    for (const auto& [type, name] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Written(host, mp4_write_hdlr, type.value), Hdlr(type, name));
        Mp4MediaHeaderAtom header{};
        header.type = mp4_media_header_of(type.value);
        EXPECT_EQ(Written(host, mp4_write_media_header, header), MediaHeader(type));
    }
    EXPECT_EQ(DryRun(host, mp4_write_hdlr, fourcc("text")), FF4_RET_INTERNAL);
    for (const auto write : {mp4_write_vmhd, mp4_write_smhd, mp4_write_nmhd})
        EXPECT_EQ(DryRun(host, write, Mp4MediaHeaderAtom{}), FF4_RET_INTERNAL);
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
