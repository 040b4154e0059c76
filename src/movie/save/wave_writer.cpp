#include "movie/save/wave_writer.h"

#include <algorithm>
#include <utility>

#include "effects/wave_header.h"

namespace tarn {
namespace {

constexpr uint32_t kBufferBytes = 1000000;
constexpr int16_t kSilence[2048] = {};

}  // namespace

MovieCode WaveWriter::Told(int error) {
    if (error == 0) return kMovieOk;
    m_reason = MovieReason(kMovieSystem, ReasonSide::kTarget, m_path, error);
    return kMovieSystem;
}

MovieCode WaveWriter::Open(XpSharedPtr<CMP4MovieRead> reader) {
    if (!reader) return movie_code(FF4_RET_ARGS);
    m_reader = std::move(reader);
    if (!m_reader->HasAudio()) return kMovieNoTrack;
    MOVIE_TRY(m_sound.Open(m_reader.get(), m_settings, m_inMs, m_outMs, m_options.compensateDelay));
    MOVIE_TRY(Plan());
    if (m_frames > (UINT32_MAX - sizeof(WaveStart)) / kWaveFrameSize) {
        m_reason = MovieReason(kMovieTooLarge, ReasonSide::kTarget, m_path);
        return kMovieTooLarge;
    }
    if (!m_buffer.Allocate(kBufferBytes)) return kMovieBuffer;
    MOVIE_TRY(Told(m_output.Create(m_path)));
    return WriteHeader();
}

// How many frames there will be, and what lies before the first of them.
MovieCode WaveWriter::Plan() {
    const MovieTrackInfo& audio = m_reader->GetInfo().audio;
    const MovieRange& range = m_reader->GetRange();
    const uint32_t rate = m_sound.Treated().SampleRate();

    // The plain form keeps whole samples; else the file starts with the selection's first frame.
    uint64_t lead = 0;
    if (m_options.compensateDelay && range.audio.startOffset > 0)
        lead = static_cast<uint64_t>(range.audio.startOffset);
    const int64_t later = range.exactStart - range.video.presentationStart;
    if (m_options.exact && m_reader->HasVideo() && later > 0) {
        uint64_t hidden = 0;
        MOVIE_TRY(mp4_mul_div(static_cast<uint64_t>(later), audio.timescale,
                              m_reader->GetInfo().video.timescale, &hidden));
        lead += hidden;
    }
    const uint64_t units =
        range.audio.endTime - std::min(range.audio.endTime, range.audio.firstTime);
    uint64_t total = 0;
    MOVIE_TRY(mp4_mul_div(units, rate, audio.timescale, &total));
    MOVIE_TRY(mp4_mul_div(lead, rate, audio.timescale, &m_skip));
    m_startsAt = static_cast<int64_t>(lead);
    // Samples may claim any length: no file is made of silence that nobody recorded.
    m_samples = range.audio.end - range.audio.first;
    total = std::min(total, m_sound.Treated().MostFrames(m_samples, range.audio.bytes));
    m_frames = total - std::min(total, m_skip);
    return kMovieOk;
}

uint64_t WaveWriter::FileBytes() const {
    return sizeof(WaveStart) + m_frames * kWaveFrameSize;
}

MovieCode WaveWriter::WriteHeader() {
    const WaveStart start = MakeWaveStart(m_sound.Treated().SampleRate(),
                                          static_cast<uint32_t>(m_frames * kWaveFrameSize));
    return Told(m_buffer.Append(&m_output.File(), start.data(), start.size()));
}

MovieCode WaveWriter::WriteFrames(const int16_t* pcm, uint64_t frames) {
    const uint64_t skipped = std::min(frames, m_skip);
    m_skip -= skipped;
    const uint64_t count = std::min(frames - skipped, m_frames - m_written);
    m_written += count;
    return Told(m_buffer.Append(&m_output.File(), pcm + 2 * skipped, count * kWaveFrameSize));
}

MovieCode WaveWriter::WriteNext() {
    const MovieCode code = m_sound.Next(UINT64_MAX, m_startsAt);
    if (code == kMovieEndOfSamples) return kMovieDone;
    MOVIE_TRY(code);
    m_samplesRead += m_sound.Samples();
    return WriteFrames(m_sound.Treated().Pcm().data(), m_sound.Treated().Frames());
}

MovieCode WaveWriter::Finish() {
    if (m_samplesRead != m_samples) {
        m_reason = {ReasonCode::kSamplesLost,
                    ReasonSide::kTarget,
                    m_path,
                    {uint64_t{m_samplesRead}, uint64_t{m_samples}}};
        return movie_code(FF4_RET_INTERNAL);
    }
    // Samples that decode to less than they claim leave the announced length to silence.
    m_skip = 0;
    while (m_written < m_frames)
        MOVIE_TRY(WriteFrames(kSilence, std::min<uint64_t>(m_frames - m_written, 1024)));
    return Told(m_buffer.Flush(&m_output.File()));
}

MovieCode WaveWriter::Close() {
    return Told(m_output.Commit());
}

}  // namespace tarn
