#include "base/xp_path.h"

#include <algorithm>
#include <cstdint>

namespace tarn {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Where the extension's dot stands in a file name, or its length.
size_t dot_position(std::string_view name) {
    const size_t dot = name.rfind('.');
    const bool none = dot == std::string_view::npos || dot + 1 == name.size() ||
                      name.find_first_not_of('.') > dot;
    return none ? name.size() : dot;
}

std::string_view name_part(std::string_view path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

// Bytes of the printable character that `text` starts with, 0 for anything else: overlong forms,
// surrogates, what lies past U+10FFFF, and control characters (C0, DEL, C1, line separators,
// directional overrides, with which a name can dress up as another).
size_t character_length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;

    uint32_t code = lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code = code << 6 | (byte(i) & 0x3F);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    const bool control =
        code < 0xA0 || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    return overlong || surrogate || control || code > 0x10FFFF ? 0 : length;
}

}  // namespace

std::string XpPath::FileName(std::string_view path) {
    return std::string(name_part(path));
}

std::string XpPath::Folder(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    const size_t end = path.find_last_not_of('/', slash);
    return end == std::string_view::npos ? "/" : std::string(path.substr(0, end + 1));
}

std::string XpPath::Extension(std::string_view path) {
    const std::string_view name = name_part(path);
    return std::string(name.substr(dot_position(name)));
}

std::string XpPath::Stem(std::string_view path) {
    const std::string_view name = name_part(path);
    return std::string(name.substr(0, dot_position(name)));
}

bool XpPath::HasExtension(std::string_view path, std::string_view extension) {
    const std::string own = Extension(path);
    return std::equal(own.begin(), own.end(), extension.begin(), extension.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

std::string XpPath::Join(std::string_view folder, std::string_view name) {
    if (folder.empty() || name.starts_with('/')) return std::string(name);
    std::string path(folder);
    if (!path.ends_with('/')) path += '/';
    return path.append(name);
}

std::string XpPath::Printable(std::string_view path) {
    std::string text;
    while (!path.empty()) {
        const size_t length = character_length(path);
        text += length > 0 ? path.substr(0, length) : kReplacement;
        path.remove_prefix(length > 0 ? length : 1);
    }
    return text;
}

}  // namespace tarn
