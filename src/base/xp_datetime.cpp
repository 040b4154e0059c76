#include "base/xp_datetime.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

namespace tarn {
namespace {

int from_time(time_t seconds, tm* (*split)(const time_t*, tm*), XpDateTime* result) {
    tm parts{};
    if (!split(&seconds, &parts) || parts.tm_year > INT_MAX - 1900) return EOVERFLOW;
    *result = {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
               parts.tm_hour,        parts.tm_min,     parts.tm_sec};
    return 0;
}

bool in_range(const XpDateTime& date) {
    return date.year >= INT_MIN + 1900 && date.month >= 1 && date.month <= 12 && date.day >= 1 &&
           date.day <= 31 && date.hour >= 0 && date.hour <= 23 && date.minute >= 0 &&
           date.minute <= 59 && date.second >= 0 && date.second <= 60;
}

// There and back through the system's calendar: what comes back different does not exist.
int to_time(const XpDateTime& date, time_t (*join)(tm*), tm* (*split)(const time_t*, tm*),
            time_t* seconds) {
    if (!in_range(date)) return EINVAL;
    XpDateTime asked = date;
    asked.second = std::min(date.second, 59);
    tm parts{};
    parts.tm_year = asked.year - 1900;
    parts.tm_mon = asked.month - 1;
    parts.tm_mday = asked.day;
    parts.tm_hour = asked.hour;
    parts.tm_min = asked.minute;
    parts.tm_sec = asked.second;
    parts.tm_isdst = -1;
    const time_t result = join(&parts);
    XpDateTime found;
    if (from_time(result, split, &found) != 0 || found != asked) return EINVAL;
    *seconds = result + (date.second - asked.second);
    return 0;
}

}  // namespace

XpDateTime XpDateTime::NowUtc() {
    XpDateTime now;
    static_cast<void>(FromTimeUtc(time(nullptr), &now));
    return now;
}

XpDateTime XpDateTime::NowLocal() {
    XpDateTime now;
    static_cast<void>(FromTimeLocal(time(nullptr), &now));
    return now;
}

int XpDateTime::FromTimeUtc(time_t seconds, XpDateTime* result) {
    return from_time(seconds, gmtime_r, result);
}

int XpDateTime::FromTimeLocal(time_t seconds, XpDateTime* result) {
    return from_time(seconds, localtime_r, result);
}

int XpDateTime::ToTimeUtc(time_t* seconds) const {
    return to_time(*this, timegm, gmtime_r, seconds);
}

int XpDateTime::ToTimeLocal(time_t* seconds) const {
    return to_time(*this, mktime, localtime_r, seconds);
}

std::string XpDateTime::Text() const {
    char text[80];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute,
             second);
    return text;
}

}  // namespace tarn
