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
    for (const VideoRendererForm form : forms) {
        std::unique_ptr<CVideoRenderer> renderer = MakeRenderer(form);
        if (!renderer) {
            last = E_OUTOFMEMORY;
            break;
        }
        last = renderer->AddToGraph(graph);
        if (!Failed(last)) {
            if (result) *result = last;
            return renderer;
        }
    }
    if (result) *result = last;
    return nullptr;
}

}  // namespace tarn
