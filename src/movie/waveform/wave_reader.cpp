#include "movie/waveform/wave_reader.h"

#include <algorithm>
#include <new>

#include "effects/wave_points.h"

namespace tarn {
namespace {

constexpr uint32_t kProgressStep = 1 << 16;  // points

}  // namespace

bool WFWaveReader::Open(const std::string& path, uint32_t pointsPerSecond) {
    XpFile file;
    if (const int error = file.Open(path, XpFile::Mode::kRead))
        return Fail(SystemReason(ReasonCode::kCantOpen, ReasonSide::kSource, path, error));
    WaveHeader header{};
    Reason reason = ReadWaveHeader(&file, &header);
    try {
        if (!reason) reason = ReadPoints(&file, header, pointsPerSecond);
    } catch (const std::bad_alloc&) {
        reason = {ReasonCode::kOutOfMemory, ReasonSide::kNone, path, {}};
    }
    if (!reason) return true;
    reason.file = path;
    return Fail(reason);
}

Reason WFWaveReader::ReadPoints(XpFile* file, const WaveHeader& header, uint32_t pointsPerSecond) {
    AMPWavePoints points(file, header, pointsPerSecond);
    const uint64_t count = points.Count();
    m_points.left = WaveformRow(count);
    m_points.right = WaveformRow(count);

    for (size_t at = 0; at < count; ++at) {
        if (!points.Next(&m_points.left[at], &m_points.right[at])) break;
        if (at % kProgressStep == 0 && m_progress &&
            !m_progress(static_cast<uint32_t>(at), GetCount()))
            return {ReasonCode::kCancelled, ReasonSide::kNone, {}, {}};
    }
    return points.GetReason();
}

// What was read before a cancel stays.
bool WFWaveReader::Fail(const Reason& reason) {
    const bool cancelled = reason.code == ReasonCode::kCancelled;
    if (!cancelled) m_points = {};
    m_outcome.fault = cancelled ? WaveformFault::kCancelled : WaveformFault::kFile;
    m_outcome.reason = reason;
    return cancelled;
}

}  // namespace tarn
