// The forms that draw on an X server by themselves, looked at through the server's pixels.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <ostream>

#include "picture_rig.h"
#include "playback/gst_handles.h"
#include "playback/player_controller.h"
#include "x_server.h"

namespace tarn {

static void PrintTo(VideoRendererForm form, std::ostream* out) {
    *out << (form == VideoRendererForm::CEVR ? "CEVR" : "CVMR9");
}

namespace {

constexpr Colour kOrange{255, 128, 32}, kBlack{0, 0, 0}, kBare{0, 0, 255};

// 16 by 9, one frame each 40 ms, orange all over.
const char kWide[] =
    "videotestsrc pattern=solid-color foreground-color=0xffff8020 ! "
    "video/x-raw,format=I420,width=320,height=180,framerate=25/1";

class OnXServer : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!s_server) s_server = std::make_unique<XServer>();
    }
    void SetUp() override {
        if (!s_server->IsInstalled()) GTEST_SKIP() << "there is no Xvfb";
        ASSERT_TRUE(s_server->Runs());
        setenv("DISPLAY", s_server->Name().c_str(), 1);
    }

    static std::unique_ptr<XServer> s_server;
};
std::unique_ptr<XServer> OnXServer::s_server;

class Overlay : public OnXServer, public testing::WithParamInterface<VideoRendererForm> {
protected:
    void SetUp() override {
        OnXServer::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        m_graph.emplace();
        const VideoRendererForm forms[] = {GetParam()};
        HRESULT result = E_FAIL;
        m_renderer = CreateVideoRenderer(m_graph->Pipeline(), &result, forms);
        ASSERT_EQ(result, S_OK);
        ASSERT_TRUE(m_graph->Feed(*m_renderer, kWide));
    }
    void TearDown() override {
        if (!m_graph) return;
        EXPECT_TRUE(m_graph->Reach(GST_STATE_NULL));
        m_renderer.reset();
    }
    // Waits until the graph has played on for some frames.
    bool PlaysOn() {
        const int64_t then = m_graph->Position();
        return WaitFor([&] { return m_graph->Position() > then + 200; });
    }

    std::optional<TestGraph> m_graph;
    std::unique_ptr<CVideoRenderer> m_renderer;
};

TEST_P(Overlay, ShowsThePictureBetweenBarsAtEachSize) {
    XWindow screen(400, 300);
    TestWindow window;
    window.native = screen.Id();
    window.client = {0, 0, 400, 300};
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PAUSED));
    EXPECT_EQ(screen.VisibleToplevels(), 1) << "nothing is shown before there is a window";

    // 400 by 225, from row 37 to 262.
    ASSERT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
    const auto fills_the_window = [&] {
        return screen.Shows(200, 150, kOrange) && screen.Shows(2, 40, kOrange) &&
               screen.Shows(397, 259, kOrange) && screen.Shows(200, 34, kBlack) &&
               screen.Shows(200, 265, kBlack);
    };
    EXPECT_TRUE(fills_the_window()) << "paused since before it had a window";
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
    EXPECT_TRUE(PlaysOn());
    EXPECT_TRUE(fills_the_window()) << "playing";
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PAUSED));

    // 200 by 112, from row 94 to 206.
    screen.Resize(200, 300);
    window.client = {0, 0, 200, 300};
    EXPECT_EQ(m_renderer->SetPosition(&window, nullptr), S_OK);
    EXPECT_TRUE(screen.Shows(100, 97, kOrange) && screen.Shows(197, 203, kOrange));
    EXPECT_TRUE(screen.Shows(100, 90, kBlack) && screen.Shows(100, 209, kBlack));

    const VideoRect place = {20, 200, 180, 290};
    EXPECT_EQ(m_renderer->SetPosition(&window, &place), S_OK);
    EXPECT_TRUE(screen.Shows(22, 203, kOrange) && screen.Shows(177, 287, kOrange));
    EXPECT_TRUE(screen.Shows(100, 150, kBare)) << "the window's own again";
    EXPECT_EQ(screen.VisibleToplevels(), 1);
    EXPECT_FALSE(m_graph->HasError());
}

TEST_P(Overlay, NeverOpensAWindowOfItsOwn) {
    XWindow other(10, 10);
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
        EXPECT_TRUE(PlaysOn());
        EXPECT_EQ(other.VisibleToplevels(), 1);
        ASSERT_TRUE(m_graph->Reach(GST_STATE_NULL)) << "the sink gives its window up";
    }
}

TEST_P(Overlay, LeavesAWindowBeforeItGoes) {
    {
        XWindow screen(160, 90);
        TestWindow window;
        window.native = screen.Id();
        window.client = {0, 0, 160, 90};
        ASSERT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
        ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
        EXPECT_TRUE(screen.Shows(80, 45, kOrange));
        window.client = {};
        EXPECT_EQ(m_renderer->SetPosition(&window, nullptr), S_OK) << "no size at all";
        EXPECT_TRUE(screen.Shows(80, 45, kBare));
        ASSERT_EQ(m_renderer->SetVideoWindow(nullptr, nullptr), S_OK);
        EXPECT_EQ(m_renderer->SetPosition(&window, nullptr), E_INVALIDARG);
        EXPECT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
        ASSERT_EQ(m_renderer->SetVideoWindow(nullptr, nullptr), S_OK);
    }
    EXPECT_TRUE(PlaysOn());
    EXPECT_FALSE(m_graph->HasError());
}

TEST_P(Overlay, ReportsAWindowThatWasDestroyedUnderIt) {
    TestWindow window;
    window.client = {0, 0, 160, 90};
    {
        XWindow screen(160, 90);
        window.native = screen.Id();
        ASSERT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
        ASSERT_TRUE(m_graph->Reach(GST_STATE_PLAYING));
        EXPECT_TRUE(screen.Shows(80, 45, kOrange));
    }
    EXPECT_TRUE(WaitFor([&] { return m_graph->HasError(); }));
    EXPECT_EQ(m_renderer->RepaintVideo(&window, nullptr), E_FAIL);

    ASSERT_TRUE(m_graph->Reach(GST_STATE_NULL));
    XWindow screen(160, 90);
    window.native = screen.Id();
    EXPECT_EQ(m_renderer->SetVideoWindow(&window, nullptr), S_OK);
    ASSERT_TRUE(m_graph->Reach(GST_STATE_PAUSED));
    EXPECT_TRUE(screen.Shows(80, 45, kOrange)) << "another window serves as well";
}

INSTANTIATE_TEST_SUITE_P(Forms, Overlay,
                         testing::Values(VideoRendererForm::CVMR9, VideoRendererForm::CEVR),
                         [](const testing::TestParamInfo<VideoRendererForm>& form) {
                             return testing::PrintToString(form.param);
                         });

using RendererOrder = OnXServer;

TEST_F(RendererOrder, TakesTheFirstFormThatCanDraw) {
    const VideoRendererForm overlays[] = {VideoRendererForm::CEVR, VideoRendererForm::CVMR9};
    TestGraph graph;
    const auto first = [&](std::span<const VideoRendererForm> forms) -> std::string {
        HRESULT result = S_OK;
        const auto renderer = CreateVideoRenderer(graph.Pipeline(), &result, forms);
        EXPECT_EQ(result, renderer ? S_OK : E_FAIL);
        EXPECT_EQ(GST_BIN_NUMCHILDREN(graph.Pipeline()), renderer ? 1 : 0);
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
    const std::string clip = std::string(TARN_TEST_DATA) + "/playback/picture_alone.mp4";
    EXPECT_EQ(player.Open(clip, nullptr, 0, 0, &painted, nullptr), E_INVALIDARG);
    EXPECT_EQ(player.GetReason().code, ReasonCode::kNoScreen);
    EXPECT_EQ(player.GetReason().side, ReasonSide::kDevice);
    EXPECT_EQ(player.Graph(), nullptr);
}

}  // namespace
}  // namespace tarn
