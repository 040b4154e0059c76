#include "playback/avc_sample.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarn {
namespace {

TEST(AvcSample, TellsWhatNoOtherPictureNeeds) {
    const struct {
        const char* name;
        std::vector<uint8_t> sample;
        uint32_t length_size;
        bool disposable;
    } rows[] = {
        {"two slices of a B picture", {0, 0, 0, 2, 0x01, 9, 0, 0, 0, 1, 0x01}, 4, true},
        {"after a delimiter and a message", {0, 1, 0x09, 0, 1, 0x06, 0, 1, 0x01}, 2, true},
        {"a P picture", {0, 0, 0, 2, 0x41, 9}, 4, false},
        {"two fields, one is needed", {1, 0x01, 1, 0x21}, 1, false},
        {"parameters for later pictures", {1, 0x67, 1, 0x01}, 1, false},
        {"no slice at all", {1, 0x09, 1, 0x11}, 1, false},
        {"nothing", {}, 4, false},
        {"a unit past the end", {0, 0, 0, 9, 0x01}, 4, false},
        {"an empty unit", {0, 0, 0, 0, 0, 0, 0, 1, 0x01}, 4, false},
        {"half a length at the end", {0, 1, 0x01, 0}, 2, false},
        {"lengths of no size", {1, 0x01}, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(IsDisposableAvcSample(row.sample, row.length_size), row.disposable);
    }
}

}  // namespace
}  // namespace tarn
