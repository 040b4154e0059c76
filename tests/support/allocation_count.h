// allocation_count.h - how often the present thread has asked for memory or given it back, and a
// way to refuse it.
//
// For a test program that lists allocation_count.cpp among its sources: all calls of malloc and
// its family count, in libraries too. Under a sanitizer, which has a malloc of its own, operator
// new and delete count alone.
#pragma once

#include <cstddef>

namespace tarn {

size_t AllocationCount();
// While on, every allocation of this thread fails.
void FailAllocations(bool fail);

}  // namespace tarn
