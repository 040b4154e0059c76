// movie_text.h - facts about movies in words.
#pragma once

#include <optional>
#include <string>

#include "movie/objects/movie_info.h"

namespace tarn {

// A metadata item's text in UTF-8; nothing for data that is no text.
std::optional<std::string> MetaText(const CMetaDataInfo& item);

// "AVC" for 'avc1', "AAC" for 'mp4a'; empty for a code without a common name.
std::string CodecName(uint32_t code);

// "MP3" for 0x6B: sound other than AAC by the object type of its decoder configuration. Empty for
// AAC and for what has no common name.
std::string ObjectTypeName(uint8_t type);

// "eng" for a packed language.
std::string LanguageText(uint16_t packed);

}  // namespace tarn
