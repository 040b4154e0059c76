#include "movie/umc/av_library.h"

#include <dlfcn.h>

#include <optional>
#include <string>

namespace tarn::UMC {
namespace {

// The version is that of the headers: records of another one are laid out in another way. Never let
// go again, as codecs may live until the program ends.
void* open_library(const char* name, int major) {
    std::string file(name);
    file.append(".so.").append(std::to_string(major));
    return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
}

std::optional<AvLibrary> load() {
    void* const avutil = open_library("libavutil", LIBAVUTIL_VERSION_MAJOR);
    void* const swresample = open_library("libswresample", LIBSWRESAMPLE_VERSION_MAJOR);
    void* const avcodec = open_library("libavcodec", LIBAVCODEC_VERSION_MAJOR);
    if (!avutil || !swresample || !avcodec) return std::nullopt;
    AvLibrary library;
    bool complete = true;
    const auto find = [&](void* from, const char* name, auto* call) {
        *call = reinterpret_cast<std::remove_pointer_t<decltype(call)>>(dlsym(from, name));
        complete = complete && *call;
    };
#define TARN_FIND_CODEC(name) find(avcodec, #name, &library.name);
#define TARN_FIND_UTIL(name) find(avutil, #name, &library.name);
#define TARN_FIND_RESAMPLE(name) find(swresample, #name, &library.name);
    TARN_AVCODEC_CALLS(TARN_FIND_CODEC)
    TARN_AVUTIL_CALLS(TARN_FIND_UTIL)
    TARN_SWRESAMPLE_CALLS(TARN_FIND_RESAMPLE)
#undef TARN_FIND_CODEC
#undef TARN_FIND_UTIL
#undef TARN_FIND_RESAMPLE
    return complete ? std::optional(library) : std::nullopt;
}

}  // namespace

const AvLibrary* FindAvLibrary() {
    static const std::optional<AvLibrary> library = load();
    return library ? &*library : nullptr;
}

}  // namespace tarn::UMC
