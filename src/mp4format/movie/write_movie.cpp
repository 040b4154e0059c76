#include "mp4format/movie/write_movie.h"

#include "mp4format/atoms/object_descriptors.h"
#include "mp4format/movie/track_ids.h"

namespace tarn {
namespace {

// An atom around what body(Mp4Sink&) writes, and its size.
template <typename Body>
Mp4Result write_measured(Mp4Sink& sink, uint32_t type, Body body, uint64_t* atom_size) {
    const uint64_t start = sink.position;
    FF4_TRY(mp4_write_container(sink, type, body));
    *atom_size = sink.position - start;
    return FF4_RET_OK;
}

Mp4Result write_minf(Mp4Sink& sink, Mp4MediaBuild* media) {
    const auto dref = [&](Mp4Sink& to) { return mp4_write_dref(to, media->refs); };
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_write_media_header(to, media->media_header));
        FF4_TRY(mp4_write_container(to, fourcc("dinf"), dref));
        return mp4_write_stbl(to, &media->tables);
    };
    return mp4_write_container(sink, fourcc("minf"), body);
}

// 'mvhd' with what the caller left open.
Mp4Result finished_movie_header(const Mp4MovieBuild& movie, Mp4MovieHeader* header) {
    *header = movie.header;
    if (!(movie.set_fields & kFieldNextTrackId)) header->next_track_id = mp4_next_track_id(movie);
    if (movie.set_fields & kFieldDuration) return FF4_RET_OK;
    return mp4_longest_track(movie, &header->duration);
}

}  // namespace

Mp4Result mp4_write_moov(Mp4Sink& sink, Mp4MovieBuild* movie) {
    if (!movie) return FF4_RET_ARGS;
    Mp4MovieHeader header{};
    FF4_TRY(finished_movie_header(*movie, &header));
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_write_mvhd(to, header));
        if (movie->iods.size > 0) FF4_TRY(mp4_write_iods(to, movie->iods));
        for (Mp4TrackBuild* track = movie->tracks.head; track; track = track->next)
            FF4_TRY(mp4_write_trak(to, *movie, track));
        if (movie->extends.head) FF4_TRY(mp4_write_mvex(to, movie->extends));
        return mp4_write_usmt(to, movie->user);
    };
    return write_measured(sink, fourcc("moov"), body, &movie->atom_size);
}

Mp4Result mp4_write_trak(Mp4Sink& sink, const Mp4MovieBuild& movie, Mp4TrackBuild* track) {
    if (!track) return FF4_RET_ARGS;
    Mp4TrackHeader header = track->header;
    FF4_TRY(mp4_track_duration(movie, *track, &header.duration));
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_write_tkhd(to, header));
        FF4_TRY(mp4_write_tref(to, track->references));
        FF4_TRY(mp4_write_edts(to, track->edits));
        FF4_TRY(mp4_write_mdia(to, &track->media));
        return mp4_write_usmt(to, track->user);
    };
    return write_measured(sink, fourcc("trak"), body, &track->atom_size);
}

Mp4Result mp4_write_mdia(Mp4Sink& sink, Mp4MediaBuild* media) {
    if (!media) return FF4_RET_ARGS;
    Mp4MediaHeader header = media->header;
    header.duration = media->tables.duration;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_write_mdhd(to, header));
        FF4_TRY(mp4_write_hdlr(to, media->handler_type));
        return write_minf(to, media);
    };
    return write_measured(sink, fourcc("mdia"), body, &media->atom_size);
}

}  // namespace tarn
