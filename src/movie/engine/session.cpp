#include "movie/engine/session.h"

#include <algorithm>
#include <iterator>

#include "mp4format/io.h"

namespace tarn {
namespace {

// Of a track's share of the window pool, for the runs of its fragments.
constexpr uint32_t kFragmentPercent = 50;

constexpr uint64_t kFileTypeHead = 8;  // major brand, minor version

struct SessionDeleter {
    void operator()(Mp4ReadSession* session) const {
        Mp4Host* host = session->host;
        if (session->fragments) mp4_close_fragments(session->fragments);
        mp4_free_track_caches(host, &session->caches);
        while (Mp4OpenTrack* track = session->tracks.head) {
            session->tracks.head = track->next;
            mp4_free(host, track);
        }
        mp4_free(host, session->numbered);
        mp4_free_file_index(host, &session->index);
        mp4_free(host, session);
    }
};

// Tracks are asked for by number, and there may be very many.
Mp4Result number_tracks(Mp4ReadSession* session) {
    const Mp4TrackIndexList& tracks = session->index.movie.tracks;
    if (tracks.count == 0) return FF4_RET_OK;
    auto numbered = mp4_make<const Mp4TrackIndex*>(session->host, tracks.count);
    if (!numbered) return FF4_RET_NOMEM;
    session->numbered = numbered.release();
    size_t n = 0;
    for (const Mp4TrackIndex* track = tracks.head; track; track = track->next)
        session->numbered[n++] = track;
    return FF4_RET_OK;
}

uint32_t file_flags(const Mp4FileIndex& index) {
    const struct {
        Mp4FileFlags flag;
        bool found;
    } flags[] = {
        {kFileMovieExtends, present(index.movie.extends.mehd)},
        {kFileTrackDefaults, index.movie.extends.head != nullptr},
        {kFileFragments, index.moofs.head != nullptr},
        {kFileRandomAccess, present(index.random_access.atom)},
        {kFileType, present(index.ftyp)},
        {kFileProfile, present(index.profile.atom)},
        {kFileMovie, present(index.movie.atom)},
        {kFileMovieUser, present(index.movie.user.atom)},
        {kFileLicence, present(index.lici.atom)},
        {kFileMtsd, present(index.mtsd_atom)},
        {kFileExtra, present(index.extra_atom)},
        {kFileMdri, present(index.mdri_atom)},
    };
    uint32_t bits = 0;
    for (const auto& f : flags)
        bits |= f.found ? f.flag : 0u;
    return bits;
}

}  // namespace

Mp4Result mp4_open_read(Mp4Host* host, Mp4File* file, const Mp4OpenParams& params,
                        Mp4ReadSession** session, uint32_t* flags) {
    if (!host || !file || !session || !flags) return FF4_RET_ARGS;
    FF4_TRY(mp4_set_memory_limit(host, true, params.memoryLimit, params.memoryPercent, 0));
    std::unique_ptr<Mp4ReadSession, SessionDeleter> made(mp4_make<Mp4ReadSession>(host).release());
    if (!made) return FF4_RET_NOMEM;
    made->host = host;
    made->file = file;
    made->params = params;
    FF4_TRY(mp4_file_size(host, file, &made->file_size));

    const bool all = params.parseAllFragments != 0;
    FF4_TRY(mp4_scan_file(host, file, made->file_size, {all, all}, &made->index));
    FF4_TRY(number_tracks(made.get()));
    if (made->index.movie.extends.head) {
        FF4_TRY(mp4_open_fragments(host, file, made->file_size, &made->index, &made->fragments));
        made->caches.fragmented = 1;
        made->caches.fragment_percent = kFragmentPercent;
    }
    *flags = file_flags(made->index);
    *session = made.release();
    return FF4_RET_OK;
}

Mp4Result mp4_close_read(Mp4Host* host, Mp4ReadSession* session) {
    if (!host || !session || session->host != host) return FF4_RET_ARGS;
    SessionDeleter()(session);
    return FF4_RET_OK;
}

Mp4Result mp4_get_file_type(Mp4ReadSession* session, Mp4FileType* out) {
    if (!session || !out) return FF4_RET_ARGS;
    *out = {};
    if (!present(session->index.ftyp)) return FF4_RET_NOTFOUND;
    if (session->index.ftyp.size < kFileTypeHead)
        return mp4_blame(session->host, fourcc("ftyp"), FF4_RET_FORMAT);
    uint8_t head[kFileTypeHead];
    FF4_TRY(
        mp4_read_at(session->host, session->file, session->index.ftyp.offset, head, sizeof head));
    *out = {get_be32(head), get_be32(head + 4)};
    return FF4_RET_OK;
}

Mp4Result mp4_get_compatible_brands(Mp4ReadSession* session, uint32_t first, uint32_t most,
                                    uint32_t* brands, uint32_t* count) {
    if (!session || !brands || !count || first == 0) return FF4_RET_ARGS;
    *count = 0;
    const Mp4Span& ftyp = session->index.ftyp;
    if (!present(ftyp)) return FF4_RET_NOTFOUND;
    if (ftyp.size < kFileTypeHead) return mp4_blame(session->host, fourcc("ftyp"), FF4_RET_FORMAT);
    const uint64_t listed = (ftyp.size - kFileTypeHead) / 4;
    if (first > listed) return FF4_RET_OK;
    const uint64_t n = std::min<uint64_t>(most, listed - first + 1);
    FF4_TRY(mp4_read_at(session->host, session->file,
                        ftyp.offset + kFileTypeHead + uint64_t{4} * (first - 1), brands, 4 * n));
    for (uint64_t i = 0; i < n; ++i)
        brands[i] = get_be32(reinterpret_cast<const uint8_t*>(brands + i));
    *count = static_cast<uint32_t>(n);
    return FF4_RET_OK;
}

Mp4Result mp4_get_compatible_brand(Mp4ReadSession* session, uint32_t number, uint32_t* brand) {
    uint32_t count = 0;
    FF4_TRY(mp4_get_compatible_brands(session, number, 1, brand, &count));
    return count == 0 ? FF4_RET_NOTFOUND : FF4_RET_OK;
}

Mp4Result mp4_has_compatible_brand(Mp4ReadSession* session, uint32_t brand, uint32_t* flag) {
    if (!session || !flag) return FF4_RET_ARGS;
    *flag = 0;
    uint32_t brands[256], count = 0, first = 1;
    do {
        FF4_TRY(mp4_get_compatible_brands(session, first, std::size(brands), brands, &count));
        *flag = std::find(brands, brands + count, brand) != brands + count ? 1 : 0;
        first += count;
    } while (count > 0 && *flag == 0);
    return FF4_RET_OK;
}

Mp4Result mp4_get_movie_header(Mp4ReadSession* session, Mp4MovieHeaderInfo* out) {
    if (!session || !out) return FF4_RET_ARGS;
    *out = {};
    if (!present(session->index.movie.mvhd)) return FF4_RET_NOTFOUND;
    Mp4MovieHeader header{};
    FF4_TRY(mp4_read_mvhd(session->host, session->file, session->index.movie.mvhd, &header));
    out->creation = header.creation_time;
    out->modification = header.modification_time;
    out->timescale = header.timescale;
    out->duration = header.duration;
    out->rate_integer = static_cast<uint16_t>(header.rate >> 16);
    out->rate_fraction = static_cast<uint16_t>(header.rate);
    out->volume_integer = static_cast<uint8_t>(header.volume >> 8);
    out->volume_fraction = static_cast<uint8_t>(header.volume);
    for (int i = 0; i < 9; ++i)
        out->matrix[i] = header.matrix[i];
    out->next_track_id = header.next_track_id;
    return FF4_RET_OK;
}

Mp4Result mp4_get_movie_extent(Mp4ReadSession* session, Mp4MovieExtent* out) {
    if (!session || !out) return FF4_RET_ARGS;
    *out = {};
    if (!present(session->index.movie.atom)) return FF4_RET_NOTFOUND;
    *out = {session->index.movie.atom, session->index.movie.payload};
    return FF4_RET_OK;
}

}  // namespace tarn
