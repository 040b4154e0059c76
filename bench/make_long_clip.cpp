// make_long_clip - writes a clip of hours with real tables over a hole in the file, to measure on.
#include <cstdio>
#include <cstdlib>

#include "long_clip.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_long_clip HOURS OUT.mp4\n");
        return 2;
    }
    const double seconds = std::atof(argv[1]) * 3600;
    const auto pictures = static_cast<uint32_t>(seconds * 30000 / 1001);
    const auto frames = static_cast<uint32_t>(seconds * 48000 / 1024);
    const tarn::LongClip clip{.tracks = {{.count = pictures, .size = 9000, .reordered = true},
                                         {.handler = "soun",
                                          .timescale = 48000,
                                          .duration = 1024,
                                          .count = frames,
                                          .size = 300,
                                          .per_chunk = 47,
                                          .sync_every = 0}}};
    if (clip.Write(argv[2])) return 0;
    std::fprintf(stderr, "make_long_clip: %s: can't be written\n", argv[2]);
    return 1;
}
