// make_seeds FOLDER - writes what the fuzz targets start from, one folder a target.
#include <filesystem>
#include <fstream>

#include "support/movie_builder.h"

namespace {

using namespace tarn;

void write(const std::filesystem::path& folder, const std::string& name, const Bytes& bytes) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::filesystem::path root = argv[1];
    const auto movie = [&](const std::string& name, const Bytes& bytes) {
        write(root / "open", name, bytes);
        write(root / "samples", name, Join(Bytes{1}, bytes));
        write(root / "track_feed", name, Join(Bytes(8, 0), bytes));
        write(root / "waveform", name, bytes);
    };
    movie("rich", RichMovie(false).Build());
    movie("rich_fragments", RichMovie(true).Build());
    for (uint64_t seed = 1; seed <= 24; ++seed)
        movie("random" + std::to_string(seed), RandomMovie(seed).Build());

    write(root / "open", "texts",
          Join(Mtdt({{.type = 1, .encoding = 1, .data = {0, 65, 0, 0}}, {.data = Be32({1, 0})}}),
               Mtdf({{.type = 119, .encoding = 2, .data = {1, 2, 3}}})));
    write(root / "open", "profiles", Join(Be32({0, 3}), Fprf(), Aprf(), Vprf()));
    write(root / "open", "others", Join(Atom("MTSM", Bytes(4, 1)), Atom("UASI"), Atom("MVPL")));
    return 0;
}
