// user_locale.h - which language the user wants, by the environment.
#pragma once

#include <string>

namespace tarn {

// The first of LC_ALL, LC_MESSAGES and LANG that says something, as it stands there:
// "pt_BR.UTF-8". Empty when none does.
std::string UserLocale();

}  // namespace tarn
