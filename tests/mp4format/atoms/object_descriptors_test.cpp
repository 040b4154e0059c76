#include "mp4format/atoms/object_descriptors.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(ObjectDescriptors, OfAMovieAndOfItsStream) {
    TestHost host;
    const uint32_t streams[] = {1, 0x10002};
    const Mp4ObjectDescriptor object{1, false, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, streams, 2};
    const Bytes bytes = Written(host, mp4_write_initial_object_descriptor, object);
    EXPECT_EQ(bytes,
              Descriptor(16, Join(Bytes{0, 0x4F, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB},
                                  Descriptor(14, Be32({1})), Descriptor(14, Be32({0x10002})))));
    Bytes copy = bytes;
    EXPECT_EQ(Written(host, mp4_write_iods, Mp4ByteBlock{copy.data(), uint32_t(copy.size())}),
              FullAtom("iods", 0, 0, bytes));
    EXPECT_EQ(
        Written(host, mp4_write_object_descriptor, object),
        Descriptor(17, Join(Bytes{0, 0x5F}, Descriptor(15, Be16({1})), Descriptor(15, Be16({2})))));
    Mp4ObjectDescriptor wrong[] = {object, object};
    wrong[0].id = 1 << 10;
    wrong[1].streams = nullptr;
    for (const auto& bad : wrong) {
        EXPECT_EQ(DryRun(host, mp4_write_initial_object_descriptor, bad), FF4_RET_ARGS);
        EXPECT_EQ(DryRun(host, mp4_write_object_descriptor, bad), FF4_RET_ARGS);
    }
    const uint8_t data[] = {1, 2};
    EXPECT_EQ(Written(host, mp4_write_ipmp_descriptor, Mp4IpmpDescriptor{3, 4, data, 2}),
              Descriptor(11, {3, 0, 4, 1, 2}));
}

}  // namespace
}  // namespace tarn
