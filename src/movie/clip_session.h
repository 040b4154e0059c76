// clip_session.h - a file with a read session on it, and the choice of its tracks, for looking at
// clips that the movie objects may refuse.
#pragma once

#include <string>

#include "movie/movie_file.h"
#include "movie/session.h"

namespace tarn {

class ClipSession {
public:
    ClipSession() = default;
    ~ClipSession();
    ClipSession(const ClipSession&) = delete;
    ClipSession& operator=(const ClipSession&) = delete;

    // False when the file is no movie; `reason` then says why, for people.
    bool Open(const std::string& path, std::string* reason);
    Mp4ReadSession* get() const { return m_session; }
    uint64_t Size() const { return m_file.Size(); }

    struct Tracks {
        uint32_t video = 0, audio = 0;  // 1-based; 0: none
    };
    // The tracks that would be edited, else the first of their kind.
    Tracks ChooseTracks() const;

private:
    MovieFile m_file;
    Mp4ReadSession* m_session = nullptr;
};

}  // namespace tarn
