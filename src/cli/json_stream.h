// json_stream.h - a JSON document that is printed while it is made: its lists may be as long as
// the file that they are about, and none of it is kept.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tarn {

// What comes out is what PrintJson makes of the whole document. One value alone is a document, as
// is one list or object with all in it; within an object each value needs its key.
class JsonStream {
public:
    JsonStream() = default;
    ~JsonStream();
    JsonStream(const JsonStream&) = delete;
    JsonStream& operator=(const JsonStream&) = delete;

    void Open(char bracket);  // [ or {
    void Close();
    JsonStream& Key(const char* name);
    void Value(const nlohmann::ordered_json& value);
    // The same, for very many of them.
    void Number(uint64_t value);
    void Text(const std::string& text);
    // Puts the members of an object into the open one.
    void Members(const nlohmann::ordered_json& object);

private:
    void Begin();
    void NewLine();
    void Flush();

    struct Level {
        char closing;
        bool empty;
    };
    std::vector<Level> m_levels;
    bool m_keyed = false;
    std::string m_text;
};

}  // namespace tarn
