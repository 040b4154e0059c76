// fault_check.h - every call of a host failed in turn, as each reader and writer has to bear it.
#pragma once

#include <gtest/gtest.h>

#include "support/test_host.h"

namespace tarn {

// Runs `step(TestHost&)` over `content` with each call of these kinds at fault in turn. A failed
// allocation must be told as such, any other call as the file's, and no block may stay out.
template <typename Step>
void ExpectFaultsTold(std::initializer_list<HostCall> calls, const Bytes& content, Step step,
                      uint64_t least = 1) {
    for (const HostCall call : calls)
        for (const Fault fault : {Fault::kFail, Fault::kShort}) {
            const bool moves = call == HostCall::kRead || call == HostCall::kWrite;
            if (fault == Fault::kShort && !moves) continue;
            const Mp4Result due = call == HostCall::kAlloc ? FF4_RET_NOMEM : FF4_RET_FILE;
            uint64_t met = 0;
            for (bool at_fault = true; at_fault; met += at_fault) {
                SCOPED_TRACE(testing::Message() << "call " << int(call) << ", " << met + 1);
                TestHost host(content);
                host.FailAt(call, met + 1, fault);
                const Mp4Result result = step(host);
                at_fault = host.FaultMet();
                EXPECT_EQ(result, at_fault ? due : FF4_RET_OK);
                EXPECT_EQ(host.LiveBlocks(), 0u);
                host.FreeLiveBlocks();
            }
            EXPECT_GE(met, least) << "call " << int(call);
        }
}

}  // namespace tarn
