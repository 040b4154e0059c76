#include "app/format_text.h"

namespace tarn {
namespace {

bool is_conversion(char c) {
    return c == 's' || c == 'd' || c == 'i' || c == 'u';
}

// What stands after a percent sign.
struct Mark {
    size_t length = 0;  // characters after the sign; 0 when it stands for itself
    size_t number = 0;  // the argument's, from 1; 0 for the next one
};

Mark read_mark(std::string_view text) {
    if (text.empty()) return {};
    if (is_conversion(text[0])) return {1, 0};
    if (text[0] < '1' || text[0] > '9') return {};
    const bool typed = text.size() > 2 && text[1] == '$' && is_conversion(text[2]);
    return {typed ? 3u : 1u, static_cast<size_t>(text[0] - '0')};
}

}  // namespace

std::string FormatText(std::string_view format, std::initializer_list<std::string_view> arguments) {
    std::string text;
    size_t next = 1;
    while (!format.empty()) {
        const std::string_view plain = format.substr(0, format.find('%'));
        text += plain;
        format.remove_prefix(plain.size());
        if (format.empty()) break;

        format.remove_prefix(1);
        const Mark mark = read_mark(format);
        if (mark.length == 0) {
            text += '%';
            if (format.starts_with('%')) format.remove_prefix(1);
            continue;
        }
        format.remove_prefix(mark.length);
        const size_t number = mark.number > 0 ? mark.number : next++;
        if (number <= arguments.size()) text += arguments.begin()[number - 1];
    }
    return text;
}

}  // namespace tarn
