// track_selection.h - which of a movie's tracks are its picture and its sound.
#pragma once

#include <cstdint>

#include "movie/objects/movie_info.h"

namespace tarn {

// Chooses the first enabled video track of a kind that can be copied and the first enabled sound
// track that can be decoded, both with their samples in this very file. Opens the chosen tracks
// and closes the others again. A broken track is passed over; in a camera clip (`camera`) a track
// whose role can't be read ends the choice, and other roles than the main one are passed over. A
// failed read or allocation is no property of the track: it ends the choice with its result, lest a
// clip lose its sound to a hiccup of the disk.
Mp4Result SelectTracks(Mp4ReadSession* session, bool camera, CMovieInfoType* info,
                       uint32_t* chosen);

// Why the first enabled track of a handler was not chosen.
enum class TrackFault {
    kNone,       // there is no such track
    kKind,       // its samples are of a kind that this program does not serve
    kDamaged,    // something in it can't be read
    kElsewhere,  // its samples lie in another file
    kRole,       // in a camera clip: it has another role than the main one, or none
};
// To be asked only where SelectTracks has chosen none of that handler. `code` is that of the
// samples or, of a damaged track, the atom at fault; 0 where that is not known.
TrackFault FindTrackFault(Mp4ReadSession* session, uint32_t handler, uint32_t* code);

// What of a chosen track no walk could make up for: FF4_RET_FORMAT for sync samples out of order
// and for a chunk whose description is not among `descriptions`.
Mp4Result CheckTrack(Mp4ReadSession* session, uint32_t track, size_t descriptions);

// Fills timescale, duration, sample count and edits of the open track that `track` names.
// FF4_RET_FORMAT for a media timescale of 0.
Mp4Result ReadTrackInfo(Mp4ReadSession* session, MovieTrackInfo* track);

// The sample descriptions of a chosen track with their configurations. A track without any gives
// an empty list.
Mp4Result ReadVideoDescriptions(Mp4ReadSession* session, uint32_t track,
                                std::vector<CVideoSampleDescriptionInfo>* list);
Mp4Result ReadAudioDescriptions(Mp4ReadSession* session, uint32_t track,
                                std::vector<CAudioSampleDescriptionInfo>* list);

}  // namespace tarn
