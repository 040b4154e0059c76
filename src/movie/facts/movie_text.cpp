#include "movie/facts/movie_text.h"

#include <iconv.h>

namespace tarn {
namespace {

constexpr uint16_t kEncodingUtf16 = 1;

// UTF-16, big-endian. Nothing for bytes that are no such text.
std::optional<std::string> from_utf16(const std::vector<uint8_t>& bytes) {
    const iconv_t converter = iconv_open("UTF-8", "UTF-16BE");
    if (converter == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    std::vector<uint8_t> from = bytes;
    std::string text(from.size() * 2, '\0');  // three bytes at most for each two
    char* in = reinterpret_cast<char*>(from.data());
    char* out = text.data();
    size_t in_left = from.size(), out_left = text.size();
    const size_t result = iconv(converter, &in, &in_left, &out, &out_left);
    iconv_close(converter);
    if (result == static_cast<size_t>(-1)) return std::nullopt;
    text.resize(text.size() - out_left);
    text.resize(text.find_last_not_of('\0') + 1);
    return text;
}

}  // namespace

std::optional<std::string> MetaText(const CMetaDataInfo& item) {
    if (item.encoding != kEncodingUtf16) return std::nullopt;
    return from_utf16(item.data);
}

std::string CodecName(uint32_t code) {
    static constexpr struct {
        uint32_t code;
        const char* name;
    } kNames[] = {
        {fourcc("avc1"), "AVC"},  {fourcc("avc3"), "AVC"},         {fourcc("mp4v"), "MPEG-4"},
        {fourcc("hvc1"), "HEVC"}, {fourcc("hev1"), "HEVC"},        {fourcc("av01"), "AV1"},
        {fourcc("vp09"), "VP9"},  {fourcc("mp4a"), "AAC"},         {fourcc("twos"), "PCM"},
        {fourcc("sowt"), "PCM"},  {fourcc("ac-3"), "AC-3"},        {fourcc("Opus"), "Opus"},
        {fourcc("alac"), "ALAC"}, {fourcc("jpeg"), "Motion JPEG"},
    };
    for (const auto& known : kNames)
        if (known.code == code) return known.name;
    return {};
}

std::string ObjectTypeName(uint8_t type) {
    switch (type) {
        case 0x69:  // MPEG-2 rates
        case 0x6B:  // MPEG-1 rates
            return "MP3";
        case 0xA5:
            return "AC-3";
        case 0xA6:
            return "Enhanced AC-3";
        case 0xA9:
            return "DTS";
        case 0xAD:
            return "Opus";
        case 0xDD:
            return "Vorbis";
        default:
            return {};
    }
}

std::string LanguageText(uint16_t packed) {
    std::string text;
    for (int shift = 10; shift >= 0; shift -= 5)
        text += static_cast<char>((packed >> shift & 0x1F) + 0x60);
    return text;
}

}  // namespace tarn
