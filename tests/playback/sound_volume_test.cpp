#include <gtest/gtest.h>

#include <vector>

#include "playback/audio_renderer.h"
#include "playback/sound_volume.h"
#include "player_rig.h"

namespace tarn {
namespace {

// What the element itself has: the factor on the samples.
double Factor(GstElement* element) {
    double factor = -1;
    g_object_get(element, "volume", &factor, nullptr);
    return factor;
}

TEST(SoundVolume, WorksOnTheElementBeforeASinkWithoutOne) {
    ASSERT_TRUE(StartGst());
    GstElementPtr bin = MakeAudioRenderer("fakesink");
    const GstElementPtr element = ElementOf(bin, "volume");
    std::vector<int32_t> codes;
    SoundVolumeController controller;
    ASSERT_EQ(controller.OpenVolume(bin.get(), [&](int32_t code) { codes.push_back(code); }), S_OK);

    int32_t volume = -1;
    EXPECT_EQ(controller.GetVolume(&volume), S_OK);
    EXPECT_EQ(volume, 65535);
    // A fifth of the slider's way: 0.2 cubed.
    EXPECT_EQ(controller.SetVolume(13107), S_OK);
    EXPECT_NEAR(Factor(element.get()), 0.008, 1e-9);
    EXPECT_EQ(controller.GetVolume(&volume), S_OK);
    EXPECT_EQ(volume, 13107);
    EXPECT_EQ(controller.SetMute(true), S_OK);
    bool mute = false;
    EXPECT_EQ(controller.GetMute(&mute), S_OK);
    EXPECT_TRUE(mute);
    EXPECT_EQ(codes, (std::vector<int32_t>{0x3D1, 0x3D1}));

    EXPECT_EQ(controller.SetVolume(-1), E_INVALIDARG);
    EXPECT_EQ(controller.SetVolume(65536), E_INVALIDARG);

    // Somebody else turns it up, beyond what the slider has.
    g_object_set(element.get(), "volume", 2.0, nullptr);
    EXPECT_EQ(codes.size(), 3u);
    EXPECT_EQ(controller.GetVolume(&volume), S_OK);
    EXPECT_EQ(volume, 65535);

    bin.reset();
    EXPECT_EQ(controller.SetMute(false), S_OK) << "a clip that is gone takes nothing along";
    codes.resize(3);
    Meanwhile meanwhile;
    const auto close = [&](int32_t) { meanwhile.Run([&] { controller.CloseVolume(); }); };
    ASSERT_EQ(controller.OpenVolume(element.get(), close), S_OK);
    EXPECT_EQ(controller.SetMute(true), S_OK);
    EXPECT_FALSE(meanwhile.CameBackEarly()) << "the call ends before it is closed";
    g_object_set(element.get(), "volume", 0.5, nullptr);
    EXPECT_EQ(codes.size(), 3u) << "closed: no more calls";
    EXPECT_EQ(controller.OpenVolume(nullptr), E_POINTER);
    EXPECT_EQ(controller.OpenVolume(MakeElement("fakesink").get()), E_FAIL);
    EXPECT_EQ(controller.OpenVolume(MakeBin("empty").get()), E_FAIL);
    for (const HRESULT result : {controller.GetVolume(&volume), controller.SetVolume(1),
                                 controller.GetMute(&mute), controller.SetMute(true)})
        EXPECT_EQ(result, E_HANDLE);
}

TEST(SoundVolume, PrefersTheStreamOfTheMixer) {
    ASSERT_TRUE(StartGst());
    const GstElementPtr bin = MakeBin("renderer");
    GstElement* own = AddElement(bin.get(), "volume", "volume");
    GstElement* sink = AddElement(bin.get(), "pulsesink");
    if (!sink) GTEST_SKIP() << "there is no pulsesink";
    SoundVolumeController controller;
    ASSERT_EQ(controller.OpenVolume(bin.get()), S_OK);
    EXPECT_EQ(controller.SetVolume(32768), S_OK);
    EXPECT_NEAR(Factor(sink), 0.125, 1e-4);
    EXPECT_EQ(Factor(own), 1.0);
}

}  // namespace
}  // namespace tarn
