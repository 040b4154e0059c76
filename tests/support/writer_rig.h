// writer_rig.h - a writer run dry and for real, and what came of it.
#pragma once

#include <gtest/gtest.h>

#include "mp4format/atom_writer.h"
#include "support/byte_builder.h"
#include "support/fault_check.h"

namespace tarn {

constexpr Mp4WriteOptions kOptions = kWriteAsNeeded;

// write(Mp4Sink&, record) is run without a file, then with one at an odd offset. Gives the bytes;
// both runs must count them.
template <typename Write, typename Record>
Bytes Written(TestHost& host, Write write, const Record& record,
              const Mp4WriteOptions& options = kOptions) {
    constexpr uint64_t kOffset = 5;
    Mp4File* file = host.Add({});
    Mp4Sink dry{host, options, nullptr, kOffset}, real{host, options, file, kOffset};
    const uint64_t written = host.BytesWritten();
    EXPECT_EQ(write(dry, record), FF4_RET_OK);
    EXPECT_EQ(host.BytesWritten(), written) << "a dry run writes nothing";
    EXPECT_EQ(write(real, record), FF4_RET_OK);
    Bytes content = host.Content(file);
    if (!content.empty()) content.erase(content.begin(), content.begin() + kOffset);
    EXPECT_EQ(dry.position - kOffset, content.size());
    EXPECT_EQ(real.position - kOffset, content.size());
    return content;
}

// What a writer answers when it only counts.
template <typename Write, typename Record>
Mp4Result DryRun(TestHost& host, Write write, const Record& record,
                 const Mp4WriteOptions& options = kOptions) {
    Mp4Sink sink{host, options, nullptr, 0};
    return write(sink, record);
}

}  // namespace tarn
