// Any bytes as a file of settings or texts, and as a text that arguments go into.
#include <cstdlib>
#include <string>

#include "app/format_text.h"
#include "app/language.h"
#include "app/plist_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    const std::string bytes(data, data + size);
    PlistPairs pairs;
    if (!ParsePlist(bytes, &pairs) && !pairs.empty()) abort();
    if (pairs.size() > size) abort();

    // Each of the marks takes two bytes or more and gives one argument at most.
    const std::string argument = "%1%s%%";
    if (FormatText(bytes, {argument, argument}).size() > size * argument.size()) abort();
    if (!bytes.empty() && bytes.find('%') == std::string::npos && FormatText(bytes, {}) != bytes)
        abort();
    if (LanguageOfLocale(bytes).size() > size * 32) abort();
    return 0;
}
