// hostile_files.h - files of at most 4 MB that are made to cost whoever reads them: each is as much
// of one thing as fits.
#pragma once

#include <string>
#include <vector>

#include "support/byte_builder.h"

namespace tarn {

struct HostileFile {
    const char* name;
    const char* extension;
    Bytes (*make)();
};

constexpr size_t kHostileBytes = 4 << 20;

std::vector<HostileFile> HostileFiles();

}  // namespace tarn
