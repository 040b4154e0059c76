// allocation_count.h - how often this test program has called operator new.
#pragma once

#include <cstddef>

namespace tarn {

size_t AllocationCount();

}  // namespace tarn
