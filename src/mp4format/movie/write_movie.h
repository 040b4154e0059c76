// write_movie.h - writers of the containers of 'moov', down to the sample tables.
//
// Each notes the bytes in the `atom_size` of its record.
#pragma once

#include "mp4format/atom_writer.h"
#include "mp4format/movie/movie_build.h"

namespace tarn {

// A track whose chunks were added in part is FF4_RET_STATE.
Mp4Result mp4_write_moov(Mp4Sink& sink, Mp4MovieBuild* movie);
Mp4Result mp4_write_trak(Mp4Sink& sink, const Mp4MovieBuild& movie, Mp4TrackBuild* track);
Mp4Result mp4_write_mdia(Mp4Sink& sink, Mp4MediaBuild* media);

}  // namespace tarn
