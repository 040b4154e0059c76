// Any bytes as a file of settings or texts, and as a text that arguments go into.
#include "app/format_text.h"
#include "app/language.h"
#include "app/plist_file.h"
#include "fuzz_movie.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    const std::string bytes(data, data + size), argument = "%1%s%%";
    PlistPairs pairs;
    Check(ParsePlist(bytes, &pairs) || pairs.empty());
    Check(pairs.size() <= size);
    // Each of the marks takes two bytes or more and gives one argument at most.
    Check(FormatText(bytes, {argument, argument}).size() <= size * argument.size());
    Check(bytes.find('%') != std::string::npos || FormatText(bytes, {}) == bytes);
    Check(LanguageOfLocale(bytes).size() <= size * 32);
    return 0;
}
