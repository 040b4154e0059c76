#include "mp4format/profile.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/test_host.h"

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

TEST(Profile, RecordsOfEachKind) {
    Records records(Join(Fprf(0x10000002),
                         Aprf({.track_id = 5,
                               .codec = "twos",
                               .detail = 1,
                               .attributes = 2,
                               .max_kbit = 3,
                               .average_kbit = 4,
                               .rate = 44100,
                               .channels = 6}),
                         Vprf({.track_id = 7,
                               .codec = "mp4v",
                               .detail = 8,
                               .attributes = 9,
                               .max_kbit = 10,
                               .average_kbit = 11,
                               .max_rate = 12,
                               .average_rate = 13,
                               .width = 14,
                               .height = 15,
                               .aspect_x = 16,
                               .aspect_y = 17}),
                         Aprf(), Atom("BPRF"), Atom("PPRF"), Atom("PPRF"), Atom("XPRF")));
    Mp4ProfileCounts counts{};
    ASSERT_EQ(mp4_count_profiles(records.list, &counts), FF4_RET_OK);
    EXPECT_EQ(counts.fprf, 1u);
    EXPECT_EQ(counts.vprf, 1u);
    EXPECT_EQ(counts.aprf, 2u);
    EXPECT_EQ(counts.bprf, 1u);
    EXPECT_EQ(counts.pprf, 2u);

    uint32_t file = 0;
    ASSERT_EQ(mp4_read_file_profile(records.host, records.host.File(), records.list, &file),
              FF4_RET_OK);
    EXPECT_EQ(file, 0x10000002u);
    Mp4AudioProfile a{};
    ASSERT_EQ(mp4_read_audio_profile(records.host, records.host.File(), records.list, &a),
              FF4_RET_OK);
    const uint32_t audio[] = {a.track_id,    a.codec,           a.codec_detail,  a.attributes,
                              a.max_bitrate, a.average_bitrate, a.sampling_rate, a.channels};
    const uint32_t audio_fields[] = {5, fourcc("twos"), 1, 2, 3, 4, 44100, 6};
    EXPECT_TRUE(std::equal(std::begin(audio), std::end(audio), audio_fields));
    Mp4VideoProfile v{};
    ASSERT_EQ(mp4_read_video_profile(records.host, records.host.File(), records.list, &v),
              FF4_RET_OK);
    const uint32_t video[] = {
        v.track_id,    v.codec,           v.codec_detail,      v.attributes,
        v.max_bitrate, v.average_bitrate, v.max_frame_rate,    v.average_frame_rate,
        v.width,       v.height,          v.aspect_horizontal, v.aspect_vertical};
    const uint32_t video_fields[] = {7, fourcc("mp4v"), 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
    EXPECT_TRUE(std::equal(std::begin(video), std::end(video), video_fields));
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

}  // namespace
}  // namespace tarn
