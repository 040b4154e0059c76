// xp_datetime.h - a date and time of day, local or UTC, to the second.
#pragma once

#include <ctime>
#include <string>

namespace tarn {

struct XpDateTime {
    int year = 1970;
    int month = 1;  // 1 to 12
    int day = 1;    // 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;  // 60 in a leap second

    static XpDateTime NowUtc();
    static XpDateTime NowLocal();

    // EOVERFLOW when the year does not fit.
    [[nodiscard]] static int FromTimeUtc(time_t seconds, XpDateTime* result);
    [[nodiscard]] static int FromTimeLocal(time_t seconds, XpDateTime* result);

    // EINVAL for a date or time that does not exist: month 13, 29 February 2023, an hour that a
    // clock change skips. Of an hour that comes twice either may be meant.
    [[nodiscard]] int ToTimeUtc(time_t* seconds) const;
    [[nodiscard]] int ToTimeLocal(time_t* seconds) const;

    // "2026-05-31 20:15:00": sorts as time does.
    std::string Text() const;

    bool operator==(const XpDateTime&) const = default;
};

}  // namespace tarn
