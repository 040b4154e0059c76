#include "mp4format/atoms/profile.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/atoms.h"
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

TEST(Profile, RecordsThatCannotBeRead) {
    const auto records = [](uint8_t version, size_t file, size_t video, size_t audio) {
        const auto record = [&](FourCC type, size_t size) {
            Bytes payload(size, 0);
            payload[0] = version;
            return Atom(type, payload);
        };
        return Join(record("FPRF", file), record("VPRF", video), record("APRF", audio));
    };
    const std::tuple<const char*, Bytes, Mp4Result, Mp4Result, Mp4Result> cases[] = {
        {"none", {}, FF4_RET_NOTFOUND, FF4_RET_NOTFOUND, FF4_RET_NOTFOUND},
        {"a byte short", records(0, 11, 43, 35), FF4_RET_FORMAT, FF4_RET_FORMAT, FF4_RET_FORMAT},
        {"of a version", records(1, 12, 44, 36), FF4_RET_FORMAT, FF4_RET_OK, FF4_RET_OK},
    };
    for (const auto& [name, bytes, due_file, due_video, due_audio] : cases) {
        SCOPED_TRACE(name);
        Records read(bytes);
        uint32_t file = 0;
        Mp4VideoProfile video{};
        Mp4AudioProfile audio{};
        TestHost& host = read.host;
        EXPECT_EQ(mp4_read_file_profile(host, host.File(), read.list, &file), due_file);
        EXPECT_EQ(mp4_read_video_profile(host, host.File(), read.list, &video), due_video);
        EXPECT_EQ(mp4_read_audio_profile(host, host.File(), read.list, &audio), due_audio);
    }
}

TEST(Profile, BothWaysWhereThereAreAny) {
    Records records(Join(Fprf(0x10000002), Aprf(), Vprf(), Aprf(3), Atom("BPRF"), Atom("XPRF")));
    Mp4ProfileCounts c{};
    EXPECT_EQ(mp4_count_profiles({}, &c), FF4_RET_NOTFOUND);
    ASSERT_EQ(mp4_count_profiles(records.list, &c), FF4_RET_OK);
    EXPECT_EQ((std::vector{c.fprf, c.vprf, c.aprf, c.bprf, c.pprf}),
              (std::vector<uint32_t>{1, 1, 2, 1, 0}));
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
