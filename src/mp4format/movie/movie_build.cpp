#include "mp4format/movie/movie_build.h"

#include <algorithm>

#include "mp4format/atom.h"
#include "mp4format/movie/track_ids.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

constexpr uint32_t kIdentity[9] = {0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000};
constexpr uint32_t kRateNormal = 0x00010000;
constexpr uint16_t kVolumeFull = 0x0100;
constexpr uint32_t kDefaultTimescale = 1000;
constexpr uint16_t kLanguageBits = 0x7FFF;

void free_track(Mp4Host* host, Mp4TrackBuild* track) {
    mp4_free_track_references(host, &track->references);
    mp4_free_edits(host, &track->edits);
    mp4_free_data_refs(host, &track->media.refs);
    mp4_free_tables(host, &track->media.tables);
    mp4_free_user_build(host, &track->user);
    mp4_free(host, track);
}

bool past_32_bits(uint64_t value) {
    return value > UINT32_MAX;
}

// Takes the bits of `from` that `mask` names.
template <typename T>
void take_bits(T* to, T from, T mask) {
    *to = static_cast<T>((*to & ~mask) | (from & mask));
}

void fill_track(const Mp4NewTrack& from, uint32_t track_id, uint32_t flags, Mp4TrackBuild* track) {
    Mp4TrackHeader& header = track->header;
    header.version_flags = flags;
    header.track_id = track_id;
    header.layer = from.layer;
    header.alternate_group = from.alternate_group;
    header.volume = from.handler_type == fourcc("soun") ? kVolumeFull : 0;
    header.width = uint32_t{from.width_integer} << 16 | from.width_fraction;
    header.height = uint32_t{from.height_integer} << 16 | from.height_fraction;
    const bool turned = std::any_of(from.matrix, from.matrix + 9, [](uint32_t v) { return v; });
    std::copy_n(turned ? from.matrix : kIdentity, 9, header.matrix);

    Mp4MediaBuild& media = track->media;
    media.header.timescale = from.timescale;
    media.header.language = from.language & kLanguageBits;
    media.handler_type = from.handler_type;
    media.media_header.type = mp4_media_header_of(from.handler_type);
}

}  // namespace

void mp4_init_movie_build(Mp4MovieBuild* movie) {
    *movie = {};
    movie->header.timescale = kDefaultTimescale;
    movie->header.rate = kRateNormal;
    movie->header.volume = kVolumeFull;
    std::copy_n(kIdentity, 9, movie->header.matrix);
}

void mp4_free_movie_build(Mp4Host* host, Mp4MovieBuild* movie) {
    mp4_free_list(&movie->tracks, [=](Mp4TrackBuild* track) { free_track(host, track); });
    mp4_free_block(host, &movie->iods);
    mp4_free_mvex(host, &movie->extends);
    mp4_free_user_build(host, &movie->user);
    *movie = {};
}

Mp4Result mp4_set_movie_fields(const Mp4WriteOptions& options, uint32_t fields,
                               const Mp4MovieHeader& header, Mp4MovieBuild* movie) {
    if (!movie || ((fields & kFieldTimescale) && header.timescale == 0)) return FF4_RET_ARGS;
    const bool narrow =
        options.version_policy == kVersion0 || options.version_policy == kVersion0Too;
    const bool wide = ((fields & kFieldCreation) && past_32_bits(header.creation_time)) ||
                      ((fields & kFieldModification) && past_32_bits(header.modification_time)) ||
                      ((fields & kFieldDuration) && past_32_bits(header.duration));
    if (narrow && wide) return FF4_RET_STATE;

    Mp4MovieHeader& to = movie->header;
    if (fields & kFieldCreation) to.creation_time = header.creation_time;
    if (fields & kFieldModification) to.modification_time = header.modification_time;
    if (fields & kFieldTimescale) to.timescale = header.timescale;
    if (fields & kFieldDuration) to.duration = header.duration;
    if (fields & kFieldRateInteger) take_bits<uint32_t>(&to.rate, header.rate, 0xFFFF0000);
    if (fields & kFieldRateFraction) take_bits<uint32_t>(&to.rate, header.rate, 0xFFFF);
    if (fields & kFieldVolumeInteger) take_bits<uint16_t>(&to.volume, header.volume, 0xFF00);
    if (fields & kFieldVolumeFraction) take_bits<uint16_t>(&to.volume, header.volume, 0xFF);
    if (fields & kFieldMatrix) std::copy_n(header.matrix, 9, to.matrix);
    if (fields & kFieldNextTrackId) to.next_track_id = header.next_track_id;
    movie->set_fields |= fields;
    return FF4_RET_OK;
}

Mp4Result mp4_add_track_build(Mp4Host* host, const Mp4NewTrack& from, Mp4MovieBuild* movie,
                              Mp4TrackBuild** out) {
    if (!host || !movie || !out || from.timescale == 0) return FF4_RET_ARGS;
    if (mp4_media_header_of(from.handler_type) == 0) return FF4_RET_INTERNAL;
    uint32_t flags = 0, track_id = from.track_id;
    FF4_TRY(mp4_track_flags(from.visibility, &flags));
    if (track_id == 0) {
        FF4_TRY(mp4_pick_track_id(*movie, &track_id));
    } else {
        FF4_TRY(mp4_check_track_id(*movie, track_id));
    }

    auto track = mp4_make<Mp4TrackBuild>(host);
    if (!track) return FF4_RET_NOMEM;
    FF4_TRY(mp4_init_tables(from.constant_size, from.field_bits, &track->media.tables));
    fill_track(from, track_id, flags, track.get());
    *out = track.get();
    mp4_append(&movie->tracks, track.release());
    ++movie->tracks.count;
    return FF4_RET_OK;
}

Mp4Result mp4_track_flags(int32_t visibility, uint32_t* flags) {
    if (!flags) return FF4_RET_ARGS;
    if (visibility == 0 || visibility == -1) {
        *flags = 0;
    } else if (visibility == 1 || visibility == 8) {
        *flags = 7;
    } else if (visibility == 2 || visibility == 6) {
        *flags = 6;
    } else {
        return FF4_RET_ARGS;
    }
    return FF4_RET_OK;
}

Mp4Result mp4_track_duration(const Mp4MovieBuild& movie, const Mp4TrackBuild& track,
                             uint64_t* duration) {
    if (!duration) return FF4_RET_ARGS;
    if (track.duration_set) {
        *duration = track.header.duration;
        return FF4_RET_OK;
    }
    if (!track.edits.head) {
        return mp4_mul_div(track.media.tables.duration, movie.header.timescale,
                           track.media.header.timescale, duration);
    }
    uint64_t sum = 0;
    for (const Mp4Edit* edit = track.edits.head; edit; edit = edit->next)
        FF4_TRY(mp4_add(sum, edit->segment_duration, &sum));
    *duration = sum;
    return FF4_RET_OK;
}

Mp4Result mp4_longest_track(const Mp4MovieBuild& movie, uint64_t* duration) {
    if (!duration) return FF4_RET_ARGS;
    *duration = 0;
    for (const Mp4TrackBuild* track = movie.tracks.head; track; track = track->next) {
        uint64_t length = 0;
        FF4_TRY(mp4_track_duration(movie, *track, &length));
        *duration = std::max(*duration, length);
    }
    return FF4_RET_OK;
}

}  // namespace tarn
