#include "mp4format/atoms/profile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/atoms.h"
#include "support/test_host.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

// The records as the top-level list has them; the host gives them back.
class Records {
public:
    explicit Records(const Bytes& bytes) : host(Join(Bytes(8, 0), bytes)) {
        list.atom = {8, bytes.size()};
        EXPECT_EQ(mp4_read_user_atoms(host, host.File(), list.atom, kNoAtomLimit, &list),
                  FF4_RET_OK);
    }
    ~Records() { mp4_free_user_atoms(host, &list); }

    TestHost host;
    Mp4UserAtomList list{};
};

TEST(Profile, CountsOfEachKind) {
    Records records(Join(Fprf(), Aprf(), Vprf(), Aprf(), Atom("BPRF"), Atom("PPRF"), Atom("PPRF"),
                         Atom("XPRF")));
    Mp4ProfileCounts c{};
    ASSERT_EQ(mp4_count_profiles(records.list, &c), FF4_RET_OK);
    const uint32_t counts[] = {c.fprf, c.vprf, c.aprf, c.bprf, c.pprf};
    EXPECT_TRUE(std::ranges::equal(counts, std::array{1u, 1u, 2u, 1u, 2u}));
}

TEST(Profile, RecordsThatCannotBeRead) {
    const struct {
        const char* name;
        Bytes bytes;
        Mp4Result file, video, audio;
    } cases[] = {
        {"none", {}, FF4_RET_NOTFOUND, FF4_RET_NOTFOUND, FF4_RET_NOTFOUND},
        {"a byte short",
         Join(Atom("FPRF", Bytes(11, 0)), Atom("VPRF", Bytes(43, 0)), Atom("APRF", Bytes(35, 0))),
         FF4_RET_FORMAT, FF4_RET_FORMAT, FF4_RET_FORMAT},
        {"of a version",
         Join(FullAtom("FPRF", 1, 0, Bytes(8, 0)), FullAtom("VPRF", 1, 0, Bytes(40, 0)),
              FullAtom("APRF", 1, 0, Bytes(32, 0))),
         FF4_RET_FORMAT, FF4_RET_OK, FF4_RET_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Records records(c.bytes);
        uint32_t file = 0;
        Mp4VideoProfile video{};
        Mp4AudioProfile audio{};
        TestHost& host = records.host;
        EXPECT_EQ(mp4_read_file_profile(host, host.File(), records.list, &file), c.file);
        EXPECT_EQ(mp4_read_video_profile(host, host.File(), records.list, &video), c.video);
        EXPECT_EQ(mp4_read_audio_profile(host, host.File(), records.list, &audio), c.audio);
    }
    Mp4ProfileCounts counts{};
    EXPECT_EQ(mp4_count_profiles({}, &counts), FF4_RET_NOTFOUND);
}

TEST(Profile, BothWaysWhereThereAreAny) {
    Records records(Join(Fprf(0x10000002), Aprf(), Vprf()));
    TestHost& host = records.host;
    Mp4File* file = host.File();
    Mp4ProfileBuild profile{};
    EXPECT_TRUE(Written(host, mp4_write_prof, profile).empty());
    ASSERT_EQ(mp4_read_file_profile(host, file, records.list, &profile.file_profile), FF4_RET_OK);
    ASSERT_EQ(mp4_read_audio_profile(host, file, records.list, &profile.audio), FF4_RET_OK);
    ASSERT_EQ(mp4_read_video_profile(host, file, records.list, &profile.video), FF4_RET_OK);
    EXPECT_EQ(profile.video.average_bitrate, 3000u);
    EXPECT_EQ(profile.video.height, 180);
    EXPECT_EQ(profile.audio.max_bitrate, 128u);
    EXPECT_EQ(profile.audio.channels, 2u);
    profile.has_file = profile.has_audio = profile.has_video = true;
    EXPECT_EQ(Written(host, mp4_write_prof, profile), Prof({Fprf(0x10000002), Aprf(), Vprf()}));
    profile.has_file = profile.has_audio = false;
    EXPECT_EQ(Written(host, mp4_write_prof, profile), Prof({Vprf()}));
}

}  // namespace
}  // namespace tarn
