// movie_base.h - what every movie object has: a path, the engine's handles, the language that new
// tracks get. One thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "base/reason.h"
#include "movie/engine/movie_file.h"
#include "mp4format/atoms/meta_items.h"

namespace tarn {

// A language of the desktop ("de", "pt_BR.UTF-8") as the file format packs it: three letters of
// ISO 639-2/T, 5 bits each. Anything that is not in the list of languages is English.
uint16_t PackedLanguage(const std::string& locale);

// What a movie object holds of the engine. All of it is let go by CloseEngine.
struct MovieEngineHandles {
    MovieFile file;
    Mp4MetaList* metaTextList = nullptr;
    Mp4MetaList* metaFileList = nullptr;
};

class CMP4MovieBase {
public:
    CMP4MovieBase();
    virtual ~CMP4MovieBase();

    void SetPath(const std::string& path) { m_path = path; }
    const std::string& Path() const { return m_path; }
    // Why the last call that answered a failure did so.
    const Reason& GetReason() const { return m_reason; }
    uint16_t Language() const { return m_language; }
    // The length of the file, -1 without a path or when it can't be had.
    int64_t GetFileSize() const;

protected:
    // May run on a half-open object, and twice.
    void CloseEngine();

    Reason m_reason;
    std::string m_path;
    uint16_t m_language;
    MovieEngineHandles m_engine;
    int64_t m_sizeLimit = 0;  // bytes that a selection may take, 0 for no limit
};

}  // namespace tarn
