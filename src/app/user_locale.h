// user_locale.h - which language the user wants, by the environment.
#pragma once

#include <string>
#include <string_view>

namespace tarn {

// The first of LC_ALL, LC_MESSAGES and LANG that says something, as it stands there:
// "pt_BR.UTF-8". Empty when none does.
std::string UserLocale();

// Without code set and modifier, its parts joined by dashes: "zh-CN" for "zh_CN.UTF-8".
std::string LocaleTag(std::string_view locale);

// The string table's name for a locale's language: "French" for "fr_CA.UTF-8". Chinese is told
// apart by its script where the name has one, else by its territory. Empty for "C", "POSIX" and
// languages without a table.
std::string LanguageOfLocale(std::string_view locale);

}  // namespace tarn
