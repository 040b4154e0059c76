// The three forms of the renderer: the one that keeps frames in memory through its painter, those
// that draw on an X server by themselves through the server's pixels.
#include "playback/video_renderer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "playback/letterbox.h"
#include "player_rig.h"

// Its macros have names that the others use.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace tarn {

namespace {

// A graph that feeds one renderer from a test source: 16 by 9, one frame each 40 ms, orange all
// over.
class TestGraph {
public:
    explicit TestGraph(VideoRendererForm form) {
        if (!StartGst()) std::abort();
        m_pipeline = MakeElement("pipeline");
        const VideoRendererForm forms[] = {form};
        HRESULT result = E_FAIL;
        renderer = CreateVideoRenderer(Pipeline(), &result, forms);
        EXPECT_EQ(result, S_OK);
        GstElement* source = gst_parse_bin_from_description(
            "videotestsrc pattern=solid-color foreground-color=0xffff8020 ! "
            "video/x-raw,format=I420,width=320,height=180,framerate=25/1 ! identity",
            TRUE, nullptr);
        EXPECT_TRUE(gst_bin_add(GST_BIN(Pipeline()), source) &&
                    gst_element_link_pads(source, "src", renderer->Filter(), "sink"));
    }
    ~TestGraph() {
        EXPECT_TRUE(Reach(GST_STATE_NULL));
        renderer.reset();
    }

    GstElement* Pipeline() const { return m_pipeline.get(); }
    [[nodiscard]] bool Reach(GstState state) {
        return gst_element_set_state(Pipeline(), state) != GST_STATE_CHANGE_FAILURE &&
               gst_element_get_state(Pipeline(), nullptr, nullptr, kDeadlineSeconds * GST_SECOND) ==
                   GST_STATE_CHANGE_SUCCESS;
    }
    // An error was reported since the last question.
    [[nodiscard]] bool HasError() const {
        const GstBusPtr bus(gst_element_get_bus(Pipeline()));
        return GstMessagePtr(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR)) != nullptr;
    }
    // Waits until the graph has played for some frames more.
    [[nodiscard]] bool PlaysOn() const {
        gint64 from = 0, now = 0;
        gst_element_query_position(Pipeline(), GST_FORMAT_TIME, &from);
        return WaitFor([&] {
            gst_element_query_position(Pipeline(), GST_FORMAT_TIME, &now);
            return now > from + int64_t{200 * GST_MSECOND};
        });
    }

    std::unique_ptr<CVideoRenderer> renderer;

private:
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

TEST(CVMR7, PaintsBetweenBarsAndFollowsTheWindow) {
    TestGraph graph(VideoRendererForm::CVMR7);
    CVideoRenderer& renderer = *graph.renderer;
    TestWindow window;
    window.client = {0, 0, 160, 45};
    TestPainter painter;
    const auto repaint = [&] { EXPECT_EQ(renderer.RepaintVideo(&window, &painter), S_OK); };
    ASSERT_EQ(renderer.SetVideoWindow(&window, nullptr), S_OK);
    repaint();
    EXPECT_EQ(painter.black, std::vector{window.client}) << "black before the first picture";

    ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
    EXPECT_TRUE(window.WaitForChanges(1));
    painter.black.clear();
    repaint();
    window.client = {0, 0, 64, 136};
    repaint();
    const VideoRect place = {10, 20, 42, 38};
    EXPECT_EQ(renderer.SetPosition(&window, &place), S_OK);
    repaint();
    window.client = {};
    EXPECT_EQ(renderer.SetPosition(&window, nullptr), S_OK);
    repaint();  // a window of no size
    EXPECT_EQ(painter.targets, (std::vector<VideoRect>{{40, 0, 120, 45}, {0, 50, 64, 86}, place}));
    EXPECT_EQ(painter.black,
              (std::vector<VideoRect>{
                  {0, 0, 40, 45}, {120, 0, 160, 45}, {0, 0, 64, 50}, {0, 86, 64, 136}}));
    const auto look = [](const VideoPicture& picture) {
        ASSERT_EQ(picture.width, 320);
        ASSERT_EQ(picture.height, 180);
        EXPECT_EQ(picture.time, 0);
        const uint8_t* last = picture.pixels + 179 * picture.stride + 319 * 4;
        EXPECT_NEAR(last[0], 0x20, 6);
        EXPECT_NEAR(last[1], 0x80, 6);
        EXPECT_NEAR(last[2], 0xff, 6);
    };
    EXPECT_EQ(renderer.ReadPicture(look), S_OK);
    TestWindow late;
    EXPECT_EQ(renderer.SetVideoWindow(&late, nullptr), S_OK);
    EXPECT_EQ(late.changes, 1) << "the picture was there before the window";
}

TEST(CVMR7, EndsItsCallBeforeAWindowGoesAndCallsNoMore) {
    TestGraph graph(VideoRendererForm::CVMR7);
    struct Window : TestWindow {
        void PictureChanged() override {
            ++changes;
            meanwhile.Run([this] { EXPECT_EQ(renderer->SetVideoWindow(nullptr, nullptr), S_OK); });
        }
        CVideoRenderer* renderer = nullptr;
        Meanwhile meanwhile;
    } window;
    window.renderer = graph.renderer.get();
    ASSERT_EQ(window.renderer->SetVideoWindow(&window, nullptr), S_OK);
    EXPECT_EQ(window.renderer->DisplayModeChanged(), S_OK);
    EXPECT_FALSE(window.meanwhile.CameBackEarly());
    const int told = window.changes;
    ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
    Unpace(graph.Pipeline());
    ASSERT_TRUE(graph.Reach(GST_STATE_PLAYING));
    for (int i = 0; i < 200'000; ++i)  // while frames come
        ASSERT_EQ(window.renderer->ReadPicture([](const VideoPicture&) {}), S_OK);
    EXPECT_EQ(window.changes, told);
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

TEST_F(RendererOrder, OverlaysShowThePictureInTheWindowsTheyAreGiven) {
    for (const VideoRendererForm form : {VideoRendererForm::CVMR9, VideoRendererForm::CEVR}) {
        SCOPED_TRACE(static_cast<int>(form));
        TestGraph graph(form);
        CVideoRenderer& renderer = *graph.renderer;
        XWindow screen(400, 300);
        ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
        EXPECT_TRUE(screen.Shows(50, 50, kBare)) << "nothing is above it before it is given";

        // 400 by 225, from row 37 to 262.
        ASSERT_EQ(renderer.SetVideoWindow(&screen.window, nullptr), S_OK);
        EXPECT_TRUE(screen.Shows(2, 40, kOrange) && screen.Shows(397, 259, kOrange));
        EXPECT_TRUE(screen.Shows(200, 34, kBlack) && screen.Shows(200, 265, kBlack));

        // 200 by 112, from row 94 to 206.
        screen.Resize(200, 300);
        EXPECT_EQ(renderer.SetPosition(&screen.window, nullptr), S_OK);
        EXPECT_TRUE(screen.Shows(100, 97, kOrange) && screen.Shows(197, 203, kOrange));
        EXPECT_TRUE(screen.Shows(100, 90, kBlack) && screen.Shows(100, 209, kBlack));

        const VideoRect place = {20, 200, 180, 290};
        EXPECT_EQ(renderer.SetPosition(&screen.window, &place), S_OK);
        EXPECT_TRUE(screen.Shows(22, 203, kOrange) && screen.Shows(177, 287, kOrange));
        EXPECT_TRUE(screen.Shows(100, 150, kBare)) << "the window's own again";

        ASSERT_TRUE(graph.Reach(GST_STATE_PLAYING));
        screen.window.client = {};
        EXPECT_EQ(renderer.SetPosition(&screen.window, nullptr), S_OK) << "no size at all";
        EXPECT_TRUE(screen.Shows(100, 250, kBare));
        ASSERT_EQ(renderer.SetVideoWindow(nullptr, nullptr), S_OK);
        EXPECT_EQ(renderer.SetPosition(&screen.window, nullptr), E_INVALIDARG);
        EXPECT_TRUE(graph.PlaysOn());
        EXPECT_TRUE(screen.Shows(50, 50, kBare)) << "opens no window of its own";
        EXPECT_FALSE(graph.HasError());

        TestWindow window;  // is destroyed under it
        window.client = {0, 0, 160, 90};
        {
            XWindow doomed(160, 90);
            window.native = doomed.window.native;
            ASSERT_EQ(renderer.SetVideoWindow(&window, nullptr), S_OK);
            EXPECT_TRUE(doomed.Shows(80, 45, kOrange));
        }
        EXPECT_TRUE(WaitFor([&] { return graph.HasError(); }));
        EXPECT_EQ(renderer.RepaintVideo(&window, nullptr), E_FAIL);
        ASSERT_TRUE(graph.Reach(GST_STATE_NULL));
        screen.Resize(160, 90);
        EXPECT_EQ(renderer.SetVideoWindow(&screen.window, nullptr), S_OK);
        ASSERT_TRUE(graph.Reach(GST_STATE_PAUSED));
        EXPECT_TRUE(screen.Shows(80, 45, kOrange)) << "another window serves as well";
    }
}

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

TEST_F(RendererOrder, FindsTheFormThatTakesTheWindow) {
    using enum VideoRendererForm;
    static constexpr VideoRendererForm kAll[] = {CEVR, CVMR9, CVMR7}, kOne[] = {CVMR9};
    const std::string clip = kData + "/playback/picture_alone.mp4";
    TestWindow painted;  // no X window
    PlayerController player(PlayerDevices{"fakesink", kAll});
    ASSERT_EQ(player.Open(clip, nullptr, 0, 0, &painted, nullptr), S_OK);
    EXPECT_STREQ(player.Renderer()->Name(), "VMR-7");
    EXPECT_GE(player.Pause(), 0);
    EXPECT_TRUE(painted.WaitForChanges(1));

    PlayerController without(PlayerDevices{"fakesink", kOne});
    EXPECT_EQ(without.Open(clip, nullptr, 0, 0, &painted, nullptr), E_INVALIDARG);
    EXPECT_EQ(without.GetReason().code, ReasonCode::kNoScreen);
    EXPECT_EQ(without.GetReason().side, ReasonSide::kDevice);
    EXPECT_EQ(without.Graph(), nullptr);
}

}  // namespace
}  // namespace tarn
