// times.h - times on the command line: "12500" (milliseconds) or "[H:]MM:SS[.mmm]".
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

namespace tarn {

// False for anything else, and for a time past the largest number of milliseconds in 32 bits.
bool ParseTime(const std::string& text, uint32_t* ms);

// For options that take a time.
extern const CLI::Validator kIsTime;

}  // namespace tarn
