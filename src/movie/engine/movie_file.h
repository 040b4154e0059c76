// movie_file.h - a movie file on disk with the engine on it: the one way in which clips are opened.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/reason.h"
#include "base/xp_file.h"
#include "movie/engine/session.h"
#include "movie/movie_codes.h"

namespace tarn {

// Owns the file, the host and the read session; lists made with these must be closed first. All
// reading goes through the one XpFile, so that the error of a failed read is known.
class MovieFile {
public:
    ~MovieFile() { Close(); }

    // kMovieSystem where the file can't be opened, else what the engine answers. After a failure
    // the object is closed. An empty file, or one without a movie, may open: ask GetReason.
    MovieCode Open(const std::string& path);
    // The same without a session: for a look at its atoms.
    MovieCode OpenFile(const std::string& path);
    void Close();

    Mp4Host* Host() const { return m_host; }
    Mp4File* File() { return reinterpret_cast<Mp4File*>(&m_file); }
    Mp4ReadSession* Session() const { return m_session; }
    uint32_t Flags() const { return m_flags; }  // Mp4FileFlags
    uint64_t Size() const { return m_size; }
    // Whether the file is still what was opened: same length and time of change, not removed.
    bool IsUnchanged() const { return m_file.IsUnchanged(); }
    // Bytes of a sample or a run of them. FF4_RET_FORMAT where they reach past the end of the file,
    // before any memory is taken; kMovieSystem where they can't be read.
    MovieCode ReadBytes(uint64_t offset, uint64_t size, std::vector<uint8_t>* bytes);

    // Why the file could not be opened, or why what did open is no movie.
    const Reason& GetReason() const { return m_reason; }
    // The reason for a code that the session or ReadBytes has answered, before Close: with the
    // system's error, or the atom at fault where the engine knows it.
    Reason ReasonFor(MovieCode code);

private:
    MovieCode MakeHost();
    bool ReadAhead(uint64_t offset, uint64_t size);
    MovieCode Opened(MovieCode code);
    Reason WhyNoMovie();
    ReasonCode DamageCode() const;

    XpFile m_file;
    std::string m_path;
    uint64_t m_size = 0;
    // Small samples lie by the thousand one after the other: what was read with the last of them.
    std::vector<uint8_t> m_ahead;
    uint64_t m_aheadOffset = 0;
    uint64_t m_readEnd = UINT64_MAX;  // where the last sample ends
    Mp4Host* m_host = nullptr;
    Mp4ReadSession* m_session = nullptr;
    uint32_t m_flags = 0;
    Reason m_reason;
};

}  // namespace tarn
