#include "mp4format/movie/file_index.h"

#include <utility>

#include "mp4format/atoms/handler.h"
#include "mp4format/atoms/movie_headers.h"

namespace tarn {
namespace {

struct Walker {
    Mp4Host* host;
    Mp4File* file;
};

constexpr Mp4TrackFacts kNoFacts{};

bool says_something(const Mp4TrackFacts& facts) {
    return present(facts.tkhd) || present(facts.mdhd) || present(facts.hdlr) ||
           present(facts.user.atom);
}

// The facts of a track while it is read.
struct FactsOwner {
    ~FactsOwner() { mp4_free_user_atoms(host, &facts.user); }
    Mp4Host* host;
    Mp4TrackFacts facts{};
};

void free_track(Mp4Host* host, Mp4TrackIndex* track) {
    if (track->facts != &kNoFacts) {
        auto* facts = const_cast<Mp4TrackFacts*>(track->facts);
        mp4_free_user_atoms(host, &facts->user);
        mp4_free(host, facts);
    }
    mp4_free(host, track);
}

// A 'uuid' of moov or trak: the first user metadata list is kept.
Mp4Result read_user_uuid(const Walker& w, const Mp4AtomInfo& atom, Mp4UserAtomList* user) {
    Mp4ExtendedType type{};
    FF4_TRY(mp4_read_extended_type(w.host, w.file, atom.payload, &type));
    if (!type.family || type.words[0] != fourcc("USMT") || present(user->atom)) return FF4_RET_OK;
    user->atom = atom.atom;
    user->payload = type.rest;
    return mp4_read_user_atoms(w.host, w.file, type.rest, kNoAtomLimit, user);
}

// Reads the first header of a kind: `at` takes the place of its payload, keep(header) the rest.
template <typename Header, typename Keep>
Mp4Result read_first(const Walker& w, const Mp4Span& payload, Mp4Span* at,
                     Mp4Result (*read)(Mp4Host*, Mp4File*, const Mp4Span&, Header*), Keep keep) {
    if (present(*at)) return FF4_RET_OK;
    Header header{};
    FF4_TRY(read(w.host, w.file, payload, &header));
    *at = payload;
    keep(header);
    return FF4_RET_OK;
}

Mp4Result walk_mdia(const Walker& w, const Mp4Span& mdia, Mp4TrackFacts* track) {
    return mp4_walk(w.host, w.file, mdia, [&](const Mp4AtomInfo& atom) {
        switch (atom.type) {
            case fourcc("hdlr"):
                return read_first(w, atom.payload, &track->hdlr, mp4_read_hdlr,
                                  [=](const Mp4Handler& handler) {
                                      track->handler_type = handler.handler_type;
                                      track->handler_name = handler.name;
                                  });
            case fourcc("mdhd"):
                return read_first(w, atom.payload, &track->mdhd, mp4_read_mdhd,
                                  [=](const Mp4MediaHeader& header) {
                                      track->timescale = header.timescale;
                                      track->duration = header.duration;
                                  });
            default:
                return FF4_RET_OK;
        }
    });
}

Mp4Result walk_trak(const Walker& w, const Mp4Span& trak, Mp4TrackFacts* track) {
    Mp4Span mdia{};
    return mp4_walk(w.host, w.file, trak, [&](const Mp4AtomInfo& atom) {
        switch (atom.type) {
            case fourcc("tkhd"):
                return read_first(
                    w, atom.payload, &track->tkhd, mp4_read_tkhd,
                    [=](const Mp4TrackHeader& header) { track->track_id = header.track_id; });
            case fourcc("uuid"):
                return read_user_uuid(w, atom, &track->user);
            case fourcc("mdia"):
                return mp4_is_first(atom, &mdia) ? walk_mdia(w, atom.payload, track) : FF4_RET_OK;
            default:
                return FF4_RET_OK;
        }
    });
}

Mp4Result read_trak(const Walker& w, const Mp4AtomInfo& atom, Mp4MovieIndex* movie) {
    FactsOwner read{w.host};
    FF4_TRY(walk_trak(w, atom.payload, &read.facts));
    HostPtr<Mp4TrackFacts> kept(nullptr, {w.host});
    if (says_something(read.facts)) {
        kept = mp4_make<Mp4TrackFacts>(w.host);
        if (!kept) return FF4_RET_NOMEM;
    }
    const Mp4TrackIndex track{atom.atom, atom.payload, kept ? kept.get() : &kNoFacts, nullptr};
    FF4_TRY(mp4_append_copy(w.host, &movie->tracks, track));
    ++movie->tracks.count;
    if (kept) *kept.release() = std::exchange(read.facts, {});
    return FF4_RET_OK;
}

Mp4Result read_iods(const Walker& w, const Mp4Span& payload, Mp4MovieIndex* movie) {
    if (present(movie->iods)) return FF4_RET_OK;
    Mp4Span descriptor{};
    FF4_TRY(mp4_read_full_header(w.host, w.file, payload, 0, &descriptor));
    movie->iods = payload;
    movie->iods_descriptor = descriptor;
    return FF4_RET_OK;
}

Mp4Result walk_moov(const Walker& w, const Mp4Span& moov, Mp4MovieIndex* movie) {
    Mp4Span mvex{};
    return mp4_walk(w.host, w.file, moov, [&](const Mp4AtomInfo& atom) {
        switch (atom.type) {
            case fourcc("mvhd"):
                return read_first(
                    w, atom.payload, &movie->mvhd, mp4_read_mvhd,
                    [=](const Mp4MovieHeader& header) { movie->timescale = header.timescale; });
            case fourcc("iods"):
                return read_iods(w, atom.payload, movie);
            case fourcc("trak"):
                return read_trak(w, atom, movie);
            case fourcc("uuid"):
                return read_user_uuid(w, atom, &movie->user);
            case fourcc("mvex"):
                if (!mp4_is_first(atom, &mvex)) return FF4_RET_OK;
                return mp4_read_mvex(w.host, w.file, atom.payload, &movie->extends);
            default:
                return FF4_RET_OK;
        }
    });
}

// The top-level list of profiles has its own head: version, flags and the number of records.
Mp4Result read_profile(const Walker& w, const Mp4AtomInfo& atom, const Mp4Span& rest,
                       Mp4UserAtomList* profile) {
    if (present(profile->atom)) return FF4_RET_OK;
    Mp4TableHeader head{};
    FF4_TRY(mp4_read_table_header(w.host, w.file, rest, UINT8_MAX, &head));
    profile->atom = atom.atom;
    profile->payload = rest;
    return mp4_read_user_atoms(w.host, w.file, head.entries, head.count, profile);
}

Mp4Result read_licence(const Walker& w, const Mp4AtomInfo& atom, const Mp4Span& rest,
                       Mp4UserAtomList* lici) {
    if (present(lici->atom)) return FF4_RET_OK;
    lici->atom = atom.atom;
    lici->payload = rest;
    return mp4_read_user_atoms(w.host, w.file, rest, kNoAtomLimit, lici);
}

void keep_first(const Mp4AtomInfo& atom, const Mp4Span& payload, Mp4Span* kept_atom,
                Mp4Span* kept_payload) {
    if (present(*kept_atom)) return;
    *kept_atom = atom.atom;
    *kept_payload = payload;
}

// 508E0CF1-2186-4CCF-AAB2-6344D2498006, the one extended type outside the family.
bool is_extra(const Mp4ExtendedType& type) {
    return type.words[0] == 0x508E0CF1 && type.words[1] == 0x21864CCF &&
           type.words[2] == 0xAAB26344 && type.words[3] == 0xD2498006;
}

Mp4Result read_top_uuid(const Walker& w, const Mp4AtomInfo& atom, Mp4FileIndex* index) {
    Mp4ExtendedType type{};
    FF4_TRY(mp4_read_extended_type(w.host, w.file, atom.payload, &type));
    if (is_extra(type)) keep_first(atom, type.rest, &index->extra_atom, &index->extra_payload);
    if (!type.family) return FF4_RET_OK;
    switch (type.words[0]) {
        case fourcc("PROF"):
            return read_profile(w, atom, type.rest, &index->profile);
        case fourcc("LICI"):
            return read_licence(w, atom, type.rest, &index->lici);
        case fourcc("MTSD"):
            keep_first(atom, type.rest, &index->mtsd_atom, &index->mtsd_payload);
            return FF4_RET_OK;
        default:
            return FF4_RET_OK;
    }
}

Mp4Result keep_moof(const Walker& w, const Mp4AtomInfo& atom, bool keep_all, Mp4MoofList* moofs) {
    if (moofs->head && !keep_all) return FF4_RET_OK;
    return mp4_append_copy(w.host, moofs, Mp4MoofSpan{atom.atom, nullptr});
}

Mp4Result read_moov(const Walker& w, const Mp4AtomInfo& atom, Mp4MovieIndex* movie) {
    if (present(movie->atom)) return FF4_RET_OK;
    FF4_TRY(walk_moov(w, atom.payload, movie));
    movie->atom = atom.atom;
    movie->payload = atom.payload;
    return FF4_RET_OK;
}

Mp4Result read_top_atom(const Walker& w, const Mp4AtomInfo& atom, const Mp4ScanOptions& options,
                        Mp4FileIndex* index) {
    switch (atom.type) {
        case fourcc("ftyp"):
            if (!present(index->ftyp)) index->ftyp = atom.payload;
            return FF4_RET_OK;
        case fourcc("moov"):
            return read_moov(w, atom, &index->movie);
        case fourcc("moof"):
            return keep_moof(w, atom, options.keep_all_moof, &index->moofs);
        case fourcc("mfra"):
            if (present(index->random_access.atom)) return FF4_RET_OK;
            return mp4_read_mfra(w.host, w.file, atom, &index->random_access);
        case fourcc("mdri"):
            keep_first(atom, atom.payload, &index->mdri_atom, &index->mdri_payload);
            return FF4_RET_OK;
        case fourcc("uuid"):
            return read_top_uuid(w, atom, index);
        default:
            return FF4_RET_OK;
    }
}

}  // namespace

Mp4Result mp4_scan_file(Mp4Host* host, Mp4File* file, uint64_t file_size,
                        const Mp4ScanOptions& options, Mp4FileIndex* index) {
    if (!host || !file || !index) return FF4_RET_ARGS;
    const Walker w{host, file};
    Mp4Span left = {0, file_size};
    while (left.size >= kAtomHeader) {
        Mp4AtomInfo atom{};
        FF4_TRY(mp4_read_atom_header(host, file, left.offset, left.size, &atom));
        FF4_TRY(mp4_blame(host, atom.type, read_top_atom(w, atom, options, index)));
        if (!options.scan_past_moof && index->moofs.head) break;
        left.offset += atom.atom.size;
        left.size -= atom.atom.size;
    }
    if (index->moofs.head && !present(index->random_access.atom)) {
        // A help for seeking only: a broken one is as good as none.
        static_cast<void>(mp4_find_mfra(host, file, file_size, &index->random_access));
        mp4_clear_fault(host);
    }
    return FF4_RET_OK;
}

void mp4_free_file_index(Mp4Host* host, Mp4FileIndex* index) {
    mp4_free_user_atoms(host, &index->profile);
    mp4_free_user_atoms(host, &index->lici);
    mp4_free_user_atoms(host, &index->movie.user);
    mp4_free_list(&index->movie.tracks, [=](Mp4TrackIndex* track) { free_track(host, track); });
    mp4_free_list(host, &index->moofs);
    mp4_free_mvex(host, &index->movie.extends);
    mp4_free_mfra(host, &index->random_access);
    *index = {};
}

}  // namespace tarn
