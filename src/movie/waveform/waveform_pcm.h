// waveform_pcm.h - single frames of a track of 16-bit PCM, found through its sample tables.
#pragma once

#include <array>
#include <cstdint>

#include "movie/engine/session.h"
#include "mp4format/tables/sample_tables.h"

namespace tarn {

// Frames count from 0 over all chunks and are asked for in rising order. A chunk holds at least
// one frame a sample, also where the size table says less, as old files have it.
class PcmFrames {
public:
    // The track is open in its session, which must outlive the object.
    PcmFrames(Mp4ReadSession* session, uint32_t track, uint32_t channels)
        : m_session(session), m_track(track), m_frameSize(2 * channels) {}

    // The bytes of a frame, good until the next call. FF4_RET_NOTFOUND after the last one,
    // FF4_RET_FORMAT where it lies outside the file.
    Mp4Result At(uint64_t frame, const uint8_t** bytes);

private:
    // Samples that lie in a row: a chunk, or a single sample of a fragment.
    struct Piece {
        uint64_t firstFrame = 0, frames = 0;
        uint64_t offset = 0;  // in the file
        uint32_t nextSample = 1;
    };
    Mp4Result NextPiece();
    Mp4Result FindChunk(uint32_t sample, uint32_t inTables, uint32_t* samples, uint64_t* size);
    Mp4Result Fetch(uint64_t offset, uint64_t most);

    Mp4ReadSession* m_session;
    uint32_t m_track;
    uint32_t m_frameSize;
    Piece m_piece;
    std::array<uint8_t, 1 << 15> m_buffer;
    uint64_t m_bufferOffset = 0, m_buffered = 0;  // of the file
};

}  // namespace tarn
