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
    if (const int error = file.Open(path, XpFile::Mode::kRead)) return Fail(XpErrorText(error));
    WaveHeader header{};
    if (const tarn::Reason reason = ReadWaveHeader(&file, &header)) return Fail(ReasonText(reason));
    if (header.sample_rate == 0) return Fail("the WAV file has a sample rate of 0");
    try {
        return ReadPoints(&file, header, pointsPerSecond);
    } catch (const std::bad_alloc&) {
        return Fail("not enough memory");
    }
}

bool WFWaveReader::ReadPoints(XpFile* file, const WaveHeader& header, uint32_t pointsPerSecond) {
    AMPWavePoints points(file, header, pointsPerSecond);
    // More points than bytes come of a rate that is no sound's.
    const uint64_t count = points.Count();
    if (count > header.data_available)
        return Fail("the WAV file has a sample rate of " + std::to_string(header.sample_rate));
    m_points.left.assign(count, 0);
    m_points.right.assign(count, 0);

    for (size_t at = 0; at < count; ++at) {
        if (!points.Next(&m_points.left[at], &m_points.right[at])) break;
        if (at % kProgressStep == 0 && m_progress &&
            !m_progress(static_cast<uint32_t>(at), GetCount())) {
            m_fault = WaveformFault::kCancelled;
            m_reason = "cancelled";
            return true;
        }
    }
    return points.GetReason() ? Fail(ReasonText(points.GetReason())) : true;
}

bool WFWaveReader::Fail(const std::string& reason) {
    m_points = {};
    m_fault = WaveformFault::kFile;
    m_reason = reason;
    return false;
}

}  // namespace tarn
