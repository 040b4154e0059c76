#include "movie/waveform/waveform_pcm.h"

#include <algorithm>

#include "movie/engine/samples.h"
#include "movie/engine/tracks.h"
#include "mp4format/io.h"

namespace tarn {

Mp4Result PcmFrames::At(uint64_t frame, const uint8_t** bytes) {
    while (frame >= m_piece.firstFrame + m_piece.frames)
        FF4_TRY(NextPiece());
    const uint64_t inside = (frame - m_piece.firstFrame) * m_frameSize;
    const uint64_t offset = m_piece.offset + inside;
    if (offset < m_bufferOffset || offset + m_frameSize > m_bufferOffset + m_buffered)
        FF4_TRY(Fetch(offset, m_piece.frames * m_frameSize - inside));
    *bytes = m_buffer.data() + (offset - m_bufferOffset);
    return FF4_RET_OK;
}

Mp4Result PcmFrames::NextPiece() {
    const uint32_t sample = m_piece.nextSample;
    uint32_t inTables = 0, samples = 1;
    uint64_t size = 0;
    FF4_TRY(mp4_get_sample_count(m_session, m_track, &inTables));
    if (sample <= inTables) {
        FF4_TRY(FindChunk(sample, inTables, &samples, &size));
    } else {
        uint64_t start = 0;
        Mp4SampleInfo info{};
        FF4_TRY(mp4_get_numbered_sample(m_session, m_track, sample, &start, &info));
        m_piece.offset = info.offset;
        size = info.size;
    }
    m_piece.firstFrame += m_piece.frames;
    m_piece.frames = std::max<uint64_t>(size / m_frameSize, samples);
    m_piece.nextSample += samples;
    // The frames lie in the file: their count is then bounded by it, and no sum wraps.
    const uint64_t length = m_session->file_size;
    if (m_piece.offset > length || m_piece.frames > (length - m_piece.offset) / m_frameSize)
        return FF4_RET_FORMAT;
    return FF4_RET_OK;
}

// The chunk that begins with a sample of the tables: how many samples it has, their bytes.
Mp4Result PcmFrames::FindChunk(uint32_t sample, uint32_t inTables, uint32_t* samples,
                               uint64_t* size) {
    const Mp4OpenTrack* open = mp4_find_open_track(m_session, m_track);
    if (!open) return FF4_RET_STATE;
    const Mp4TableReader tables = mp4_tables_of(m_session, *open);
    Mp4ChunkPlace place{};
    FF4_TRY(mp4_lookup_chunk(tables, sample, &place));
    FF4_TRY(mp4_lookup_chunk_offset(tables, place.chunk, &m_piece.offset));
    *samples = std::min(place.sample_count, inTables - sample + 1);
    return mp4_lookup_size_sum(tables, sample, *samples, size);
}

Mp4Result PcmFrames::Fetch(uint64_t offset, uint64_t most) {
    m_buffered = 0;
    const uint64_t size = std::min<uint64_t>(most, m_buffer.size());
    FF4_TRY(mp4_read_at(m_session->host, m_session->file, offset, m_buffer.data(), size));
    m_bufferOffset = offset;
    m_buffered = size;
    return FF4_RET_OK;
}

}  // namespace tarn
