#include "base/reason.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace tarn {
namespace {

using enum ReasonCode;
constexpr auto kSource = ReasonSide::kSource, kTarget = ReasonSide::kTarget,
               kDevice = ReasonSide::kDevice;

TEST(Reason, ReadsAsASentence) {
    const std::pair<Reason, std::string> cases[] = {
        {{}, ""},
        {{kEmptyFile, kSource, "", {}}, "the file is empty"},
        {{kTooLittleRoom, kTarget, "out.mp4", {uint64_t{700}, uint64_t{12}}},
         "not enough room on the disk: 700 MB are needed, 12 MB are free"},
        {{kCantOpen, kSource, "clip", {ReasonError{ENOENT}}},
         "can't be opened: No such file or directory"},
        {{kDamagedSoundAtom, kSource, "", {ReasonAtom{0x7374737A}}},
         "the file is damaged: the sound's sample sizes (stsz)"},
        {{kDamagedAtom, kSource, "", {ReasonAtom{0x75756964}}},
         "the file is damaged: camera's records (uuid)"},
        {{kInPastEndAt, kSource, "", {ReasonTime{3661001}, ReasonTime{59999}}},
         "the in point 1:01:01.001 is not before the end, which is at 0:00:59.999"},
        {{kPlayback, kDevice, "", {"100 %1 full"}}, "the player says: 100 %1 full"},
        {{kNoSuchTrack, kSource, "", {}}, "there is no track "},
    };
    for (const auto& [reason, text] : cases) {
        EXPECT_EQ(ReasonText(reason), text);
        EXPECT_EQ(static_cast<bool>(reason), !text.empty());
    }
}

TEST(Reason, TellsWhatUsersCanMendFromTheSystemsError) {
    const std::tuple<ReasonSide, int, ReasonCode> cases[] = {
        {kTarget, EACCES, kCantWrite},   {kTarget, EEXIST, kExists},
        {kSource, EEXIST, kCantWrite},   {kTarget, ENOSPC, kNoRoom},
        {kTarget, EFBIG, kNoRoom},       {kSource, ENOSPC, kCantWrite},
        {kSource, ESPIPE, kNotAFile},    {kTarget, ESPIPE, kCantWrite},
        {kSource, ENOMEM, kOutOfMemory},
    };
    for (const auto& [side, error, code] : cases) {
        const Reason reason = SystemReason(kCantWrite, side, "clip.mp4", error);
        EXPECT_EQ(reason.code, code) << error << ReasonSideName(side);
        EXPECT_EQ(reason.side, side);
        EXPECT_EQ(reason.file, "clip.mp4");
        EXPECT_EQ(reason.SystemError(), error);
    }
    EXPECT_EQ((Reason{kDamagedSample, kSource, "", {uint64_t{7}}}.SystemError()), 0);
}

}  // namespace
}  // namespace tarn
