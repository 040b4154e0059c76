// cli_bench - the program beside ffmpeg and ffprobe doing the same work in the same run.
//
// Each pair of commands takes turns; the fastest of the runs counts. Needs ffmpeg, and about 200 MB
// in the folder for temporary files.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int kRuns = 3;

struct Cost {
    double seconds = 1e9;
    long kilobytes = 0;  // resident, the largest of the runs
};

// Runs a command under the shell; a failing one ends the benchmark.
void run(const std::string& command, Cost* cost) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
        std::fprintf(stderr, "cli_bench: failed: %s\n", command.c_str());
        std::exit(1);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    cost->seconds = std::min(cost->seconds, took.count());
    cost->kilobytes = std::max(cost->kilobytes, usage.ru_maxrss);
}

void compare(const char* what, const std::string& ours, const std::string& theirs) {
    Cost us, them;
    for (int n = 0; n < kRuns; ++n) {
        run(ours, &us);
        run(theirs, &them);
    }
    std::printf("%-46s ours %7.3f s %6.1f MB   peer %7.3f s %6.1f MB   ours/peer %.3f\n", what,
                us.seconds, static_cast<double>(us.kilobytes) / 1024, them.seconds,
                static_cast<double>(them.kilobytes) / 1024, us.seconds / them.seconds);
}

void make(const std::string& command) {
    Cost ignored;
    run(command, &ignored);
}

// Ten minutes of moving pictures and a chord over noise.
std::string music_clip(const std::string& folder) {
    const std::string clip = folder + "/music.mp4";
    make(
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=640x360:r=25:d=600 -f lavfi -i "
        "'aevalsrc=0.3*sin(440*2*PI*t)+0.2*sin(660*2*PI*t)+0.1*random(0)|"
        "0.3*sin(550*2*PI*t)+0.1*random(1):s=48000:d=600' "
        "-c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p -c:a aac -b:a 128k " +
        clip);
    return clip;
}

}  // namespace

int main() {
    std::string folder = "/tmp/tarn-bench-XXXXXX";
    if (!mkdtemp(folder.data())) return 1;
    const std::string tarn = TARN_BINARY, q = " >/dev/null 2>&1";

    const std::string hours = folder + "/hours.mp4";
    make(std::string(MAKE_LONG_CLIP) + " 4 " + hours);
    for (const char* track : {"video", "audio"}) {
        compare((std::string("list 4 hours, ") + track).c_str(),
                tarn + " samples " + hours + " --track " + track + " >" + folder + "/ours.txt",
                "ffprobe -v quiet -show_packets -select_streams " + std::string(1, track[0]) + " " +
                    hours + " >" + folder + "/theirs.txt");
    }
    std::remove(hours.c_str());

    const std::string clip = music_clip(folder), ours = folder + "/ours.mp4";
    const std::string treated =
        "ffmpeg -v error -y -i " + clip +
        " -c:v copy -af 'bass=g=6,treble=g=-3,"
        "aecho=0.8:0.7:60|120:0.4|0.3,acompressor=threshold=0.1:ratio=4,afade=d=3' "
        "-c:a aac -b:a 128k " +
        folder + "/theirs.mp4";
    compare("save 10 minutes, all effects",
            "sh -c 'rm -f " + ours + "; exec " + tarn + " export " + clip + " " + ours +
                " --bass 40 --treble -20 --reverb hall-mid --compressor heavy "
                "--fade" +
                q + "'",
            treated);
    compare("save 10 minutes, sound as it is",
            "sh -c 'rm -f " + ours + "; exec " + tarn + " export " + clip + " " + ours + q + "'",
            "ffmpeg -v error -y -i " + clip + " -c:v copy -c:a aac -b:a 128k " + folder +
                "/theirs.mp4");
    make("rm -r " + folder);
    return 0;
}
