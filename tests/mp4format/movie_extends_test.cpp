#include "mp4format/movie_extends.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"

namespace tarn {
namespace {

TEST(MovieExtends, DurationAndDefaults) {
    const Bytes payload =
        Join(Bytes(8, 0), Mehd(uint64_t{5} << 32, 1), Mehd(7),
             Trex({.track_id = 2, .description = 3, .duration = 4, .size = 5, .flags = 6}),
             Atom("leva", Bytes(8, 0)), Trex({.track_id = 9}));
    TestHost host(payload);
    Mp4MovieExtends extends{};
    ASSERT_EQ(mp4_read_mvex(host, host.File(), {8, payload.size() - 8}, &extends), FF4_RET_OK);
    EXPECT_EQ(extends.fragment_duration, uint64_t{5} << 32);
    const Mp4Trex* trex = mp4_find_trex(extends, 2);
    ASSERT_TRUE(trex);
    EXPECT_EQ(trex->default_description_index, 3u);
    EXPECT_EQ(trex->default_duration, 4u);
    EXPECT_EQ(trex->default_size, 5u);
    EXPECT_EQ(trex->default_flags, 6u);
    EXPECT_EQ(mp4_find_trex(extends, 9), trex->next);
    EXPECT_EQ(mp4_find_trex(extends, 1), nullptr);
    mp4_free_mvex(host, &extends);
}

TEST(MovieExtends, ShortAndUnknownAtoms) {
    const Bytes trex = Trex();
    const struct {
        const char* name;
        Bytes bytes;
        uint32_t tracks;
    } cases[] = {
        {"mehd of 7 bytes", Join(trex, Atom("mehd", Bytes(7, 0)), trex), 1},
        {"mehd of version 1 and 8 bytes", FullAtom("mehd", 1, 0, Bytes(4, 0)), 0},
        {"mehd of version 2", FullAtom("mehd", 2, 0, Bytes(8, 0)), 0},
        {"trex of 23 bytes", Join(trex, trex, Atom("trex", Bytes(23, 0))), 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host(c.bytes);
        Mp4MovieExtends extends{};
        EXPECT_EQ(mp4_read_mvex(host, host.File(), {0, c.bytes.size()}, &extends), FF4_RET_FORMAT);
        uint32_t tracks = 0;
        for (const Mp4Trex* at = extends.head; at; at = at->next)
            ++tracks;
        EXPECT_EQ(tracks, c.tracks);
        mp4_free_mvex(host, &extends);
    }
}

}  // namespace
}  // namespace tarn
