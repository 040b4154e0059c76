#include "cli/times.h"

#include <charconv>

namespace tarn {
namespace {

// A run of 1 to `most_digits` digits and nothing else.
bool parse_number(std::string_view text, size_t most_digits, uint64_t* value) {
    if (text.empty() || text.size() > most_digits) return false;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc() && end == text.data() + text.size();
}

// Takes what stands before the first `mark` off the front; false without one.
bool take_until(std::string_view* text, char mark, std::string_view* before) {
    const size_t at = text->find(mark);
    if (at == std::string_view::npos) return false;
    *before = text->substr(0, at);
    text->remove_prefix(at + 1);
    return true;
}

// "SS" or "SS.m" to "SS.mmm": milliseconds, below a minute.
bool parse_seconds(std::string_view text, uint64_t* ms) {
    uint64_t seconds = 0, fraction = 0;
    std::string_view whole;
    std::string digits;
    if (take_until(&text, '.', &whole)) {
        digits = text;
        if (!parse_number(digits, 3, &fraction)) return false;
        for (size_t n = digits.size(); n < 3; ++n)
            fraction *= 10;
        text = whole;
    }
    if (!parse_number(text, 2, &seconds) || seconds > 59) return false;
    *ms = seconds * 1000 + fraction;
    return true;
}

bool parse(std::string_view text, uint64_t* ms) {
    std::string_view first, second;
    if (!take_until(&text, ':', &first)) return parse_number(text, 10, ms);
    uint64_t hours = 0, minutes = 0, rest = 0;
    if (take_until(&text, ':', &second)) {
        if (!parse_number(first, 4, &hours) || !parse_number(second, 2, &minutes)) return false;
        if (minutes > 59) return false;
    } else if (!parse_number(first, 4, &minutes)) {
        return false;
    }
    if (!parse_seconds(text, &rest)) return false;
    *ms = (hours * 60 + minutes) * 60000 + rest;
    return true;
}

}  // namespace

bool ParseTime(const std::string& text, uint32_t* ms) {
    uint64_t value = 0;
    if (!parse(text, &value) || value > UINT32_MAX) return false;
    *ms = static_cast<uint32_t>(value);
    return true;
}

const CLI::Validator kIsTime(
    [](std::string& text) {
        uint32_t ms = 0;
        return ParseTime(text, &ms)
                   ? std::string()
                   : "'" + text + "' is no time: give milliseconds or [H:]MM:SS[.mmm]";
    },
    "TIME");

}  // namespace tarn
