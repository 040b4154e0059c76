#include "movie/waveform/peaks.h"

#include <algorithm>

#include "effects/preview_tables.h"
#include "effects/wave_peak.h"

namespace tarn {
namespace {

void widen(PeakPair* pair, int8_t point) {
    pair->largest = std::max(pair->largest, point);
    pair->smallest = std::min(pair->smallest, point);
}

}  // namespace

std::unique_ptr<PeakSource> PeakSource::Create(const std::string& path, int32_t columnCount) {
    const auto reader = WFFileReader::Create(path, PointsPerSecond());
    return reader ? Create(reader.get(), columnCount) : nullptr;
}

std::unique_ptr<PeakSource> PeakSource::Create(WFFileReader* reader, int32_t columnCount) {
    std::unique_ptr<PeakSource> peaks(new PeakSource);
    WaveformPoints points = reader->TakePoints();
    peaks->m_reason = reader->GetReason();
    peaks->m_raw[0] = std::move(points.left);
    peaks->m_raw[1] = std::move(points.right);
    peaks->BuildColumns(static_cast<size_t>(std::max(columnCount, 0)));
    return peaks;
}

const WaveformRow& PeakSource::GetPoints(int channel) const {
    const WaveformRow& treated = m_treated[Row(channel)];
    return treated.empty() ? m_raw[Row(channel)] : treated;
}

// Rounded down, so that points at the end can fall after the last column, and fewer points than
// columns give columns of 0. Intended.
void PeakSource::BuildColumns(size_t columnCount) {
    for (const int channel : {0, 1}) {
        const WaveformRow& points = GetPoints(channel);
        std::vector<PeakPair>& columns = m_columns[Row(channel)];
        columns.assign(columnCount, {});
        for (size_t k = 0; k < columnCount; ++k) {
            const size_t first = k * points.size() / columnCount;
            const size_t end = std::min(first + points.size() / columnCount, points.size());
            int8_t largest = 0, smallest = 0;  // apart, so that many points are taken at once
            for (size_t i = first; i < end; ++i) {
                const int8_t point = points[i];
                largest = point > largest ? point : largest;
                smallest = point < smallest ? point : smallest;
            }
            columns[k] = {largest, smallest};
        }
    }
}

void PeakSource::ApplyEffects(const AMPEffectSettings& settings) {
    AMPPreviewTable compressor, normalize;
    AMPEffectBuildCompressorTable(&compressor, settings.compressor);
    AMPEffectBuildNormalizeTable(&normalize, settings.normalize, settings.peak);
    const auto at = [](const AMPPreviewTable& table, int8_t point) {
        return table[static_cast<size_t>(point + 128)];
    };
    for (const size_t row : {0u, 1u}) {
        m_treated[row].resize(m_raw[row].size());
        std::transform(m_raw[row].begin(), m_raw[row].end(), m_treated[row].begin(),
                       [&](int8_t point) { return at(normalize, at(compressor, point)); });
    }
    BuildColumns(m_columns[0].size());
}

bool PeakSource::ReadPeaks(int channel, PeakPair* pairs, int32_t count, int32_t startMs) const {
    const WaveformRow& points = GetPoints(channel);
    const auto end = static_cast<int64_t>(points.size());
    int64_t position = int64_t{PointsPerSecond()} * startMs / 1000;
    for (int32_t k = 0; k < count; ++k) {
        pairs[k] = {};
        for (uint32_t i = 0; i < kPointsPerRead; ++i, ++position)
            if (position >= 0 && position < end)
                widen(&pairs[k], points[static_cast<size_t>(position)]);
    }
    return true;
}

int8_t PeakSource::GetMaxAbsolute() const {
    AMPPeakMeter meter;
    for (size_t i = 0; i < m_raw[0].size(); ++i) {
        meter.Add(m_raw[1][i]);
        meter.Add(m_raw[0][i]);
    }
    return meter.Maximum();
}

}  // namespace tarn
