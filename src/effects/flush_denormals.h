// flush_denormals.h - treats the tiniest floats as zero while it lives.
//
// The tail of a reverb or a filter sinks into denormal numbers, which some processors handle a
// hundred times slower. They lie far below the last bit of a 16-bit sample. The caller's mode comes
// back at the end.
#pragma once

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace tarn {

class FlushDenormals {
public:
    FlushDenormals(const FlushDenormals&) = delete;
    FlushDenormals& operator=(const FlushDenormals&) = delete;
#if defined(__SSE__)
    FlushDenormals() : m_mode(_mm_getcsr()) {
        _mm_setcsr(m_mode | kFlushToZero | kDenormalsAreZero);
    }
    ~FlushDenormals() {
        _mm_setcsr(m_mode);
    }

private:
    static constexpr unsigned kFlushToZero = 0x8000, kDenormalsAreZero = 0x0040;
    unsigned m_mode;
#else
    FlushDenormals() {}
    ~FlushDenormals() {}
#endif
};

}  // namespace tarn
