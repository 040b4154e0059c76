// waveform_movie.h - the waveform of a movie's sound: AAC through the decoder, PCM as it lies.
#pragma once

#include <cstdint>
#include <string>

#include "movie/objects/movie_reader.h"
#include "movie/waveform/waveform.h"

namespace tarn {

class WaveformPicker;

// Makes the points of one movie. A clip with a profile record needs two channels there; of other
// clips, a mono sound goes to both rows and of more channels the front pair is taken.
class MovieWaveform {
public:
    // True when every point could be read. Otherwise `outcome` tells; the points that were read
    // stay and the others are 0. Where the sound can't be decoded, reading ends.
    bool Read(const std::string& path, uint32_t pointsPerSecond, const WaveformProgress& progress);
    // How Read by path opens the movie.
    MovieReadOptions reading;
    // Of all the sound of an open movie, whose own walk goes on where it was.
    bool Read(CMP4MovieRead* movie, uint32_t pointsPerSecond, const WaveformProgress& progress);

    WaveformPoints points;
    WaveformOutcome outcome;

private:
    bool FindSound();
    bool IsAllowed();
    bool MakeRows(uint32_t pointsPerSecond);
    bool ReadAac(WaveformPicker* picker);
    bool ReadPcm(WaveformPicker* picker);
    const CAudioSampleDescriptionInfo& Sound() const;
    uint32_t PcmChannels() const;
    uint32_t EntryRate() const;
    Reason Why(ReasonCode code) const { return {code, ReasonSide::kSource, m_movie->Path(), {}}; }
    bool Cancelled();
    bool Stop(WaveformFault fault, const Reason& reason);
    bool StopAt(uint64_t time, const Reason& reason);

    CMP4MovieRead* m_movie = nullptr;  // while it is read
    bool m_hasProfile = false;
    uint32_t m_profileChannels = 0, m_profileRate = 0;
};

class WFMP4Reader final : public WFFileReader {
public:
    // Always true: a movie that can't be read has no points.
    bool Open(const std::string& path, uint32_t pointsPerSecond) override;
    // The same of a movie that is open, which a table that is broken somewhere closes.
    void Open(CMP4MovieRead* movie, uint32_t pointsPerSecond);

private:
    void Take(MovieWaveform* waveform);
};

}  // namespace tarn
