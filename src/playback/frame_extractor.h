// frame_extractor.h - still pictures of a clip: the one that is on the screen at a given time.
//
// For thumbnails and the like; no window, no sound, no device. One thread at a time, any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "playback/dshow_helper.h"

namespace tarn {

// Rows from the top without gaps, 3 bytes a pixel: red, green, blue. Pixels are square.
struct StillPicture {
    int32_t width = 0, height = 0;
    std::vector<uint8_t> rgb;
};

class CFrameExtractor : public DShowHelper {
public:
    // Opens a movie. Pictures are made to fit into the box with their shape kept; 0 by 0 leaves
    // them as large as they are. E_FAIL, with a reason, for a clip that has no picture or none
    // that can be decoded.
    HRESULT Open(const std::string& path, int32_t mostWidth = 0, int32_t mostHeight = 0);

    // `position` in 100-nanosecond units, held within the clip. E_FAIL, with a reason, when the
    // place can't be decoded; the extractor can be asked for another one then.
    HRESULT GetFrame(int64_t position, StillPicture* picture);

    HRESULT ReleaseGraph() override;

private:
    HRESULT Build(const std::string& path, int32_t mostWidth, int32_t mostHeight);

    GstElement* m_pRenderer = nullptr;  // "Null Renderer", of the graph
};

}  // namespace tarn
