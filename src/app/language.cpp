#include "app/language.h"

#include <algorithm>

namespace tarn {
namespace {

constexpr struct {
    std::string_view code, language;
} kLanguages[] = {
    {"en", "EnglishUS"},
    {"ja", "Japanese"},
    {"fr", "French"},
    {"de", "German"},
    {"es", "SpanishModern"},
    {"ko", "Korean"},
    {"pt", "PortugueseBrazilian"},
};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// `tag` is in lower case.
bool has_part(std::string_view tag, std::string_view part) {
    while (!tag.empty()) {
        const std::string_view first = tag.substr(0, tag.find('-'));
        if (first == part) return true;
        tag.remove_prefix(std::min(first.size() + 1, tag.size()));
    }
    return false;
}

bool is_traditional(std::string_view tag) {
    if (has_part(tag, "hant")) return true;
    if (has_part(tag, "hans")) return false;
    return has_part(tag, "tw") || has_part(tag, "hk") || has_part(tag, "mo");
}

}  // namespace

std::string LocaleTag(std::string_view locale) {
    std::string tag(locale.substr(0, locale.find_first_of(".@")));
    std::replace(tag.begin(), tag.end(), '_', '-');
    return tag;
}

std::string LanguageOfLocale(std::string_view locale) {
    std::string tag = LocaleTag(locale);
    std::transform(tag.begin(), tag.end(), tag.begin(), lower);
    const std::string_view code = std::string_view(tag).substr(0, tag.find('-'));
    if (code == "zh") return is_traditional(tag) ? "Chinese-Taiwan" : "Chinese-PRChina";
    for (const auto& entry : kLanguages)
        if (code == entry.code) return std::string(entry.language);
    return "";
}

}  // namespace tarn
