#include "mp4format/atoms/movie_extends.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(MovieExtends, TakeTheVersionTheyNeed) {
    TestHost host;
    Mp4Trex trex{{}, 2, 1, 1024, 6, 0x10000, nullptr};
    Mp4MovieExtends extends{{}, 0x100000000, &trex, &trex};
    const Bytes defaults = Trex({2, 1, 1024, 6, 0x10000});
    const Bytes written = Written(host, mp4_write_mvex, extends);
    EXPECT_EQ(written, Atom("mvex", Mehd(0x100000000, 1), defaults));
    Mp4MovieExtends read{};
    ASSERT_EQ(mp4_read_mvex(host, host.Add(written), {8, written.size() - 8}, &read), FF4_RET_OK);
    EXPECT_EQ(read.fragment_duration, extends.fragment_duration);
    const Mp4Trex* found = mp4_find_trex(read, 2);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->default_description_index, 1u);
    EXPECT_EQ(found->default_duration, 1024u);
    EXPECT_EQ(found->default_size, 6u);
    EXPECT_EQ(found->default_flags, 0x10000u);
    EXPECT_EQ(mp4_find_trex(read, 1), nullptr);
    mp4_free_mvex(host, &read);
    EXPECT_EQ(DryRun(host, mp4_write_mvex, extends, {1, kVersion0, 1}), FF4_RET_STATE);
    extends.fragment_duration = 0;
    EXPECT_EQ(Written(host, mp4_write_mvex, extends), Atom("mvex", defaults))
        << "no duration, no mehd";
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
