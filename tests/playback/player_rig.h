// player_rig.h - a player on sinks that need no device, what it lets out, and what it should show.
#pragma once

#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "playback/tarn_player_controller.h"

namespace tarn {

inline std::ostream& operator<<(std::ostream& out, const Reason& reason) {
    return out << ReasonName(reason.code) << ": " << reason.file << ": " << ReasonText(reason);
}

std::string ClipPath(const std::string& name);  // "cam_roles" in tests/data/clips

// Sound into nothing, pictures into memory.
PlayerDevices FakeDevices();

class TestPlayer final : public TarnPlayerController {
public:
    TestPlayer() : TarnPlayerController(FakeDevices()) {}
    ~TestPlayer() override { ReleaseGraph(); }

    HRESULT OpenClip(const std::string& path, bool withSound = true) {
        return Open(path, withSound, nullptr, 0, 0, nullptr, nullptr, false);
    }
    HRESULT SeekTo(int64_t position) { return Seek(position, kAbsolutePositioning, 0, 0); }
    int64_t Position();
    int64_t Duration();
    // No sink waits for its time any more: a clip is through at once.
    void PlayUnpaced();
    // Waits for the event that ends playing.
    HRESULT WaitForEnd();
    // Waits out a seek or a change of state, however long it takes on this machine.
    bool WaitForState();
};

// What leaves the sound effect, since it was begun or since the last seek.
class SoundCapture {
public:
    explicit SoundCapture(TestPlayer* player);
    std::vector<int16_t> Samples() const;
    int64_t FirstTime() const;  // nanoseconds of the clip
    struct State;

private:
    std::shared_ptr<State> m_state;
};

// The pictures of a clip as another decoder sees them.
class KnownPictures {
public:
    static constexpr int32_t kWidth = 16, kHeight = 9;

    explicit KnownPictures(const std::string& clip);
    size_t Count() const { return m_times.size(); }
    int64_t Time(size_t picture) const { return m_times[picture]; }  // nanoseconds
    // The one that is on the screen at a time.
    size_t At(int64_t time) const;
    // The one that looks most like these grey pixels.
    size_t Nearest(const std::vector<int>& thumbnail) const;

private:
    std::vector<int64_t> m_times;
    std::vector<uint8_t> m_pixels;
};

// Reduces a picture to grey means; `blue` and `red` are the places of the colours in a pixel.
std::vector<int> Thumbnail(const uint8_t* pixels, int32_t width, int32_t height, int32_t stride,
                           int32_t pixelSize, int32_t blue, int32_t red);
// Of the picture that the player shows; empty without one.
std::vector<int> ShownThumbnail(const TestPlayer& player);

}  // namespace tarn
