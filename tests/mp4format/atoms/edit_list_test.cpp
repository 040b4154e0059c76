#include "mp4format/atoms/edit_list.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

constexpr uint64_t k4G = uint64_t{1} << 32;

constexpr size_t kElstHead = 16;  // atom header, version and flags, count

TEST(EditList, BothVersionsAndTruncation) {
    const struct {
        const char* name;
        uint8_t version;
        uint32_t count;
        size_t cut;  // bytes missing at the end
        size_t edits;
    } cases[] = {
        {"version 0", 0, 3, 0, 3},
        {"version 1", 1, 3, 0, 3},
        {"a lying count", 0, 1000000, 0, 3},
        {"count below the entries", 0, 2, 0, 2},
        {"a cut entry", 0, 3, 1, 2},
        {"a cut entry of version 1", 1, 3, 19, 2},
        {"no count", 1, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes bytes = Elst({{1000, -1}, {2000, 1024}, {77, 5, 2}}, c.version);
        TestHost host(bytes);
        Mp4EditList list{};
        ASSERT_EQ(mp4_read_edits(host, host.File(), {kElstHead, bytes.size() - kElstHead - c.cut},
                                 c.count, uint32_t{c.version} << 24, &list),
                  FF4_RET_OK);
        EXPECT_EQ(list.count, c.edits);
        if (list.head) {
            EXPECT_EQ(list.head->media_time, -1) << "an empty edit stays one";
        }
        if (c.edits == 3) {
            EXPECT_EQ(list.tail->segment_duration, 77u);
            EXPECT_EQ(list.tail->media_time, 5);
            EXPECT_EQ(list.tail->rate_integer, 2);
        }
        EXPECT_LT(host.LargestBlock(), 200u) << "a count allocates nothing";
        mp4_free_edits(host, &list);
    }
    TestHost host;
    Mp4EditList list{};
    const uint8_t entry[20] = {};
    EXPECT_EQ(mp4_decode_edits(host, entry, 20, 1, 2u << 24, &list), FF4_RET_ARGS);
}

TEST(EditList, TakesTheVersionItNeeds) {
    const struct {
        const char* name;
        uint32_t policy;
        Mp4Edit edit;
        Mp4Result added;
        uint8_t version;
    } cases[] = {
        {"an empty edit fits", kVersionAuto, {9, -1, 1, 0, nullptr}, FF4_RET_OK, 0},
        {"and is not wide under version 0", kVersion0, {9, -1, 1, 0, nullptr}, FF4_RET_OK, 0},
        {"a long duration", kVersionAuto, {k4G, 0, 1, 0, nullptr}, FF4_RET_OK, 1},
        {"a late time", kVersionAuto, {9, 0x80000000, 1, 0, nullptr}, FF4_RET_OK, 1},
        {"a late time that is refused", kVersion0Too, {9, k4G, 1, 0, nullptr}, FF4_RET_STATE, 0},
        {"a duration that is refused", kVersion0, {k4G, 0, 1, 0, nullptr}, FF4_RET_STATE, 0},
        {"always", kVersionAlways1, {9, 5, 1, 0, nullptr}, FF4_RET_OK, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host;
        Mp4EditList list{};
        const Mp4WriteOptions options = {kSizeAuto, c.policy, kOffsetAuto};
        ASSERT_EQ(mp4_add_edit(host, options, {1, 2, 1, 0, nullptr}, &list), FF4_RET_OK);
        EXPECT_EQ(mp4_add_edit(host, options, c.edit, &list), c.added);
        std::vector<Edit> edits = {{1, 2}};
        if (c.added == FF4_RET_OK) edits.push_back({c.edit.segment_duration, c.edit.media_time});
        EXPECT_EQ(Written(host, mp4_write_edts, list, options),
                  Atom("edts", Elst(edits, c.version)));
        mp4_free_edits(host, &list);
    }
}

}  // namespace
}  // namespace tarn
