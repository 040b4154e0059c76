// Where the parts of a new file lie: what comes before the media, the media, the movie.
#include "movie/engine/write_session.h"
#include "mp4format/atoms/file_type.h"
#include "mp4format/io.h"
#include "mp4format/movie/write_movie.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

constexpr uint64_t kMostHeader = 16;

Mp4Sink sink_at(const Mp4WriteSession& s, uint64_t position) {
    return {s.host, s.options, s.file, position};
}

// 'ftyp' and the profile records.
Mp4Result write_head(const Mp4WriteSession& s, Mp4Sink& sink) {
    if (s.brands) {
        const Mp4FileTypeBuild type{s.major_brand, s.minor_version, s.brands, s.brand_count};
        FF4_TRY(mp4_write_ftyp(sink, type));
    }
    return mp4_write_prof(sink, s.profile);
}

Mp4Result write_mdat_header(Mp4Sink& sink, uint64_t media_bytes) {
    return mp4_write_atom_header(sink.host, sink.options, sink.file, sink.position, media_bytes,
                                 fourcc("mdat"), nullptr, &sink.position);
}

// The header of so much media, 8 or 16 bytes.
Mp4Result mdat_header(const Mp4WriteSession& s, uint64_t media_bytes, uint64_t* size) {
    uint64_t whole = 0;
    FF4_TRY(mp4_atom_total_size(s.host, s.options, media_bytes, &whole));
    *size = whole - media_bytes;
    return FF4_RET_OK;
}

// Fills the file from `free_offset` to the media: a 'free' atom where there is one, the header of
// 'mdat' and maybe a few bytes of its own.
struct Filling {
    uint64_t free_offset, free_size;
    uint64_t mdat_payload;
    uint64_t filler;  // zeros between the header and the media
};

// FF4_RET_OVERFLOW when there is no room for the header after `front`.
Mp4Result plan_filling(const Mp4WriteSession& s, uint64_t front, uint64_t media_bytes,
                       Filling* out) {
    uint64_t header = 0, least_free = 0, header_with_filler = 0;
    FF4_TRY(mdat_header(s, media_bytes, &header));
    FF4_TRY(mp4_atom_total_size(s.host, s.options, 0, &least_free));
    if (front > s.data_offset || header > s.data_offset - front) return FF4_RET_OVERFLOW;

    const uint64_t gap = s.data_offset - header - front;
    if (gap == 0 || gap >= least_free) {
        *out = {front, gap, media_bytes, 0};
        return FF4_RET_OK;
    }
    FF4_TRY(mdat_header(s, media_bytes + gap, &header_with_filler));
    if (header_with_filler != header) return FF4_RET_OVERFLOW;
    *out = {front, 0, media_bytes + gap, gap};
    return FF4_RET_OK;
}

Mp4Result write_filling(const Mp4WriteSession& s, const Filling& filling) {
    constexpr uint8_t kZeros[kMostHeader] = {};
    Mp4Sink sink = sink_at(s, filling.free_offset);
    if (filling.free_size > 0) FF4_TRY(mp4_write_free(sink, filling.free_size));
    FF4_TRY(write_mdat_header(sink, filling.mdat_payload));
    return mp4_put(sink, kZeros, filling.filler);
}

// The movie goes before the media where the layout asks for that and there is room.
Mp4Result plan_file(const Mp4WriteSession& s, uint64_t movie_size, uint64_t media_bytes,
                    Filling* filling, uint64_t* movie_offset) {
    if (s.layout == kMovieBeforeMedia) {
        *movie_offset = s.head_size;
        const Mp4Result fits = plan_filling(s, s.head_size + movie_size, media_bytes, filling);
        if (fits != FF4_RET_OVERFLOW) return fits;
    }
    FF4_TRY(mp4_add(s.data_offset, media_bytes, movie_offset));
    return plan_filling(s, s.head_size, media_bytes, filling);
}

}  // namespace

uint64_t mp4_reserved_front(uint64_t media_bytes) {
    constexpr uint64_t kStep = 0x10000;
    if (media_bytes / 1024 + 16 <= kStep - 1) return kStep;
    return ((media_bytes >> 10) + kStep + 16) & ~(kStep - 1);
}

Mp4Result mp4_begin_media(Mp4WriteSession* session, Mp4Layout layout, uint64_t most_media_bytes,
                          uint64_t* data_offset) {
    if (!session || !data_offset) return FF4_RET_ARGS;
    if (layout != kMovieBeforeMedia && layout != kMovieAfterMedia) return FF4_RET_ARGS;
    if (!session->has_movie || session->has_media) return FF4_RET_STATE;
    Mp4WriteSession& s = *session;
    Mp4Sink sink = sink_at(s, 0), counted = mp4_counting(sink);
    uint64_t header = 0;
    FF4_TRY(write_head(s, counted));
    const uint64_t head = counted.position;
    FF4_TRY(mdat_header(s, most_media_bytes, &header));
    const bool movie_first = layout == kMovieBeforeMedia;
    const uint64_t front = movie_first ? mp4_reserved_front(most_media_bytes) : head + header;
    if (movie_first && head + 2 * kMostHeader > front) return FF4_RET_OVERFLOW;
    if (!movie_first) {
        FF4_TRY(write_head(s, sink));
        FF4_TRY(write_mdat_header(sink, most_media_bytes));
    }
    FF4_TRY(mp4_seek(s.host, s.file, front));
    s.layout = layout;
    s.head_size = head;
    s.data_offset = *data_offset = front;
    s.has_media = true;
    return FF4_RET_OK;
}

Mp4Result mp4_finish_write(Mp4WriteSession* session, uint64_t media_bytes, uint64_t* file_size) {
    if (!session || !file_size) return FF4_RET_ARGS;
    if (!session->has_media || session->finished) return FF4_RET_STATE;
    Mp4WriteSession& s = *session;
    uint64_t movie_size = 0, movie_offset = 0, media_end = 0;
    FF4_TRY(mp4_get_movie_size(session, &movie_size));
    FF4_TRY(mp4_add(s.data_offset, media_bytes, &media_end));
    Filling filling{};
    FF4_TRY(plan_file(s, movie_size, media_bytes, &filling, &movie_offset));

    Mp4Sink head = sink_at(s, 0), movie = sink_at(s, movie_offset);
    FF4_TRY(write_head(s, head));
    FF4_TRY(mp4_write_moov(movie, &s.movie));
    FF4_TRY(write_filling(s, filling));
    s.finished = true;
    *file_size = movie_offset < s.data_offset ? media_end : media_end + movie_size;
    return FF4_RET_OK;
}

}  // namespace tarn
