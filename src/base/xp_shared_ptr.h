// xp_shared_ptr.h - shared ownership: the last pointer to go deletes the object.
//
// The count changes atomically; the object itself is guarded by nobody.
#pragma once

#include <memory>

namespace tarn {

template <class T>
using XpSharedPtr = std::shared_ptr<T>;

}  // namespace tarn
