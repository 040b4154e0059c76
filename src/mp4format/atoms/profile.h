// profile.h - the camera's profile records in the top-level 'PROF' list: what the file and its
// picture and sound are limited to.
#pragma once

#include <cstdint>

#include "mp4format/atoms/user_atoms.h"

namespace tarn {

struct Mp4ProfileCounts {
    uint32_t fprf, vprf, aprf, bprf, pprf;
};

// 'VPRF': version and flags, then these fields in this order.
struct Mp4VideoProfile {
    uint32_t track_id;
    uint32_t codec;  // 'avc1', 'mp4v'
    uint32_t codec_detail;
    uint32_t attributes;
    uint32_t max_bitrate;                         // kbit/s
    uint32_t average_bitrate;                     // kbit/s
    uint32_t max_frame_rate;                      // 16.16
    uint32_t average_frame_rate;                  // 16.16
    uint16_t width, height;                       // pixels
    uint16_t aspect_horizontal, aspect_vertical;  // of a pixel
};

// 'APRF': the same for sound.
struct Mp4AudioProfile {
    uint32_t track_id;
    uint32_t codec;  // 'mp4a', 'twos'
    uint32_t codec_detail;
    uint32_t attributes;
    uint32_t max_bitrate;      // kbit/s
    uint32_t average_bitrate;  // kbit/s
    uint32_t sampling_rate;    // Hz
    uint32_t channels;
};

// How many records of each kind there are. FF4_RET_NOTFOUND for a list that was not in the file.
Mp4Result mp4_count_profiles(const Mp4UserAtomList& list, Mp4ProfileCounts* counts);

// The first record of its kind. FF4_RET_NOTFOUND without one, FF4_RET_FORMAT for one that is too
// short or, of the file record, has a version.
Mp4Result mp4_read_file_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                uint32_t* profile);
Mp4Result mp4_read_video_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                 Mp4VideoProfile* profile);
Mp4Result mp4_read_audio_profile(Mp4Host* host, Mp4File* file, const Mp4UserAtomList& list,
                                 Mp4AudioProfile* profile);

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
