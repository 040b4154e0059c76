#include "cli/json_stream.h"

#include <algorithm>
#include <charconv>
#include <iostream>

namespace tarn {
namespace {

constexpr size_t kMostKept = 1 << 16;  // bytes

std::string dump(const nlohmann::ordered_json& value) {
    return value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Whether a text stands for itself between quotation marks.
bool is_plain(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= ' ' && c < 0x7F && c != '"' && c != '\\'; });
}

}  // namespace

JsonStream::~JsonStream() {
    m_text += '\n';
    Flush();
}

void JsonStream::Open(char bracket) {
    Begin();
    m_text += bracket;
    m_levels.push_back({bracket == '[' ? ']' : '}', true});
}

void JsonStream::Close() {
    const Level level = m_levels.back();
    m_levels.pop_back();
    if (!level.empty) NewLine();
    m_text += level.closing;
}

JsonStream& JsonStream::Key(const char* name) {
    Begin();
    m_text += '"';
    m_text += name;
    m_text += "\": ";
    m_keyed = true;
    return *this;
}

void JsonStream::Value(const nlohmann::ordered_json& value) {
    Begin();
    for (const char c : dump(value)) {
        if (c == '\n') {
            NewLine();  // of the layout: those within texts are escaped
        } else {
            m_text += c;
        }
    }
}

void JsonStream::Number(uint64_t value) {
    Begin();
    char digits[24];
    m_text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

void JsonStream::Text(const std::string& text) {
    if (!is_plain(text)) return Value(text);
    Begin();
    m_text += '"';
    m_text += text;
    m_text += '"';
}

void JsonStream::Members(const nlohmann::ordered_json& object) {
    for (const auto& [key, value] : object.items())
        Key(key.c_str()).Value(value);
}

// Before anything that is put: what parts it from the one before.
void JsonStream::Begin() {
    if (m_text.size() > kMostKept) Flush();
    if (m_levels.empty() || m_keyed) {
        m_keyed = false;
        return;
    }
    if (!m_levels.back().empty) m_text += ',';
    m_levels.back().empty = false;
    NewLine();
}

void JsonStream::NewLine() {
    m_text += '\n';
    m_text.append(2 * m_levels.size(), ' ');
}

void JsonStream::Flush() {
    std::cout << m_text;
    m_text.clear();
}

}  // namespace tarn
