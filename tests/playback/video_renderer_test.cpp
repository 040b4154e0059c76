// The three forms of the renderer: the one that keeps frames in memory through its painter, those
// that draw on an X server by themselves through the server's pixels.
#include "playback/video_renderer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "playback/letterbox.h"
#include "player_rig.h"

// Its macros have names that the others use.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace tarn {

namespace {

// A graph that feeds one renderer from a test source.
class TestGraph {
public:
    explicit TestGraph(VideoRendererForm form) {
        if (!StartGst()) std::abort();
        m_pipeline = MakeElement("pipeline");
        const VideoRendererForm forms[] = {form};
        HRESULT result = E_FAIL;
        renderer = CreateVideoRenderer(Pipeline(), &result, forms);
        EXPECT_EQ(result, S_OK);
    }
    ~TestGraph() {
        EXPECT_TRUE(Reach(GST_STATE_NULL));
        renderer.reset();
    }

    GstElement* Pipeline() const { return m_pipeline.get(); }
    // Elements in the launch syntax.
    [[nodiscard]] bool Feed(const std::string& source) {
        GstElement* bin =
            gst_parse_bin_from_description((source + " ! identity").c_str(), TRUE, nullptr);
        return bin && gst_bin_add(GST_BIN(Pipeline()), bin) &&
               gst_element_link_pads(bin, "src", renderer->Filter(), "sink");
    }
    [[nodiscard]] bool Waits() {
        return gst_element_get_state(Pipeline(), nullptr, nullptr, kDeadlineSeconds * GST_SECOND) ==
               GST_STATE_CHANGE_SUCCESS;
    }
    [[nodiscard]] bool Reach(GstState state) {
        return gst_element_set_state(Pipeline(), state) != GST_STATE_CHANGE_FAILURE && Waits();
    }
    [[nodiscard]] bool Seek(int64_t milliseconds) {
        const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
        return gst_element_seek_simple(Pipeline(), GST_FORMAT_TIME, flags,
                                       milliseconds * GST_MSECOND) &&
               Waits();
    }
    // An error was reported since the last question.
    [[nodiscard]] bool HasError() const {
        const GstBusPtr bus(gst_element_get_bus(Pipeline()));
        return GstMessagePtr(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR)) != nullptr;
    }
    // Waits until the graph has played on for some frames.
    [[nodiscard]] bool PlaysOn() const {
        const int64_t then = Position();
        return WaitFor([&] { return Position() > then + int64_t{200 * GST_MSECOND}; });
    }

    std::unique_ptr<CVideoRenderer> renderer;

private:
    int64_t Position() const {
        gint64 position = 0;
        const bool known = gst_element_query_position(Pipeline(), GST_FORMAT_TIME, &position);
        return known ? position : 0;
    }

    GstElementPtr m_pipeline;
};

struct TestPainter final : IVideoPainter {
    void DrawPicture(const VideoPicture&, const VideoRect& target) override {
        targets.push_back(target);
    }
    void FillBlack(const VideoRect& area) override { black.push_back(area); }

    std::vector<VideoRect> targets, black;
};

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

class CVMR7 : public testing::Test {
protected:
    std::optional<int64_t> ShownTime() {
        std::optional<int64_t> time;
        EXPECT_GE(m_renderer->ReadPicture([&](const VideoPicture& p) { time = p.time; }), 0);
        return time;
    }

    // One frame each 40 ms, all of one colour.
    const std::string m_orange =
        "videotestsrc num-buffers=250 pattern=solid-color foreground-color=0xffff8020 ! "
        "video/x-raw,format=I420,width=64,height=48,framerate=25/1";
    TestGraph m_graph{VideoRendererForm::CVMR7};
    std::unique_ptr<CVideoRenderer>& m_renderer = m_graph.renderer;
    TestWindow m_window;
};

TEST_F(CVMR7, ReadsTheFrameOfAPausedGraphAndOfASeekInIt) {
    EXPECT_EQ(ShownTime(), std::nullopt);
    ASSERT_TRUE(m_graph.Feed(m_orange));
    ASSERT_TRUE(m_graph.Reach(GST_STATE_PAUSED));
    EXPECT_EQ(m_renderer->ReadPicture([](const VideoPicture& picture) {
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
    const std::pair<int64_t, int64_t> seeks[] = {{80, 80}, {9960, 9960}, {70, 40}};
    for (const auto& [to, frame] : seeks) {
        ASSERT_TRUE(m_graph.Seek(to));
        EXPECT_EQ(ShownTime(), frame * 10000);
    }
}

TEST_F(CVMR7, PaintsBetweenBarsAndFollowsTheWindow) {
    m_window.client = {0, 0, 160, 60};
    TestPainter painter;
    ASSERT_EQ(m_renderer->SetVideoWindow(&m_window, nullptr), S_OK);
    EXPECT_EQ(m_renderer->RepaintVideo(&m_window, &painter), S_OK);
    EXPECT_EQ(painter.black, std::vector{m_window.client}) << "black before the first picture";

    ASSERT_TRUE(m_graph.Feed(m_orange));
    ASSERT_TRUE(m_graph.Reach(GST_STATE_PAUSED));
    EXPECT_TRUE(m_window.WaitForChanges(1));
    painter.black.clear();
    EXPECT_EQ(m_renderer->RepaintVideo(&m_window, &painter), S_OK);
    m_window.client = {0, 0, 64, 148};
    EXPECT_EQ(m_renderer->RepaintVideo(&m_window, &painter), S_OK);
    const VideoRect place = {10, 20, 42, 44};
    EXPECT_EQ(m_renderer->SetPosition(&m_window, &place), S_OK);
    EXPECT_EQ(m_renderer->RepaintVideo(&m_window, &painter), S_OK);
    m_window.client = {};
    EXPECT_EQ(m_renderer->SetPosition(&m_window, nullptr), S_OK);
    EXPECT_EQ(m_renderer->RepaintVideo(&m_window, &painter), S_OK) << "a window of no size";
    EXPECT_EQ(painter.targets, (std::vector<VideoRect>{{40, 0, 120, 60}, {0, 50, 64, 98}, place}));
    EXPECT_EQ(painter.black,
              (std::vector<VideoRect>{
                  {0, 0, 40, 60}, {120, 0, 160, 60}, {0, 0, 64, 50}, {0, 98, 64, 148}}));
}

TEST_F(CVMR7, CallsNoWindowThatWasTakenAway) {
    ASSERT_TRUE(m_graph.Feed(m_orange));
    ASSERT_TRUE(m_graph.Reach(GST_STATE_PAUSED));
    auto window = std::make_unique<TestWindow>();
    ASSERT_EQ(m_renderer->SetVideoWindow(window.get(), nullptr), S_OK);
    EXPECT_TRUE(window->WaitForChanges(1)) << "the picture was there before the window";
    ASSERT_TRUE(m_graph.Reach(GST_STATE_PLAYING));
    EXPECT_TRUE(window->WaitForChanges(4));
    ASSERT_EQ(m_renderer->SetVideoWindow(nullptr, nullptr), S_OK);
    const int64_t then = ShownTime().value();
    window.reset();
    EXPECT_TRUE(WaitFor([&] { return ShownTime().value() > then + 1'000'000; }))
        << "the stream goes on without it";
}

TEST_F(CVMR7, EndsItsCallBeforeAWindowGoes) {
    struct Window : IVideoWindow {
        uintptr_t NativeHandle() const override { return 0; }
        VideoRect ClientRect() const override { return {}; }
        void PictureChanged() override {
            meanwhile.Run([this] { EXPECT_EQ(renderer->SetVideoWindow(nullptr, nullptr), S_OK); });
        }
        CVideoRenderer* renderer = nullptr;
        Meanwhile meanwhile;
    } window;
    window.renderer = m_renderer.get();
    ASSERT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
    EXPECT_EQ(m_renderer->DisplayModeChanged(), S_OK);
    EXPECT_FALSE(window.meanwhile.CameBackEarly());
}

TEST_F(CVMR7, IsReadWhileFramesCome) {
    ASSERT_TRUE(m_graph.Feed("videotestsrc ! video/x-raw,format=BGRx,width=16,height=16"));
    Unpace(m_graph.Pipeline());
    ASSERT_TRUE(m_graph.Reach(GST_STATE_PLAYING));
    for (int i = 0; i < 200'000; ++i)
        ASSERT_EQ(m_renderer->ReadPicture([](const VideoPicture&) {}), S_OK);
}

// Its name, "" where it doesn't start. It ends with the test program: not before, since a graphics
// driver's thread may still have a connection, and one that breaks ends the program.
const std::string& XServer() {
    static const std::string name = [] {
        static FILE* server = popen(
            "exec setpriv --pdeathsig TERM Xvfb -displayfd 1 -screen 0 800x600x24 -noreset "
            "-nolisten tcp 2>/dev/null",
            "r");
        int number = 0;  // of the display that the server has taken
        return server && fscanf(server, "%d", &number) == 1 ? ":" + std::to_string(number) : "";
    }();
    return name;
}

constexpr unsigned long kOrange = 0xff8020, kBlack = 0, kBare = 0x0000ff;

// A mapped toplevel window, bare all over.
class XWindow {
public:
    XWindow(int32_t width, int32_t height) : m_display(XOpenDisplay(nullptr)) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = True;
        attributes.background_pixel = kBare;
        window.native =
            XCreateWindow(m_display, DefaultRootWindow(m_display), 0, 0, 1, 1, 0, CopyFromParent,
                          InputOutput, nullptr, CWBackPixel | CWOverrideRedirect, &attributes);
        XMapWindow(m_display, window.native);
        Resize(width, height);
    }
    ~XWindow() {
        XDestroyWindow(m_display, window.native);
        XCloseDisplay(m_display);
    }
    XWindow(const XWindow&) = delete;
    XWindow& operator=(const XWindow&) = delete;

    void Resize(int32_t width, int32_t height) {
        window.client = {0, 0, width, height};
        XResizeWindow(m_display, window.native, static_cast<unsigned>(width),
                      static_cast<unsigned>(height));
        XSync(m_display, False);
    }
    // Waits until the screen shows that colour there, nearly.
    bool Shows(int x, int y, unsigned long colour) const {
        return WaitFor([&] {
            XImage* image = XGetImage(m_display, window.native, x, y, 1, 1, AllPlanes, ZPixmap);
            if (!image) return false;
            const unsigned long pixel = XGetPixel(image, 0, 0);
            XDestroyImage(image);
            bool near = true;
            for (const int shift : {0, 8, 16})
                near &= std::abs(static_cast<int>(pixel >> shift & 0xff) -
                                 static_cast<int>(colour >> shift & 0xff)) <= 10;
            return near;
        });
    }
    // Visible windows below the root, this one included.
    int VisibleToplevels() const {
        Window root, parent, *children = nullptr;
        unsigned count = 0;
        XQueryTree(m_display, DefaultRootWindow(m_display), &root, &parent, &children, &count);
        int visible = 0;
        for (unsigned i = 0; i < count; ++i) {
            XWindowAttributes attributes;
            // Another client's window may go meanwhile: its error is the renderer's to swallow.
            if (XGetWindowAttributes(m_display, children[i], &attributes) &&
                attributes.map_state == IsViewable)
                ++visible;
        }
        if (children) XFree(children);
        return visible;
    }

    TestWindow window;

private:
    Display* m_display;
};

class RendererOrder : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v Xvfb > /dev/null") != 0) GTEST_SKIP() << "there is no Xvfb";
        ASSERT_FALSE(XServer().empty());
        setenv("DISPLAY", XServer().c_str(), 1);
    }
};

class Overlay : public RendererOrder, public testing::WithParamInterface<VideoRendererForm> {
protected:
    void SetUp() override {
        RendererOrder::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        m_graph.emplace(GetParam());
        m_renderer = m_graph->renderer.get();
        // 16 by 9, one frame each 40 ms, orange all over.
        ASSERT_TRUE(
            m_graph->Feed("videotestsrc pattern=solid-color foreground-color=0xffff8020 ! "
                          "video/x-raw,format=I420,width=320,height=180,framerate=25/1"));
    }

    std::optional<TestGraph> m_graph;
    CVideoRenderer* m_renderer = nullptr;
};

TEST_P(Overlay, ShowsThePictureBetweenBarsAtEachSize) {
    XWindow screen(400, 300);
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PAUSED));
    EXPECT_EQ(screen.VisibleToplevels(), 1) << "nothing is shown before there is a window";

    // 400 by 225, from row 37 to 262.
    ASSERT_EQ(m_renderer->SetVideoWindow(&screen.window, nullptr), S_OK);
    const auto fills_the_window = [&] {
        return screen.Shows(200, 150, kOrange) && screen.Shows(2, 40, kOrange) &&
               screen.Shows(397, 259, kOrange) && screen.Shows(200, 34, kBlack) &&
               screen.Shows(200, 265, kBlack);
    };
    EXPECT_TRUE(fills_the_window()) << "paused since before it had a window";
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
    EXPECT_TRUE(m_graph->PlaysOn());
    EXPECT_TRUE(fills_the_window()) << "playing";
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PAUSED));

    // 200 by 112, from row 94 to 206.
    screen.Resize(200, 300);
    EXPECT_EQ(m_renderer->SetPosition(&screen.window, nullptr), S_OK);
    EXPECT_TRUE(screen.Shows(100, 97, kOrange) && screen.Shows(197, 203, kOrange));
    EXPECT_TRUE(screen.Shows(100, 90, kBlack) && screen.Shows(100, 209, kBlack));

    const VideoRect place = {20, 200, 180, 290};
    EXPECT_EQ(m_renderer->SetPosition(&screen.window, &place), S_OK);
    EXPECT_TRUE(screen.Shows(22, 203, kOrange) && screen.Shows(177, 287, kOrange));
    EXPECT_TRUE(screen.Shows(100, 150, kBare)) << "the window's own again";
    EXPECT_EQ(screen.VisibleToplevels(), 1);
    EXPECT_FALSE(m_graph->HasError());
}

TEST_P(Overlay, LeavesAWindowBeforeItGoesAndOpensNoneOfItsOwn) {
    {
        XWindow screen(160, 90);
        ASSERT_EQ(m_renderer->SetVideoWindow(&screen.window, nullptr), S_OK);
        ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
        EXPECT_TRUE(screen.Shows(80, 45, kOrange));
        screen.window.client = {};
        EXPECT_EQ(m_renderer->SetPosition(&screen.window, nullptr), S_OK) << "no size at all";
        EXPECT_TRUE(screen.Shows(80, 45, kBare));
        ASSERT_EQ(m_renderer->SetVideoWindow(nullptr, nullptr), S_OK);
        EXPECT_EQ(m_renderer->SetPosition(&screen.window, nullptr), E_INVALIDARG);
        EXPECT_EQ(m_renderer->SetVideoWindow(&screen.window, nullptr), S_OK);
        ASSERT_EQ(m_renderer->SetVideoWindow(nullptr, nullptr), S_OK);
    }
    XWindow other(10, 10);
    for (int run = 0; run < 2; ++run) {
        EXPECT_TRUE(m_graph->PlaysOn());
        EXPECT_EQ(other.VisibleToplevels(), 1);
        EXPECT_FALSE(m_graph->HasError());
        ASSERT_TRUE(m_graph->Reach(GST_STATE_NULL)) << "the sink gives its window up";
        ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
    }
}

TEST_P(Overlay, ReportsAWindowThatWasDestroyedUnderIt) {
    TestWindow window;
    window.client = {0, 0, 160, 90};
    {
        XWindow screen(160, 90);
        window.native = screen.window.native;
        ASSERT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
        ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
        EXPECT_TRUE(screen.Shows(80, 45, kOrange));
    }
    EXPECT_TRUE(WaitFor([&] { return m_graph->HasError(); }));
    EXPECT_EQ(m_renderer->RepaintVideo(&window, nullptr), E_FAIL);

    ASSERT_TRUE(m_graph->Reach(GST_STATE_NULL));
    XWindow screen(160, 90);
    window.native = screen.window.native;
    EXPECT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PAUSED));
    EXPECT_TRUE(screen.Shows(80, 45, kOrange)) << "another window serves as well";
}

INSTANTIATE_TEST_SUITE_P(Forms, Overlay,
                         testing::Values(VideoRendererForm::CVMR9, VideoRendererForm::CEVR),
                         [](const testing::TestParamInfo<VideoRendererForm>& form) {
                             return form.param == VideoRendererForm::CEVR ? "CEVR" : "CVMR9";
                         });

TEST_F(RendererOrder, TakesTheFirstFormThatCanDraw) {
    const VideoRendererForm overlays[] = {VideoRendererForm::CEVR, VideoRendererForm::CVMR9};
    ASSERT_TRUE(StartGst());
    const GstElementPtr graph = MakeElement("pipeline");
    const auto first = [&](std::span<const VideoRendererForm> forms) -> std::string {
        HRESULT result = S_OK;
        const auto renderer = CreateVideoRenderer(graph.get(), &result, forms);
        EXPECT_EQ(result, renderer ? S_OK : E_FAIL);
        EXPECT_EQ(GST_BIN_NUMCHILDREN(graph.get()), renderer ? 1 : 0);
        return renderer ? renderer->Name() : "none";
    };
    EXPECT_EQ(first(kAllRendererForms), "EVR");
    setenv("GST_GL_PLATFORM", "none", 1);
    EXPECT_EQ(first(kAllRendererForms), "VMR-9") << "the plug-in is there, OpenGL isn't";
    unsetenv("GST_GL_PLATFORM");
    {
        const HiddenFactory gl("glimagesink");
        EXPECT_EQ(first(kAllRendererForms), "VMR-9");
        const HiddenFactory images("ximagesink");  // the server has no video overlay
        EXPECT_EQ(first(kAllRendererForms), "VMR-7");
        const HiddenFactory frames("appsink");
        EXPECT_EQ(first(kAllRendererForms), "none");
    }
    unsetenv("DISPLAY");
    EXPECT_EQ(first(kAllRendererForms), "VMR-7");
    EXPECT_EQ(first(overlays), "none");
}

TEST_F(RendererOrder, IsNoClipOpenWithoutAPlaceForItsPicture) {
    static constexpr VideoRendererForm kForms[] = {VideoRendererForm::CVMR9};
    TestWindow painted;  // no X window
    PlayerController player(PlayerDevices{"fakesink", kForms});
    EXPECT_EQ(player.Open(kData + "/playback/picture_alone.mp4", nullptr, 0, 0, &painted, nullptr),
              E_INVALIDARG);
    EXPECT_EQ(player.GetReason().code, ReasonCode::kNoScreen);
    EXPECT_EQ(player.GetReason().side, ReasonSide::kDevice);
    EXPECT_EQ(player.Graph(), nullptr);
}

}  // namespace
}  // namespace tarn
