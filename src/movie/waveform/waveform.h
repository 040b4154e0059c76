// waveform.h - the overview of a file's sound: two rows of signed bytes, one for each channel.
//
// A point is one sample's high byte, picked at even steps; nothing is averaged and what lies
// between two points isn't seen. At 1120 points a second an hour takes 8 MB.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/reason.h"
#include "movie/objects/movie_reader.h"
#include "movie/waveform/waveform_row.h"

namespace tarn {

// The rows of both channels; equally long, and 0 where nothing could be read.
struct WaveformPoints {
    WaveformRow left, right;
};

// How reading went. Whatever happened, the points are valid.
enum class WaveformFault {
    kNone,
    kFile,       // not a file of this kind, or it can't be read: no points
    kNoSound,    // a good file without sound that can be shown: no points
    kCutShort,   // reading stopped early: the rest is 0
    kCancelled,  // the same, because the progress callback said so
};

struct WaveformOutcome {
    WaveformFault fault = WaveformFault::kNone;
    Reason reason;
    uint64_t endMs = 0;
};

// Points done and points in all; false stops. Called now and then, on the reading thread.
using WaveformProgress = std::function<bool(uint32_t done, uint32_t count)>;

// Reads a whole file's sound once. One Open an object, on any one thread.
class WFFileReader {
public:
    WFFileReader() = default;
    virtual ~WFFileReader() = default;
    WFFileReader(const WFFileReader&) = delete;
    WFFileReader& operator=(const WFFileReader&) = delete;

    virtual bool Open(const std::string& path, uint32_t pointsPerSecond);
    virtual uint32_t GetCount() const { return static_cast<uint32_t>(m_points.left.size()); }
    virtual const int8_t* GetLeft() const { return m_points.left.data(); }
    virtual const int8_t* GetRight() const { return m_points.right.data(); }

    // Before Open. How a movie is read that is opened by its path.
    void SetReadOptions(const MovieReadOptions& options) { m_readOptions = options; }
    void SetProgress(WaveformProgress progress) { m_progress = std::move(progress); }
    WaveformFault Fault() const { return m_outcome.fault; }
    const Reason& GetReason() const { return m_outcome.reason; }
    // Up to where there are points, for a reading that was cut short.
    uint64_t GetEndMs() const { return m_outcome.endMs; }
    // Leaves the reader without points.
    WaveformPoints TakePoints() { return std::move(m_points); }

    // The reader for a file by what is in it: that of WAV files, else that of movies, whatever the
    // file's name. Not open yet.
    static std::unique_ptr<WFFileReader> ForFile(const std::string& path);
    // The same, opened; null where Open fails.
    static std::unique_ptr<WFFileReader> Create(const std::string& path, uint32_t pointsPerSecond);

protected:
    WaveformPoints m_points;
    WaveformProgress m_progress;
    MovieReadOptions m_readOptions;
    WaveformOutcome m_outcome;
};

}  // namespace tarn
