#include <gtest/gtest.h>

#include "mp4format/atoms/data_refs.h"
#include "mp4format/atoms/edit_list.h"
#include "support/atoms.h"
#include "support/test_host.h"

namespace tarn {
namespace {

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

struct RefsCase {
    const char* name;
    std::vector<Bytes> entries;
    uint32_t count;
    Mp4Result result;
    std::vector<std::string> locations;  // "-" for none
};

TEST(DataRefs, TextsAndTheirEnds) {
    const RefsCase cases[] = {
        {"same file", {Url()}, 1, FF4_RET_OK, {"-"}},
        {"a location", {Url("file:x")}, 1, FF4_RET_OK, {"file:x"}},
        {"without its closing zero", {FullAtom("url ", 0, 0, Text("abc"))}, 1, FF4_RET_OK, {"abc"}},
        {"an empty location", {FullAtom("url ", 0, 0)}, 1, FF4_RET_OK, {""}},
        {"flags beyond the first bit", {FullAtom("url ", 0, 3, TextZ("a"))}, 1, FF4_RET_OK, {"a"}},
        {"urn with both", {Urn("name", "where")}, 1, FF4_RET_OK, {"where"}},
        {"urn with a name alone", {FullAtom("urn ", 0, 0, TextZ("n"))}, 1, FF4_RET_OK, {"-"}},
        {"urn of 4 bytes", {FullAtom("urn ", 0, 0)}, 1, FF4_RET_FORMAT, {}},
        {"url of 3 bytes", {Atom("url ", Bytes(3, 0))}, 1, FF4_RET_FORMAT, {}},
        {"url of version 1", {FullAtom("url ", 1, 1)}, 1, FF4_RET_FORMAT, {}},
        {"another kind", {Atom("alis", Bytes(2, 1)), Url("u")}, 9, FF4_RET_OK, {"-", "u"}},
        {"count below the entries", {Url(), Url()}, 1, FF4_RET_OK, {"-"}},
        {"count of zero", {Url()}, 0, FF4_RET_OK, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes bytes = Join(Be32({0, 0}), JoinAll(c.entries));
        TestHost host(bytes);
        Mp4DataRefs refs{};
        EXPECT_EQ(mp4_read_data_refs(host, host.File(), {8, bytes.size() - 8}, c.count, &refs),
                  c.result);
        std::vector<std::string> locations;
        for (const Mp4DataRef* ref = refs.head; ref; ref = ref->next)
            locations.push_back(ref->location ? ref->location : "-");
        EXPECT_EQ(locations, c.locations);
        mp4_free_data_refs(host, &refs);
        EXPECT_EQ(host.LiveBlocks(), 0u);
    }
}

}  // namespace
}  // namespace tarn
