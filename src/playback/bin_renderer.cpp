#include "playback/bin_renderer.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace tarn {

GstElement* AddConverter(GstElement* bin, const char* factory) {
    constexpr unsigned kMaxThreads = 4;
    GstElement* converter = AddElement(bin, factory);
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    if (converter) g_object_set(converter, "n-threads", std::min(cores, kMaxThreads), nullptr);
    return converter;
}

BinRenderer::~BinRenderer() {
    RemoveFromGraph();
}

HRESULT BinRenderer::AddToGraph(GstElement* graph) {
    if (!graph) return E_POINTER;
    if (!GST_IS_BIN(graph)) return E_INVALIDARG;
    const GstElementPtr same_name(gst_bin_get_by_name(GST_BIN(graph), Name()));
    if (m_bin || same_name) return E_ACCESSDENIED;

    HRESULT result = E_FAIL;
    GstElementPtr bin = Build(&result);
    if (!bin) return result;
    if (!gst_bin_add(GST_BIN(graph), bin.get())) return E_FAIL;
    m_bin = std::move(bin);
    return S_OK;
}

HRESULT BinRenderer::FinishGraph(GstElement* graph) {
    if (!graph) return E_POINTER;
    if (!m_bin) return E_HANDLE;
    const GstPadPtr sink(gst_element_get_static_pad(m_bin.get(), "sink"));
    if (!sink || !gst_pad_is_linked(sink.get())) RemoveFromGraph();
    return S_OK;
}

void BinRenderer::RemoveFromGraph() {
    if (!m_bin) return;
    const GstElementPtr graph(GST_ELEMENT(gst_object_get_parent(GST_OBJECT(m_bin.get()))));
    if (graph) {
        RemoveElement(graph.get(), m_bin.get());
    } else {
        gst_element_set_state(m_bin.get(), GST_STATE_NULL);
    }
    m_bin.reset();
}

}  // namespace tarn
