#include "mp4format/atoms/avc_config.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(AvcConfig, MadeFromFields) {
    TestHost host;
    Bytes set = {0x67, 1, 2}, picture = {0x68, 3};
    Mp4ParameterSet sps{{set.data(), 3}, nullptr}, pps{{picture.data(), 2}, nullptr};
    Mp4AvcConfig config{};
    config.configuration_version = 1;
    config.profile = 0x4D;
    config.profile_compatibility = 0x40;
    config.level = 0x0D;
    config.length_size_minus_one = 3;
    config.sequence_sets = {&sps, &sps, 1};
    config.picture_sets = {&pps, &pps, 1};
    EXPECT_EQ(Written(host, mp4_write_avcc, config), Avcc({set}, {picture}));
    config.sequence_sets.count = 32;
    EXPECT_EQ(DryRun(host, mp4_write_avcc, config), FF4_RET_OVERFLOW);
    config.sequence_sets.count = 1;
    sps.data.size = 65536;
    EXPECT_EQ(DryRun(host, mp4_write_avcc, config), FF4_RET_OVERFLOW);
}

}  // namespace
}  // namespace tarn
