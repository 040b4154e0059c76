// play_files.h - what the play program leaves: the sound as it left the effect, and the
// picture at the end.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

typedef struct _GstElement GstElement;

namespace tarn {

class CVideoRenderer;

// Writes the 16-bit stereo that leaves an element into a WAV file. It outlives that element.
class SoundDump {
public:
    ~SoundDump();
    [[nodiscard]] bool Attach(GstElement* filter, const std::string& path);
    // The clip's time after the last sample that has passed, 100-nanosecond units.
    int64_t EndTime() const { return m_end; }
    // Completes the header; the graph is stopped by then.
    [[nodiscard]] bool Finish();
    void Write(const void* bytes, size_t size, uint32_t rate, int64_t end);

private:
    FILE* m_file = nullptr;
    uint64_t m_bytes = 0;
    std::atomic<int64_t> m_end{0};
    uint32_t m_rate = 48000;
};

// As a PPM file. False where the renderer holds no picture in memory or the file can't be written.
[[nodiscard]] bool WriteShot(const CVideoRenderer& renderer, const std::string& path);

}  // namespace tarn
