// fuzz_movie.h - what targets share: checks that end the run, a read session on bytes in memory,
// and the two rules that hold for every input: no reader blames itself, and nothing leaks (the host
// sees to that).
#pragma once

#include <cstdlib>

#include "movie/engine/session.h"
#include "support/test_host.h"

namespace tarn {

inline void Check(bool holds) {
    if (!holds) std::abort();
}

// FF4_RET_INTERNAL is a fault of the engine, never of a file.
inline uint32_t Sane(Mp4Result result) {
    Check(result != FF4_RET_INTERNAL);
    return result;
}

// The answer to one question, empty where there is none.
template <class Answer>
Answer Ask(auto question, auto... about) {
    Answer answer{};
    Sane(question(about..., &answer));
    return answer;
}

class FuzzMovie {
public:
    explicit FuzzMovie(Bytes bytes, uint64_t memory_limit = 0) : m_host(std::move(bytes)) {
        uint32_t flags = 0;
        const Mp4OpenParams params{memory_limit, 50, 0};
        if (Sane(mp4_open_read(m_host, m_host.File(), params, &m_session, &flags)) != FF4_RET_OK)
            m_session = nullptr;
    }
    ~FuzzMovie() { Check(!m_session || mp4_close_read(m_host, m_session) == FF4_RET_OK); }
    FuzzMovie(const FuzzMovie&) = delete;
    FuzzMovie& operator=(const FuzzMovie&) = delete;

    // Null when the bytes did not open.
    operator Mp4ReadSession*() { return m_session; }

private:
    TestHost m_host;
    Mp4ReadSession* m_session = nullptr;
};

}  // namespace tarn
