#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "picture_rig.h"
#include "playback/letterbox.h"

namespace tarn {

static void PrintTo(const VideoRect& r, std::ostream* out) {
    *out << r.left << "," << r.top << " to " << r.right << "," << r.bottom;
}

namespace {

constexpr VideoRendererForm kForms[] = {VideoRendererForm::CVMR7};

std::unique_ptr<CVideoRenderer> Renderer(const TestGraph& graph) {
    HRESULT result = E_FAIL;
    std::unique_ptr<CVideoRenderer> renderer =
        CreateVideoRenderer(graph.Pipeline(), &result, kForms);
    EXPECT_EQ(result, S_OK);
    return renderer;
}

// One frame each 40 ms, all of one colour.
const char kOrange[] =
    "videotestsrc num-buffers=250 pattern=solid-color foreground-color=0xffff8020 ! "
    "video/x-raw,format=I420,width=64,height=48,framerate=25/1";

std::optional<int64_t> TimeOf(const CVideoRenderer& renderer) {
    std::optional<int64_t> time;
    EXPECT_GE(renderer.ReadPicture([&](const VideoPicture& picture) { time = picture.time; }), 0);
    return time;
}

TEST(Letterbox, KeepsTheShapeInTheMiddle) {
    const struct {
        const char* name;
        int32_t width, height, aspectWidth, aspectHeight;
        VideoRect area, target;
    } cases[] = {
        {"same shape", 1920, 1080, 1, 1, {0, 0, 1280, 720}, {0, 0, 1280, 720}},
        {"bars above and below", 1920, 1080, 1, 1, {0, 0, 800, 600}, {0, 75, 800, 525}},
        {"bars beside, not at 0", 640, 480, 1, 1, {100, 50, 740, 410}, {180, 50, 660, 410}},
        {"wide pixels", 1440, 1080, 4, 3, {0, 0, 800, 600}, {0, 75, 800, 525}},
        {"no such pixel", 640, 480, 0, 1, {0, 0, 320, 240}, {0, 0, 320, 240}},
        {"never thinner than 1", 10000, 1, 1, 1, {0, 0, 100, 101}, {0, 50, 100, 51}},
        {"no area", 640, 480, 1, 1, {5, 5, 5, 100}, {}},
        {"no picture", 0, 480, 1, 1, {0, 0, 100, 100}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const VideoPicture picture{nullptr, c.width, c.height, 0, c.aspectWidth, c.aspectHeight, 0};
        EXPECT_EQ(LetterboxRect(picture, c.area), c.target);
    }
}

TEST(CVMR7, ReadsTheFrameOfAPausedGraphAndOfASeekInIt) {
    TestGraph graph;
    const auto renderer = Renderer(graph);
    EXPECT_EQ(renderer->ReadPicture([](const VideoPicture&) { FAIL() << "no picture yet"; }),
              S_FALSE);
    ASSERT_TRUE(graph.Feed(*renderer, kOrange));
    ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));

    EXPECT_EQ(renderer->ReadPicture([](const VideoPicture& picture) {
        ASSERT_EQ(picture.width, 64);
        ASSERT_EQ(picture.height, 48);
        ASSERT_GE(picture.stride, 64 * 4);
        EXPECT_EQ(picture.time, 0);
        const uint8_t* last = picture.pixels + 47 * picture.stride + 63 * 4;
        EXPECT_NEAR(last[0], 0x20, 6);
        EXPECT_NEAR(last[1], 0x80, 6);
        EXPECT_NEAR(last[2], 0xff, 6);
    }),
              S_OK);
    // The last of them lies inside the frame that begins at 40 ms.
    const struct { int64_t to, frame; } seeks[] = {{80, 80}, {9960, 9960}, {70, 40}};
    for (const auto& seek : seeks) {
        ASSERT_TRUE(graph.Seek(seek.to));
        EXPECT_EQ(TimeOf(*renderer), seek.frame * 10000);
    }
}

TEST(CVMR7, PaintsBetweenBarsAndFollowsTheWindow) {
    TestGraph graph;
    const auto renderer = Renderer(graph);
    TestWindow window;
    window.client = {0, 0, 160, 60};
    TestPainter painter;
    ASSERT_EQ(renderer->SetVideoWindow(&window, nullptr), S_OK);
    EXPECT_EQ(renderer->RepaintVideo(&window, &painter), S_OK);
    EXPECT_EQ(painter.black, std::vector{window.client}) << "black before the first picture";

    ASSERT_TRUE(graph.Feed(*renderer, kOrange));
    ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
    EXPECT_TRUE(window.WaitForChanges(1));
    painter.black.clear();
    EXPECT_EQ(renderer->RepaintVideo(&window, &painter), S_OK);
    window.client = {0, 0, 64, 148};
    EXPECT_EQ(renderer->RepaintVideo(&window, &painter), S_OK);
    const VideoRect place = {10, 20, 42, 44};
    EXPECT_EQ(renderer->SetPosition(&window, &place), S_OK);
    EXPECT_EQ(renderer->RepaintVideo(&window, &painter), S_OK);
    EXPECT_EQ(painter.targets, (std::vector<VideoRect>{{40, 0, 120, 60}, {0, 50, 64, 98}, place}));
    EXPECT_EQ(painter.black,
              (std::vector<VideoRect>{
                  {0, 0, 40, 60}, {120, 0, 160, 60}, {0, 0, 64, 50}, {0, 98, 64, 148}}));

    window.client = {};
    EXPECT_EQ(renderer->SetPosition(&window, nullptr), S_OK);
    EXPECT_EQ(renderer->RepaintVideo(&window, &painter), S_OK) << "a window of no size";
    EXPECT_EQ(painter.targets.size(), 3u);
}

TEST(CVMR7, CallsNoWindowThatWasTakenAway) {
    TestGraph graph;
    const auto renderer = Renderer(graph);
    ASSERT_TRUE(graph.Feed(*renderer, kOrange));
    ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
    auto window = std::make_unique<TestWindow>();
    ASSERT_EQ(renderer->SetVideoWindow(window.get(), nullptr), S_OK);
    EXPECT_TRUE(window->WaitForChanges(1)) << "the picture was there before the window";
    ASSERT_TRUE(graph.Reach(GST_STATE_PLAYING));
    EXPECT_TRUE(window->WaitForChanges(4));

    ASSERT_EQ(renderer->SetVideoWindow(nullptr, nullptr), S_OK);
    const int64_t then = TimeOf(*renderer).value();
    window.reset();
    EXPECT_TRUE(WaitFor([&] { return TimeOf(*renderer).value() > then + 1'000'000; }))
        << "the stream goes on without it";
}

TEST(CVMR7, EndsItsCallBeforeAWindowGoes) {
    struct Window : IVideoWindow {
        uintptr_t NativeHandle() const override { return 0; }
        VideoRect ClientRect() const override { return {}; }
        void PictureChanged() override {
            meanwhile.Run([this] {
                const HRESULT result = renderer->SetVideoWindow(nullptr, nullptr);
                EXPECT_EQ(result, S_OK);
            });
        }
        CVideoRenderer* renderer = nullptr;
        Meanwhile meanwhile;
    } window;
    TestGraph graph;
    const auto renderer = Renderer(graph);
    window.renderer = renderer.get();
    ASSERT_EQ(renderer->SetVideoWindow(&window, nullptr), S_OK);
    EXPECT_EQ(renderer->DisplayModeChanged(), S_OK);
    EXPECT_FALSE(window.meanwhile.CameBackEarly());
}

TEST(CVMR7, IsReadWhileFramesCome) {
    TestGraph graph;
    const auto renderer = Renderer(graph);
    ASSERT_TRUE(graph.Feed(*renderer, "videotestsrc ! video/x-raw,format=BGRx,width=16,height=16"));
    graph.PlayUnpaced();
    ASSERT_TRUE(graph.Reach(GST_STATE_PLAYING));
    for (int i = 0; i < 200'000; ++i)
        ASSERT_EQ(renderer->ReadPicture([](const VideoPicture&) {}), S_OK);
}

TEST(CVMR7, EntersAndLeavesTheGraph) {
    TestGraph graph;
    {
        const HiddenFactory hidden("appsink");
        HRESULT result = S_OK;
        EXPECT_EQ(CreateVideoRenderer(graph.Pipeline(), &result, kForms), nullptr);
        EXPECT_EQ(result, E_FAIL);
        EXPECT_EQ(GST_BIN_NUMCHILDREN(graph.Pipeline()), 0);
    }
    auto renderer = Renderer(graph);
    EXPECT_EQ(renderer->AddToGraph(graph.Pipeline()), E_ACCESSDENIED);
    HRESULT second = S_OK;
    EXPECT_EQ(CreateVideoRenderer(graph.Pipeline(), &second, kForms), nullptr);
    EXPECT_EQ(second, E_ACCESSDENIED) << "the name is taken";
    EXPECT_STREQ(GST_OBJECT_NAME(renderer->Filter()), "VMR-7");

    EXPECT_EQ(renderer->FinishGraph(graph.Pipeline()), S_OK);
    EXPECT_EQ(renderer->Filter(), nullptr) << "nothing was connected";
    EXPECT_EQ(GST_BIN_NUMCHILDREN(graph.Pipeline()), 0);
    TestWindow window;
    EXPECT_EQ(renderer->SetVideoWindow(&window, nullptr), E_HANDLE);

    ASSERT_EQ(renderer->AddToGraph(graph.Pipeline()), S_OK);
    ASSERT_TRUE(graph.Feed(*renderer, kOrange));
    EXPECT_EQ(renderer->FinishGraph(graph.Pipeline()), S_OK);
    EXPECT_NE(renderer->Filter(), nullptr);
    ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
    ASSERT_TRUE(graph.Reach(GST_STATE_NULL));
    renderer.reset();
    EXPECT_EQ(GST_BIN_NUMCHILDREN(graph.Pipeline()), 1) << "only the source is left";
}

}  // namespace
}  // namespace tarn
