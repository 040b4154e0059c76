// clip_session.h - a file with a read session on it, and the choice of its tracks, for looking at
// clips that the movie objects may refuse.
#pragma once

#include <string>
#include <vector>

#include "movie/engine/movie_file.h"
#include "movie/engine/session.h"
#include "movie/movie_codes.h"

namespace tarn {

class ClipSession {
public:
    // Why the file can't be looked at: it is no movie, or one without a header.
    [[nodiscard]] Reason Open(const std::string& path);
    // The reason for a code that the session has answered.
    Reason ReasonFor(MovieCode code) { return m_file.ReasonFor(code); }
    Mp4ReadSession* get() const { return m_file.Session(); }
    uint64_t Size() const { return m_file.Size(); }
    uint64_t GetDurationMs() const;  // 0 where the movie does not say
    // The same, but up to the last whole sample of a file that ends early.
    Mp4Result GetWholeDurationMs(uint64_t* ms) const;
    // Bytes of a sample or a run of them. FF4_RET_FORMAT when they reach past the end of the file,
    // which is looked at before any memory is taken.
    MovieCode ReadBytes(uint64_t offset, uint64_t size, std::vector<uint8_t>* bytes) {
        return m_file.ReadBytes(offset, size, bytes);
    }

    struct Tracks {
        uint32_t video = 0, audio = 0;  // 1-based; 0: none
    };
    // The tracks that would be edited, else the first of their kind.
    Tracks ChooseTracks() const;

private:
    MovieFile m_file;
};

}  // namespace tarn
