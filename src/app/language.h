// language.h - which of our languages a locale asks for.
#pragma once

#include <string>
#include <string_view>

namespace tarn {

// Without code set and modifier, its parts joined by dashes: "zh-CN" for "zh_CN.UTF-8".
std::string LocaleTag(std::string_view locale);

// The string table's name for a locale's language: "French" for "fr_CA.UTF-8". Chinese is told
// apart by its script where the name has one, else by its territory. Empty for "C", "POSIX" and
// languages without a table.
std::string LanguageOfLocale(std::string_view locale);

}  // namespace tarn
