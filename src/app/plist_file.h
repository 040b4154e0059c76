// plist_file.h - the pairs of key and text in a small property list file.
//
// The document element is "plist", its first child the dictionary; in that each "key" element is
// followed by a "string" element. Anything else is stepped over, comments included: one between a
// key and its text parts the pair. Entities from outside the file are never fetched.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

// In the file's order, repeated keys included.
using PlistPairs = std::vector<std::pair<std::string, std::string>>;

// A hundred times what our own files take. A larger one is refused before it is read.
inline constexpr uint64_t kMaxPlistBytes = 1 << 20;

// UTF-8, or UTF-16 with its mark. False, with no pairs, for what is not such a file; an empty
// dictionary is one. Texts come as UTF-8 without control characters but tab and line feed.
[[nodiscard]] bool ParsePlist(std::string_view bytes, PlistPairs* pairs);
[[nodiscard]] bool ReadPlist(const std::string& path, PlistPairs* pairs);

// All bytes of an ordinary file that is no larger than the limit above.
[[nodiscard]] bool ReadSmallFile(const std::string& path, std::string* bytes);

}  // namespace tarn
