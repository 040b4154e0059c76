// table_set.h - the sample tables of one track as plain lists: written as a file's bytes on one
// side, answering every lookup by a walk from the first entry on the other.
#pragma once

#include <array>
#include <ostream>
#include <vector>

#include "mp4format/tables/sample_tables.h"
#include "support/atoms.h"

namespace tarn {

// What a lookup gave; no values unless it went well.
struct Answer {
    Mp4Result result;
    std::array<uint64_t, 5> values = {};
    bool operator==(const Answer&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Answer& a) {
    out << std::hex << a.result << std::dec;
    for (const uint64_t value : a.values)
        out << ' ' << value;
    return out;
}

enum class Lookup { kTime, kAtTime, kDuration, kOffset, kRun, kChunk, kSize, kSum, kSync, kNext };

struct TableSet {
    std::vector<Run> stts, ctts;
    std::vector<ChunkRun> stsc;
    std::vector<uint32_t> sizes, stss;
    std::vector<uint64_t> chunks;
    uint32_t size_bits = 32;     // 4, 8, 16: 'stz2'
    uint32_t constant_size = 0;  // with it, only the number of `sizes` counts
    bool co64 = false, has_ctts = true, has_stss = true;

    // A file of one 'trak'.
    Bytes Write() const;
    // The truth. `a` is a sample, chunk or time; `b` a count of samples.
    Answer Ask(Lookup lookup, uint64_t a, uint64_t b = 0) const;

private:
    uint64_t Sum(uint64_t sample, uint64_t count) const;
    Answer Time(Mp4TableAxis axis, uint64_t target) const;
    Answer Offset(uint64_t sample) const;
    Answer Chunks(uint64_t sample) const;
    Answer Sync(uint64_t sample, bool next) const;
};

// The same question through the windows.
Answer AskWindows(const Mp4TableReader& tables, Lookup lookup, uint64_t a, uint64_t b = 0);

// Tables of up to some 200 samples that agree with each other; with `broken`, one figure in one
// or two of them is then spoilt.
TableSet RandomTables(uint64_t seed, bool broken);

}  // namespace tarn
