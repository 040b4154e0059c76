#include "mp4format/time_math.h"

#include <algorithm>

namespace tarn {
namespace {

__extension__ using Wide = unsigned __int128;
__extension__ using SignedWide = __int128;

constexpr uint64_t kSecondsPerDay = 86400;
constexpr uint64_t kDaysPerCycle = 146097;  // 400 Gregorian years
constexpr uint32_t kEpochYear = 1904;

bool is_leap(uint32_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

uint32_t days_of_year(uint32_t year) {
    return is_leap(year) ? 366 : 365;
}

// month 1 to 12
uint32_t days_of_month(uint32_t year, uint32_t month) {
    constexpr uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap(year) ? 29 : kDays[month - 1];
}

bool is_date(const Mp4Date& d) {
    return d.year >= kEpochYear && d.month >= 1 && d.month <= 12 && d.day >= 1 &&
           d.day <= days_of_month(d.year, d.month) && d.hour < 24 && d.minute < 60 && d.second < 61;
}

int64_t within_reach(SignedWide time) {
    return static_cast<int64_t>(std::clamp<SignedWide>(time, -kFarthestTime, kFarthestTime));
}

}  // namespace

Mp4Result mp4_mul_div(uint64_t value, uint64_t mul, uint64_t div, uint64_t* out) {
    if (!out || div == 0) return FF4_RET_ARGS;
    const Wide quotient = static_cast<Wide>(value) * mul / div;
    if (quotient > UINT64_MAX) return FF4_RET_OVERFLOW;
    *out = static_cast<uint64_t>(quotient);
    return FF4_RET_OK;
}

uint64_t mp4_mul_div_or(uint64_t value, uint64_t mul, uint64_t div, uint64_t otherwise) {
    uint64_t out = 0;
    return mp4_mul_div(value, mul, div, &out) == FF4_RET_OK ? out : otherwise;
}

int64_t mp4_scale_floor(int64_t value, uint32_t mul, uint32_t div) {
    if (div == 0) return 0;
    const SignedWide product = SignedWide{value} * mul;
    return within_reach(product / div - (product % div < 0 ? 1 : 0));
}

int64_t mp4_scale_nearest(int64_t value, uint32_t mul, uint32_t div) {
    if (div == 0) return 0;
    const SignedWide product = SignedWide{value} * mul * 2;
    return within_reach((product + (value < 0 ? -SignedWide{div} : SignedWide{div})) /
                        (SignedWide{div} * 2));
}

Mp4Result mp4_scale_toward_zero(int64_t value, uint32_t mul, uint32_t div, int64_t* out) {
    if (!out || div == 0) return FF4_RET_ARGS;
    const SignedWide quotient = SignedWide{value} * mul / div;
    if (quotient > INT64_MAX || quotient < -INT64_MAX) return FF4_RET_OVERFLOW;
    *out = static_cast<int64_t>(quotient);
    return FF4_RET_OK;
}

Mp4Result mp4_add(uint64_t a, uint64_t b, uint64_t* out) {
    if (!out) return FF4_RET_ARGS;
    return __builtin_add_overflow(a, b, out) ? FF4_RET_OVERFLOW : FF4_RET_OK;
}

Mp4Result mp4_mul(uint64_t a, uint64_t b, uint64_t* out) {
    if (!out) return FF4_RET_ARGS;
    return __builtin_mul_overflow(a, b, out) ? FF4_RET_OVERFLOW : FF4_RET_OK;
}

Mp4Result mp4_date_to_seconds(Mp4Host* host, const Mp4Date& date, uint64_t* seconds) {
    if (!host || !seconds || !is_date(date)) return FF4_RET_ARGS;
    // Whole cycles from the epoch first, then the years of the last cycle one by one.
    const uint32_t cycles = (date.year - kEpochYear) / 400;
    uint64_t days = cycles * kDaysPerCycle;
    for (uint32_t year = kEpochYear + cycles * 400; year < date.year; ++year)
        days += days_of_year(year);
    for (uint32_t month = 1; month < date.month; ++month)
        days += days_of_month(date.year, month);
    days += date.day - 1u;
    *seconds = days * kSecondsPerDay + date.hour * 3600u + date.minute * 60u + date.second;
    return FF4_RET_OK;
}

Mp4Result mp4_seconds_to_date(Mp4Host* host, uint64_t seconds, Mp4Date* date) {
    if (!host || !date) return FF4_RET_ARGS;
    uint64_t days = seconds / kSecondsPerDay;
    const auto rest = static_cast<uint32_t>(seconds % kSecondsPerDay);

    const uint64_t cycles = days / kDaysPerCycle;
    if (cycles > (UINT16_MAX - kEpochYear) / 400) return FF4_RET_OVERFLOW;
    days %= kDaysPerCycle;
    auto year = static_cast<uint32_t>(kEpochYear + cycles * 400);
    for (; days >= days_of_year(year); ++year)
        days -= days_of_year(year);
    if (year > UINT16_MAX) return FF4_RET_OVERFLOW;
    uint32_t month = 1;
    for (; days >= days_of_month(year, month); ++month)
        days -= days_of_month(year, month);

    *date = {static_cast<uint16_t>(year),           static_cast<uint16_t>(month),
             static_cast<uint16_t>(days + 1),       static_cast<uint16_t>(rest / 3600),
             static_cast<uint16_t>(rest / 60 % 60), static_cast<uint16_t>(rest % 60)};
    return FF4_RET_OK;
}

}  // namespace tarn
