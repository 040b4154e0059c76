// The containers of 'moov', down to the sample tables.
#include "mp4format/atoms/write_atoms.h"
#include "mp4format/atoms/write_user_atoms.h"
#include "mp4format/fragments/write_fragments.h"
#include "mp4format/movie/track_ids.h"

namespace tarn {
namespace {

Mp4Result write_media_header(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                             uint64_t offset, const Mp4MediaHeaderAtom& header, uint64_t* total) {
    switch (header.type) {
        case fourcc("vmhd"):
            return mp4_write_vmhd(host, options, file, offset, header, total);
        case fourcc("smhd"):
            return mp4_write_smhd(host, options, file, offset, header, total);
        default:
            return mp4_write_nmhd(host, options, file, offset, header, total);
    }
}

Mp4Result write_dinf(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     const Mp4DataRefs& refs, uint64_t* total) {
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        return mp4_write_dref(host, options, to, at + *size, refs, size);
    };
    return mp4_write_container(host, options, file, offset, fourcc("dinf"), body, total);
}

Mp4Result write_minf(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     Mp4MediaBuild* media, uint64_t* total) {
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(write_media_header(host, options, to, at + *size, media->media_header, size));
        FF4_TRY(write_dinf(host, options, to, at + *size, media->refs, size));
        return mp4_write_stbl(host, options, to, at + *size, &media->tables, size);
    };
    return mp4_write_container(host, options, file, offset, fourcc("minf"), body, total);
}

// 'mvhd' with what the caller left open.
Mp4Result finished_movie_header(const Mp4MovieBuild& movie, Mp4MovieHeader* header) {
    *header = movie.header;
    if (!(movie.set_fields & kFieldNextTrackId)) header->next_track_id = mp4_next_track_id(movie);
    if (movie.set_fields & kFieldDuration) return FF4_RET_OK;
    return mp4_longest_track(movie, &header->duration);
}

}  // namespace

Mp4Result mp4_write_moov(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, Mp4MovieBuild* movie, uint64_t* total) {
    if (!host || !movie || !total) return FF4_RET_ARGS;
    Mp4MovieHeader header{};
    FF4_TRY(finished_movie_header(*movie, &header));
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_write_mvhd(host, options, to, at + *size, header, size));
        if (movie->iods.size > 0)
            FF4_TRY(mp4_write_iods(host, options, to, at + *size, movie->iods, size));
        for (Mp4TrackBuild* track = movie->tracks.head; track; track = track->next)
            FF4_TRY(mp4_write_trak(host, options, to, at + *size, *movie, track, size));
        if (movie->has_extends)
            FF4_TRY(mp4_write_mvex(host, options, to, at + *size, movie->extends, size));
        return mp4_write_usmt(host, options, to, at + *size, movie->user, size);
    };
    uint64_t size = 0;
    FF4_TRY(mp4_write_container(host, options, file, offset, fourcc("moov"), body, &size));
    movie->atom_size = size;
    *total += size;
    return FF4_RET_OK;
}

Mp4Result mp4_write_trak(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4MovieBuild& movie, Mp4TrackBuild* track,
                         uint64_t* total) {
    if (!host || !track || !total) return FF4_RET_ARGS;
    Mp4TrackHeader header = track->header;
    FF4_TRY(mp4_track_duration(movie, *track, &header.duration));
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_write_tkhd(host, options, to, at + *size, header, size));
        FF4_TRY(mp4_write_tref(host, options, to, at + *size, track->references, size));
        FF4_TRY(mp4_write_edts(host, options, to, at + *size, track->edits, size));
        FF4_TRY(mp4_write_mdia(host, options, to, at + *size, &track->media, size));
        return mp4_write_usmt(host, options, to, at + *size, track->user, size);
    };
    uint64_t size = 0;
    FF4_TRY(mp4_write_container(host, options, file, offset, fourcc("trak"), body, &size));
    track->atom_size = size;
    *total += size;
    return FF4_RET_OK;
}

Mp4Result mp4_write_mdia(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, Mp4MediaBuild* media, uint64_t* total) {
    if (!host || !media || !total) return FF4_RET_ARGS;
    Mp4MediaHeader header = media->header;
    header.duration = media->tables.duration;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_write_mdhd(host, options, to, at + *size, header, size));
        FF4_TRY(mp4_write_hdlr(host, options, to, at + *size, media->handler_type, size));
        return write_minf(host, options, to, at + *size, media, size);
    };
    uint64_t size = 0;
    FF4_TRY(mp4_write_container(host, options, file, offset, fourcc("mdia"), body, &size));
    media->atom_size = size;
    *total += size;
    return FF4_RET_OK;
}

Mp4Result mp4_write_stbl(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, Mp4TableBuild* tables, uint64_t* total) {
    if (!host || !tables || !total) return FF4_RET_ARGS;
    if (tables->broken) return FF4_RET_STATE;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_write_stsd(host, options, to, at + *size, tables->entries, size));
        FF4_TRY(mp4_write_stts(host, options, to, at + *size, *tables, size));
        if (tables->has_compositions)
            FF4_TRY(mp4_write_ctts(host, options, to, at + *size, *tables, size));
        FF4_TRY(mp4_write_stsc(host, options, to, at + *size, *tables, size));
        FF4_TRY(mp4_write_sizes(host, options, to, at + *size, *tables, size));
        FF4_TRY(mp4_write_chunk_offsets(host, options, to, at + *size, *tables, size));
        return tables->has_syncs ? mp4_write_stss(host, options, to, at + *size, *tables, size)
                                 : FF4_RET_OK;
    };
    uint64_t size = 0;
    FF4_TRY(mp4_write_container(host, options, file, offset, fourcc("stbl"), body, &size));
    tables->atom_size = size;
    *total += size;
    return FF4_RET_OK;
}

}  // namespace tarn
