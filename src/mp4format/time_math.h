// time_math.h - the engine's checked arithmetic on 64-bit quantities, and its calendar.
#pragma once

#include <cstdint>

#include "mp4format/host.h"

namespace tarn {

// value * mul / div, rounded down, by way of a 128-bit product. FF4_RET_ARGS for a zero divisor or
// a null result, FF4_RET_OVERFLOW for a quotient past 64 bits.
Mp4Result mp4_mul_div(uint64_t value, uint64_t mul, uint64_t div, uint64_t* out);
// The same quotient, or `otherwise` where there is none.
uint64_t mp4_mul_div_or(uint64_t value, uint64_t mul, uint64_t div, uint64_t otherwise);

// Times with a sign, from one timescale to another; the name tells which way they are rounded.
// mp4_scale_floor and mp4_scale_nearest (halves away from zero) keep within kFarthestTime, so that
// sums of a few results fit too, and give 0 for a zero divisor.
constexpr int64_t kFarthestTime = INT64_MAX / 8;
int64_t mp4_scale_floor(int64_t value, uint32_t mul, uint32_t div);
int64_t mp4_scale_nearest(int64_t value, uint32_t mul, uint32_t div);
// Refuses as mp4_mul_div does.
Mp4Result mp4_scale_toward_zero(int64_t value, uint32_t mul, uint32_t div, int64_t* out);

// a + b, or FF4_RET_OVERFLOW.
Mp4Result mp4_add(uint64_t a, uint64_t b, uint64_t* out);
// a * b, or FF4_RET_OVERFLOW.
Mp4Result mp4_mul(uint64_t a, uint64_t b, uint64_t* out);

// Gregorian, UTC. second 0 to 60: a leap second is let through.
struct Mp4Date {
    uint16_t year, month, day, hour, minute, second;
};

// Seconds since 1904-01-01 00:00:00, the epoch of the file format. FF4_RET_ARGS for a date that is
// not in the calendar or before 1904. The host is not used; it is part of the engine's call form.
Mp4Result mp4_date_to_seconds(Mp4Host* host, const Mp4Date& date, uint64_t* seconds);
// The inverse. FF4_RET_OVERFLOW for a year past 65535.
Mp4Result mp4_seconds_to_date(Mp4Host* host, uint64_t seconds, Mp4Date* date);

}  // namespace tarn
