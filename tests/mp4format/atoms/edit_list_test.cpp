#include "mp4format/atoms/edit_list.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

constexpr uint64_t k4G = uint64_t{1} << 32;

constexpr size_t kElstHead = 16;  // atom header, version and flags, count

TEST(EditList, BothVersionsAndTruncation) {
    // cut: bytes missing at the end
    const std::tuple<const char*, uint8_t, uint32_t, size_t, size_t> cases[] = {
        {"version 0", 0, 3, 0, 3},
        {"version 1", 1, 3, 0, 3},
        {"a lying count", 0, 1000000, 0, 3},
        {"count below the entries", 0, 2, 0, 2},
        {"a cut entry", 0, 3, 1, 2},
        {"a cut entry of version 1", 1, 3, 19, 2},
        {"no count", 1, 0, 0, 0},
    };
    for (const auto& [name, version, count, cut, due_edits] : cases) {
        SCOPED_TRACE(name);
        const Edit edits[] = {{1000, -1}, {2000, 1024}, {77, 5, 2}};
        const Bytes bytes = Elst({edits[0], edits[1], edits[2]}, version);
        TestHost host(bytes);
        Mp4EditList list{};
        ASSERT_EQ(mp4_read_edits(host, host.File(), {kElstHead, bytes.size() - kElstHead - cut},
                                 count, uint32_t{version} << 24, &list),
                  FF4_RET_OK);
        EXPECT_EQ(list.count, due_edits);
        const Edit* expected = edits;
        for (const Mp4Edit* edit = list.head; edit; edit = edit->next, ++expected) {
            EXPECT_EQ(edit->segment_duration, expected->duration);
            EXPECT_EQ(edit->media_time, expected->media_time);
            EXPECT_EQ(edit->rate_integer, expected->rate);
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
    const std::tuple<const char*, uint32_t, Edit, Mp4Result, uint8_t> cases[] = {
        {"an empty edit fits", kVersionAuto, {9, -1}, FF4_RET_OK, 0},
        {"and is not wide under version 0", kVersion0, {9, -1}, FF4_RET_OK, 0},
        {"the longest that fit", kVersionAuto, {UINT32_MAX, INT32_MAX}, FF4_RET_OK, 0},
        {"the earliest time", kVersionAuto, {9, INT32_MIN}, FF4_RET_OK, 0},
        {"an earlier one", kVersionAuto, {9, INT64_C(-0x80000001)}, FF4_RET_OK, 1},
        {"a long duration", kVersionAuto, {k4G, 0}, FF4_RET_OK, 1},
        {"a late time", kVersionAuto, {9, 0x80000000}, FF4_RET_OK, 1},
        {"a late time that is refused", kVersion0Too, {9, k4G}, FF4_RET_STATE, 0},
        {"a duration that is refused", kVersion0, {k4G, 0}, FF4_RET_STATE, 0},
        {"always", kVersionAlways1, {9, 5}, FF4_RET_OK, 1},
    };
    for (const auto& [name, policy, edit, added, version] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Mp4EditList list{};
        const Mp4WriteOptions options = {kSizeAuto, policy, kOffsetAuto};
        const auto add = [&](const Edit& e) {
            return mp4_add_edit(host, options, {e.duration, e.media_time, 1, 0, nullptr}, &list);
        };
        std::vector<Edit> edits = {{1, 2}};
        ASSERT_EQ(add(edits[0]), FF4_RET_OK);
        EXPECT_EQ(add(edit), added);
        if (added == FF4_RET_OK) edits.push_back(edit);
        EXPECT_EQ(Written(host, mp4_write_edts, list, options), Atom("edts", Elst(edits, version)));
        mp4_free_edits(host, &list);
    }
}

}  // namespace
}  // namespace tarn
