#include "base/user_locale.h"

#include <cstdlib>

namespace tarn {

std::string UserLocale() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && value[0] != '\0') return value;
    }
    return {};
}

}  // namespace tarn
