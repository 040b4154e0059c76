// hostile_bench [NAME...] - what each command costs on files that are made to be dear, beside what
// ffprobe takes for them in the same run. All families, or those whose name has one of the texts.
//
// Processor seconds and the largest resident memory. Fails where a command takes more than 1 s or
// 64 MB. Needs ffprobe, and room for a few such files in the folder for temporary files.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "hostile_files.h"

namespace {

using namespace tarn;

constexpr double kMostSeconds = 1;
constexpr long kMostKilobytes = 64 << 10;
constexpr rlim_t kPatience = 3;  // processor seconds until a program is ended

struct Cost {
    double seconds = 0;
    long kilobytes = 0;
    bool ended = true;  // by itself
};

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The program alone: this process stays small, since a child's figure begins with its parent's.
Cost run(std::vector<std::string> words) {
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_RDWR);
        for (const int stream : {0, 1, 2})
            dup2(nowhere, stream);
        const rlimit limit{kPatience, kPatience}, size{1u << 30, 1u << 30};
        setrlimit(RLIMIT_CPU, &limit);
        setrlimit(RLIMIT_FSIZE, &size);
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) std::exit(1);
    return {seconds(usage.ru_utime) + seconds(usage.ru_stime), usage.ru_maxrss,
            WIFEXITED(status) && WEXITSTATUS(status) != 127};
}

bool print(const char* command, const Cost& cost) {
    const bool good =
        cost.ended && cost.seconds <= kMostSeconds && cost.kilobytes <= kMostKilobytes;
    std::printf("  %-12s %7.3f s %7.1f MB%s%s\n", command, cost.seconds,
                static_cast<double>(cost.kilobytes) / 1024, cost.ended ? "" : "  ended",
                good ? "" : "  TOO MUCH");
    return good;
}

// In a process of its own, which takes its memory along.
bool write(const HostileFile& file, const std::string& path) {
    const pid_t child = fork();
    if (child == 0) {
        const Bytes bytes = file.make();
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (bytes.size() > kHostileBytes)
            std::fprintf(stderr, "%s: %zu bytes\n", file.name, bytes.size());
        _exit(out.good() && bytes.size() <= kHostileBytes ? 0 : 1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

bool measure(const HostileFile& file, const std::string& folder) {
    const std::string in = folder + "/in" + file.extension, tarn = TARN_BINARY;
    const std::string out = folder + "/out" + file.extension, wave = folder + "/out2.wav";
    if (!write(file, in)) return false;
    const Cost peer = run({"ffprobe", "-v", "quiet", "-show_format", "-show_streams", in});
    std::printf("%s\n  %-12s %7.3f s %7.1f MB%s\n", file.name, "(ffprobe)", peer.seconds,
                static_cast<double>(peer.kilobytes) / 1024, peer.ended ? "" : "  ended");
    const std::vector<std::pair<const char*, std::vector<std::string>>> commands = {
        {"tree", {tarn, "tree", in}},
        {"tree --json", {tarn, "tree", in, "--json"}},
        {"info", {tarn, "info", in}},
        {"info --json", {tarn, "info", in, "--json"}},
        {"pictures", {tarn, "samples", in, "--track", "video"}},
        {"sounds", {tarn, "samples", in, "--track", "audio"}},
        {"check", {tarn, "check", in}},
        {"peaks", {tarn, "peaks", in}},
        {"export", {tarn, "export", in, out}},
        {"cut",
         {tarn, "export", in, folder + "/cut" + file.extension, "--in", "1", "--out", "1500"}},
        {"export --wav", {tarn, "export", in, wave, "--wav"}},
    };
    bool good = true;
    for (const auto& [name, words] : commands) {
        good = print(name, run(words)) && good;
        std::fflush(stdout);
    }
    for (const char* name : {"/out", "/cut"})
        static_cast<void>(std::remove((folder + name + file.extension).c_str()));
    static_cast<void>(std::remove(wave.c_str()));
    static_cast<void>(std::remove(in.c_str()));
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    std::string folder = "/tmp/tarn-bench-XXXXXX";
    if (!mkdtemp(folder.data())) return 1;
    bool good = true;
    for (const HostileFile& file : HostileFiles()) {
        const bool wanted = argc < 2 || std::any_of(argv + 1, argv + argc, [&](const char* text) {
                                return std::string(file.name).find(text) != std::string::npos;
                            });
        if (wanted) good = measure(file, folder) && good;
    }
    static_cast<void>(rmdir(folder.c_str()));
    return good ? 0 : 1;
}
