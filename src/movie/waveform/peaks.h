// peaks.h - the sound of a clip as it is drawn: columns for the whole of it, pairs for a close-up,
// and the same of the treated sound.
//
// No thread of its own and no lock. Made once for a clip; another clip is a new object.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "effects/effect_settings.h"
#include "movie/waveform/waveform.h"

namespace tarn {

// Of a column's points and 0: a column is never all above or all below the middle.
struct PeakPair {
    int8_t largest = 0;
    int8_t smallest = 0;
    bool operator==(const PeakPair&) const = default;
};

// Channel 0 is left, any other right.
class PeakSource {
public:
    // Null for a WAV file that can't be read. A movie without sound, or any other file that can't
    // be read, gives no points and columns of 0.
    static std::unique_ptr<PeakSource> Create(const std::string& path, int32_t columnCount);
    // Takes the points out of a reader that was opened with PointsPerSecond().
    static std::unique_ptr<PeakSource> Create(WFFileReader* reader, int32_t columnCount);
    static constexpr uint32_t PointsPerSecond() { return kPointsPerRead * kScale; }

    // Remaps the points by compressor and normalise and computes the columns again. The other
    // effects are not seen in a waveform.
    void ApplyEffects(const AMPEffectSettings& settings);
    // Pairs of 8 points each from `startMs` on, of the treated sound where there is one. 0, 0
    // outside the clip.
    bool ReadPeaks(int channel, PeakPair* pairs, int32_t count, int32_t startMs) const;

    const PeakPair* GetColumns(int channel) const { return m_columns[Row(channel)].data(); }
    int32_t GetColumnCount() const { return static_cast<int32_t>(m_columns[0].size()); }
    uint32_t GetCount() const { return static_cast<uint32_t>(m_raw[0].size()); }
    const WaveformRow& GetRaw(int channel) const { return m_raw[Row(channel)]; }
    // The treated points where there are some, else the raw ones.
    const WaveformRow& GetPoints(int channel) const;

    // The largest magnitude of the raw points of both channels, as AMPPeakMeter has it: -128 where
    // such a point is the last of all.
    int8_t GetMaxAbsolute() const;
    // Why there are points of a part of the sound alone, or none: no peak to normalise by.
    const Reason& GetReason() const { return m_reason; }
    // GetMaxAbsolute as a fraction of full scale, as the effect settings have it.
    float GetPeak() const { return static_cast<float>(GetMaxAbsolute()) / 128.0f; }

private:
    PeakSource() = default;
    static size_t Row(int channel) { return channel == 0 ? 0 : 1; }
    void BuildColumns(size_t columnCount);

    static constexpr uint32_t kScale = 140, kPointsPerRead = 8;

    WaveformRow m_raw[2], m_treated[2];  // the second empty until effects are applied
    std::vector<PeakPair> m_columns[2];
    Reason m_reason;
};

}  // namespace tarn
