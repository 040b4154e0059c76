// failing_reads.h - a file whose reads fail, for code that opens files itself.
//
// For a test program that lists failing_reads.cpp among its sources: the system's reads go through
// it, in libraries too.
#pragma once

#include <cstdint>

namespace tarn {

// While it lives, the n-th read of the present thread from now on (1 is the next) fails with EIO.
class FailingReads {
public:
    explicit FailingReads(uint64_t n);
    ~FailingReads();
    FailingReads(const FailingReads&) = delete;
    FailingReads& operator=(const FailingReads&) = delete;

    static bool Met();  // whether the read has been asked for
};

}  // namespace tarn
