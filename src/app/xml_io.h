// xml_io.h - the texts that the user reads, by key, and what depends on their language.
//
// They lie in Strings.xml beside the program, or in the program's share folder; the file's own key
// "Language" names its language. Beside it lie Version.txt and the tables of all languages, in
// strings/<Language>/Strings.xml. No failure is reported: without a file every text is empty.
// Nothing throws. Read-only once made, and so free to use on every thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace tarn {

// The interface font as a toolkit takes it. A negative height is that of the characters, in pixels.
struct InterfaceFont {
    std::string face;
    int height = 0;
};

class XMLIO {
public:
    // The program's one table: in the user's language where there is a table for it, else the one
    // that was chosen for this installation. Made at the first call.
    static std::shared_ptr<XMLIO> GetInstance();

    XMLIO();
    // The table of `language` below `folder`; the folder's own Strings.xml when that can't be read
    // or no language is asked for. A folder whose path holds a '*' counts as empty.
    explicit XMLIO(const std::string& folder, std::string_view language = {});

    // As the table names itself: "French". Empty without a table.
    const std::string& GetLanguage() const { return m_language; }
    // Empty for a key that the table lacks. Arguments go in with FormatText.
    std::string GetString(std::string_view key) const;
    // "fr-FR" for "French"; empty for a language that is not one of ours to the letter.
    std::string GetLocaleName() const;
    // True where the user's locale, not the table, is that of mainland China.
    static bool IsChineseLocale();

    // The folder of the running program, and the one with its texts, help and version: the first
    // of the program's folder and its share folder with a Strings.xml. Without a closing slash;
    // empty where the system doesn't say.
    static std::string GetModuleFolder();
    static std::string GetResourceFolder();

    // For a screen of `dpi` dots per inch, `delta` larger at 96 dpi than the usual 12 pixels.
    InterfaceFont MakeFont(int dpi, int delta = 0) const;
    // The first line of Version.txt.
    std::string GetVersionText() const;

private:
    bool Load(const std::string& path);

    std::string m_folder;
    std::string m_language;
    std::map<std::string, std::string, std::less<>> m_strings;
    bool m_loaded = false;
};

}  // namespace tarn
