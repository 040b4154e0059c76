#include "movie/engine/movie_file.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "movie/engine/tracks.h"
#include "mp4format/atom_tree.h"
#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kReadAhead = 1 << 16;      // bytes
constexpr uint64_t kMostReadAhead = 1 << 13;  // a larger sample is worth a read of its own

}  // namespace

MovieCode MovieFile::Open(const std::string& path) {
    MOVIE_TRY(OpenFile(path));
    return Opened(movie_code(mp4_open_read(m_host, File(), {0, 50, 0}, &m_session, &m_flags)));
}

MovieCode MovieFile::OpenFile(const std::string& path) {
    Close();
    m_path = path;
    if (const int error = m_file.Open(path, XpFile::Mode::kRead)) {
        m_reason = SystemReason(ReasonCode::kCantOpen, ReasonSide::kSource, path, error);
        return kMovieSystem;
    }
    return Opened(MakeHost());
}

MovieCode MovieFile::MakeHost() {
    Mp4HostCallbacks callbacks{};
    mp4_init_file_callbacks(&callbacks);
    callbacks.userData = &m_file;
    MOVIE_TRY(mp4_create_host(callbacks, &m_host));
    return movie_code(mp4_file_size(m_host, File(), &m_size));
}

// Keeps the reason of a step of opening, and closes after a failure.
MovieCode MovieFile::Opened(MovieCode code) {
    m_reason = code == kMovieOk ? WhyNoMovie() : ReasonFor(code);
    if (code == kMovieOk && m_reason.SystemError() != 0) code = kMovieSystem;
    if (code != kMovieOk) Close();
    return code;
}

void MovieFile::Close() {
    if (m_session) static_cast<void>(mp4_close_read(m_host, std::exchange(m_session, nullptr)));
    mp4_free_host(std::exchange(m_host, nullptr));
    m_file.Close();
    m_ahead = {};
    m_readEnd = UINT64_MAX;
    m_flags = 0;
}

MovieCode MovieFile::ReadBytes(uint64_t offset, uint64_t size, std::vector<uint8_t>* bytes) {
    if (offset > m_size || size > m_size - offset) return movie_code(FF4_RET_FORMAT);
    try {
        bytes->resize(size);
    } catch (const std::bad_alloc&) {
        return movie_code(FF4_RET_NOMEM);
    }
    if (size == 0) return kMovieOk;
    if (ReadAhead(offset, size)) {
        std::memcpy(bytes->data(), m_ahead.data() + (offset - m_aheadOffset), size);
        return kMovieOk;
    }
    uint64_t done = 0;
    const int error = m_file.ReadAt(offset, bytes->data(), size, &done);
    return error == 0 && done == size ? kMovieOk : kMovieSystem;
}

// Whether the bytes are among those read ahead, which they are from the second of a row on. A place
// after them that can't be read is no failure yet.
bool MovieFile::ReadAhead(uint64_t offset, uint64_t size) {
    const bool follows = offset == m_readEnd;
    m_readEnd = offset + size;
    const auto held = [&] {
        return offset >= m_aheadOffset && m_readEnd - m_aheadOffset <= m_ahead.size();
    };
    if (held()) return true;
    if (!follows || size > kMostReadAhead) return false;
    try {
        m_ahead.resize(std::min(kReadAhead, m_size - offset));
    } catch (const std::bad_alloc&) {
        return false;
    }
    uint64_t done = 0;
    m_aheadOffset = offset;
    const int error = m_file.ReadAt(offset, m_ahead.data(), m_ahead.size(), &done);
    m_ahead.resize(error == 0 ? done : 0);
    return held();
}

// Why the file is no movie, as far as its beginning and its atoms tell.
Reason MovieFile::WhyNoMovie() {
    const auto why = [this](ReasonCode code) {
        return Reason{code, ReasonSide::kSource, m_path, {}};
    };
    if (m_size == 0) return why(ReasonCode::kEmptyFile);
    Mp4AtomInfo first{};
    const Mp4Result read = mp4_read_atom_header(m_host, File(), 0, m_size, &first);
    if (read == FF4_RET_FILE && m_file.LastError() != 0) return ReasonFor(movie_code(read));
    if (read != FF4_RET_OK || !mp4_is_top_level_type(first.type))
        return why(ReasonCode::kNotAMovie);
    if (m_session && (m_flags & kFileMovie) == 0) return why(ReasonCode::kNoMovieHeader);
    return {};
}

// Whose atom is damaged: that of the track which was asked last.
ReasonCode MovieFile::DamageCode() const {
    const Mp4TrackIndex* track =
        m_session ? mp4_find_track_index(m_session, m_session->asked_track) : nullptr;
    if (track && track->facts->handler_type == fourcc("vide"))
        return ReasonCode::kDamagedPictureAtom;
    if (track && track->facts->handler_type == fourcc("soun")) return ReasonCode::kDamagedSoundAtom;
    return ReasonCode::kDamagedAtom;
}

Reason MovieFile::ReasonFor(MovieCode code) {
    const bool of_reading = code == kMovieSystem || code == movie_code(FF4_RET_FILE);
    if (of_reading && m_file.LastError() != 0)
        return MovieReason(kMovieSystem, ReasonSide::kSource, m_path, m_file.LastError());
    const bool of_the_file = code == kMovieNoTrack || code == movie_code(FF4_RET_FILE) ||
                             code == movie_code(FF4_RET_NOTFOUND) ||
                             code == movie_code(FF4_RET_FORMAT);
    if (of_the_file && m_host)
        if (Reason why = WhyNoMovie()) return why;
    // A movie without a usable track is damaged only where its picture or sound is.
    const ReasonCode damage = DamageCode();
    const bool damaged = code == movie_code(FF4_RET_FORMAT) ||
                         code == movie_code(FF4_RET_OVERFLOW) ||
                         (code == kMovieNoTrack && damage != ReasonCode::kDamagedAtom);
    const uint32_t atom = damaged && m_host ? mp4_fault_atom(m_host) : 0;
    if (atom != 0) return {damage, ReasonSide::kSource, m_path, {ReasonAtom{atom}}};
    return MovieReason(of_reading ? movie_code(FF4_RET_FILE) : code, ReasonSide::kSource, m_path);
}

}  // namespace tarn
