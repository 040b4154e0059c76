#include "playback/video_renderer.h"

#include <new>

#include "playback/cevr.h"
#include "playback/cvmr7.h"
#include "playback/cvmr9.h"

namespace tarn {
namespace {

std::unique_ptr<CVideoRenderer> MakeRenderer(VideoRendererForm form) {
    switch (form) {
        case VideoRendererForm::CEVR:
            return std::unique_ptr<CVideoRenderer>(new (std::nothrow) CEVR);
        case VideoRendererForm::CVMR9:
            return std::unique_ptr<CVideoRenderer>(new (std::nothrow) CVMR9);
        case VideoRendererForm::CVMR7:
            return std::unique_ptr<CVideoRenderer>(new (std::nothrow) CVMR7);
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<CVideoRenderer> CreateVideoRenderer(GstElement* graph, HRESULT* result,
                                                    std::span<const VideoRendererForm> forms) {
    HRESULT last = E_FAIL;
    std::unique_ptr<CVideoRenderer> renderer;
    for (const VideoRendererForm form : forms) {
        renderer = MakeRenderer(form);
        last = renderer ? renderer->AddToGraph(graph) : E_OUTOFMEMORY;
        if (!renderer || !Failed(last)) break;
        renderer.reset();
    }
    if (result) *result = last;
    return renderer;
}

}  // namespace tarn
