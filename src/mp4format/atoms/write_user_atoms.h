// write_user_atoms.h - writers of the camera's own atoms: user metadata of the movie and of each
// track ('USMT'), and the profile records at the top of the file ('PROF').
#pragma once

#include "mp4format/atom_writer.h"
#include "mp4format/atoms/profile.h"
#include "mp4format/movie/movie_build.h"

namespace tarn {

// 'uuid' 'USMT' with an 'MTDT' and an 'MTDF', each where it has items; nothing without any.
Mp4Result mp4_write_usmt(Mp4Sink& sink, const Mp4UserBuild& user);
// One list, 'MTDT' or 'MTDF'. Items must be loaded; an item or a count past 16 bits is
// FF4_RET_OVERFLOW.
Mp4Result mp4_write_meta_list(Mp4Sink& sink, uint32_t type, const Mp4MetaList& list);

// The records of 'PROF', each where it is present.
struct Mp4ProfileBuild {
    bool has_file, has_audio, has_video;
    uint32_t file_profile;  // bit 28: the file holds fragments
    Mp4AudioProfile audio;
    Mp4VideoProfile video;
};
// Nothing without any record.
Mp4Result mp4_write_prof(Mp4Sink& sink, const Mp4ProfileBuild& profile);

}  // namespace tarn
