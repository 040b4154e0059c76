// xp_path.h - taking paths apart and putting them together.
//
// A path is bytes, meant as UTF-8, its parts separated by slashes; nothing here looks at the
// disk. Names are compared byte by byte, extensions ignore ASCII case.
#pragma once

#include <string>
#include <string_view>

namespace tarn {

class XpPath {
public:
    // Behind the last slash; empty when the path ends with one.
    static std::string FileName(std::string_view path);
    // Before the last slash: "/" for "/a", "." for a bare name.
    static std::string Folder(std::string_view path);
    // With its dot, as written: ".MP4". None for ".hidden" and "name.".
    static std::string Extension(std::string_view path);
    // The file name without its extension.
    static std::string Stem(std::string_view path);
    // `extension` with its dot.
    static bool HasExtension(std::string_view path, std::string_view extension);
    // An absolute `name` stands for itself; an empty folder is the current one.
    static std::string Join(std::string_view folder, std::string_view name);

    // A path or another text of a file for a terminal or JSON: what is not UTF-8, and control
    // characters, become U+FFFD.
    static std::string Printable(std::string_view path);
};

}  // namespace tarn
