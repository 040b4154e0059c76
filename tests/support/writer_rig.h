// writer_rig.h - a writer run dry and for real, and what came of it.
#pragma once

#include <gtest/gtest.h>

#include "mp4format/write_options.h"
#include "support/byte_builder.h"
#include "support/fault_check.h"

namespace tarn {

constexpr Mp4WriteOptions kOptions = kWriteAsNeeded;

// write(Mp4Host*, Mp4File*, uint64_t offset, uint64_t* total) is run without a file, then with one
// at an odd offset. Gives the bytes; both runs must count them.
template <typename Write>
Bytes Written(TestHost& host, Write write) {
    constexpr uint64_t kOffset = 5, kBefore = 100;
    Mp4File* file = host.Add({});
    uint64_t dry = kBefore, real = kBefore;
    const uint64_t written = host.BytesWritten();
    EXPECT_EQ(write(host, nullptr, kOffset, &dry), FF4_RET_OK);
    EXPECT_EQ(host.BytesWritten(), written) << "a dry run writes nothing";
    EXPECT_EQ(write(host, file, kOffset, &real), FF4_RET_OK);
    Bytes content = host.Content(file);
    if (!content.empty()) content.erase(content.begin(), content.begin() + kOffset);
    EXPECT_EQ(dry - kBefore, content.size());
    EXPECT_EQ(real - kBefore, content.size());
    return content;
}

}  // namespace tarn
