#include "mp4format/atoms/movie_extends.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(MovieExtends, TakeTheVersionTheyNeed) {
    TestHost host;
    for (const uint64_t duration : {uint64_t{0x100000000}, uint64_t{7}, uint64_t{0}}) {
        const Bytes mehd = duration ? Mehd(duration, duration > 7) : Bytes{};
        const Bytes mvex = Atom("mvex", mehd, Trex(), Trex({2, 1, 1024, 6, 0x10000}));
        Mp4MovieExtends read{};
        const uint64_t size = mvex.size() - 8;
        ASSERT_EQ(mp4_read_mvex(host, host.Add(mvex), {8, size}, &read), FF4_RET_OK);
        EXPECT_EQ(read.fragment_duration, duration);
        EXPECT_EQ(mp4_find_trex(read, 2), read.tail);
        EXPECT_EQ(mp4_find_trex(read, 3), nullptr);
        EXPECT_EQ(Written(host, mp4_write_mvex, read), mvex);
        EXPECT_EQ(DryRun(host, mp4_write_mvex, read, {1, kVersion0, 1}),
                  duration > 7 ? FF4_RET_STATE : FF4_RET_OK);
        mp4_free_mvex(host, &read);
    }
}

TEST(MovieExtends, ShortAndUnknownAtoms) {
    const Bytes trex = Trex();
    const std::tuple<const char*, Bytes, uint32_t> cases[] = {
        {"mehd of 7 bytes", Join(trex, Atom("mehd", Bytes(7, 0)), trex), 1},
        {"mehd of version 1 and 8 bytes", FullAtom("mehd", 1, 0, Bytes(4, 0)), 0},
        {"mehd of version 2", FullAtom("mehd", 2, 0, Bytes(8, 0)), 0},
        {"trex of 23 bytes", Join(trex, trex, Atom("trex", Bytes(23, 0))), 2},
    };
    for (const auto& [name, bytes, due_tracks] : cases) {
        SCOPED_TRACE(name);
        TestHost host(bytes);
        Mp4MovieExtends extends{};
        EXPECT_EQ(mp4_read_mvex(host, host.File(), {0, bytes.size()}, &extends), FF4_RET_FORMAT);
        uint32_t tracks = 0;
        for (const Mp4Trex* at = extends.head; at; at = at->next)
            ++tracks;
        EXPECT_EQ(tracks, due_tracks);
        mp4_free_mvex(host, &extends);
    }
}

}  // namespace
}  // namespace tarn
