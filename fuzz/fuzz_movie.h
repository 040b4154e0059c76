// fuzz_movie.h - a read session on bytes in memory, and the two rules that hold for every input:
// no reader blames itself, and nothing leaks (the host sees to that).
#pragma once

#include <cstdlib>

#include "movie/engine/session.h"
#include "support/test_host.h"

namespace tarn {

// FF4_RET_INTERNAL is a fault of the engine, never of a file.
inline uint32_t Sane(Mp4Result result) {
    if (result == FF4_RET_INTERNAL) std::abort();
    return result;
}

class FuzzMovie {
public:
    explicit FuzzMovie(Bytes bytes, uint64_t memory_limit = 0) : m_host(std::move(bytes)) {
        uint32_t flags = 0;
        const Mp4OpenParams params{memory_limit, 50, 0};
        if (Sane(mp4_open_read(m_host, m_host.File(), params, &m_session, &flags)) != FF4_RET_OK)
            m_session = nullptr;
    }
    ~FuzzMovie() {
        if (m_session && mp4_close_read(m_host, m_session) != FF4_RET_OK) std::abort();
    }
    FuzzMovie(const FuzzMovie&) = delete;
    FuzzMovie& operator=(const FuzzMovie&) = delete;

    // Null when the bytes did not open.
    operator Mp4ReadSession*() { return m_session; }
    TestHost& host() { return m_host; }

private:
    TestHost m_host;
    Mp4ReadSession* m_session = nullptr;
};

}  // namespace tarn
