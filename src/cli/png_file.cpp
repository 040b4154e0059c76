#include "cli/png_file.h"

#include <png.h>

#include <cerrno>

#include "base/xp_output_file.h"

namespace tarn {
namespace {

// The encoded picture; empty when it can't be made.
std::vector<uint8_t> encode(const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = bytes.size();
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.rgb.data(), 0, nullptr))
        size = 0;
    bytes.resize(size);
    return bytes;
}

}  // namespace

int WritePng(const std::string& path, const Picture& picture) {
    const std::vector<uint8_t> bytes = encode(picture);
    if (bytes.empty()) return ENOMEM;
    XpOutputFile output;
    uint64_t done = 0;
    int error = output.Create(path);
    if (error == 0) error = output.File().Write(bytes.data(), bytes.size(), &done);
    return error == 0 ? output.Commit() : error;
}

}  // namespace tarn
