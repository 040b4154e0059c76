// Lookups in the tables of a clip of four hours and more, with the pool that a session has for
// each of two tracks. The picture track is reordered, so that its 'ctts' has a run for each sample.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "long_clip.h"
#include "mp4format/movie/file_index.h"
#include "mp4format/tables/sample_tables.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

void Check(Mp4Result result) {
    if (result == FF4_RET_OK) return;
    std::fprintf(stderr, "engine result %x\n", result);
    std::exit(1);
}

// One track of a clip, opened through a descriptor.
class OpenTrack {
public:
    OpenTrack(uint32_t samples, uint32_t per_chunk) {
        const std::string path = m_folder.Path("long.mp4");
        const LongClip clip{{{.count = samples, .per_chunk = per_chunk, .reordered = true}}};
        if (!clip.Write(path)) Check(FF4_RET_FILE);
        m_descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);

        Mp4Host* host = nullptr;
        Mp4TrackCache* cache = nullptr;
        Mp4HostCallbacks callbacks;
        mp4_init_fd_callbacks(&callbacks);
        Check(mp4_create_host(callbacks, &host));
        Check(mp4_set_memory_limit(host, true, 0, 0, 0));
        host->limitClass2 /= 2;
        auto* file = reinterpret_cast<Mp4File*>(&m_descriptor);
        uint64_t size = 0;
        Check(host->callbacks.size(file, &size));
        Check(mp4_scan_file(host, file, size, {}, &m_index));
        Check(
            mp4_read_track_tables(host, file, m_index.movie.tracks.head->payload, size, &m_tables));
        Check(mp4_add_track_cache(host, &m_list, m_tables, &cache));
        reader = {host, file, &m_tables, cache};
    }
    ~OpenTrack() {
        mp4_free_track_caches(reader.host, &m_list);
        mp4_free_file_index(reader.host, &m_index);
        mp4_free_host(reader.host);
        close(m_descriptor);
    }
    OpenTrack(const OpenTrack&) = delete;
    OpenTrack& operator=(const OpenTrack&) = delete;

    // All that describes a sample.
    uint64_t Describe(uint32_t n) {
        Mp4TimeRun time{};
        Mp4ChunkPlace place{};
        int32_t composition = 0;
        uint32_t size = 0;
        bool sync = false;
        uint64_t offset = 0, before = 0;
        Check(mp4_lookup_sample_size(reader, n, &size));
        Check(mp4_lookup_sample_time(reader, n, &time));
        Check(mp4_lookup_composition_offset(reader, n, &composition));
        Check(mp4_lookup_is_sync(reader, n, &sync));
        Check(mp4_lookup_chunk(reader, n, &place));
        Check(mp4_lookup_chunk_offset(reader, place.chunk, &offset));
        Check(mp4_lookup_size_sum(reader, place.first_sample, n - place.first_sample, &before));
        return offset + before + size + sync + static_cast<uint64_t>(composition);
    }

    uint32_t SampleAt(uint64_t time) {
        Mp4TimeRun run{};
        Check(mp4_lookup_time_sample(reader, time, &run));
        return run.first_sample + static_cast<uint32_t>((time - run.first_time) / run.sample_delta);
    }

    Mp4TableReader reader{};

private:
    TempDir m_folder;
    int m_descriptor = -1;
    Mp4TrackTables m_tables{};
    Mp4FileIndex m_index{};
    Mp4TrackCacheList m_list{};
};

double ResidentMegabytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1e6;
}

// Arguments: samples, samples in a chunk.
void BM_Walk(benchmark::State& state) {
    const auto samples = static_cast<uint32_t>(state.range(0));
    OpenTrack track(samples, static_cast<uint32_t>(state.range(1)));
    const double before = ResidentMegabytes();
    for (auto _ : state)
        for (uint32_t n = 1; n <= samples; ++n)
            benchmark::DoNotOptimize(track.Describe(n));
    state.SetItemsProcessed(state.iterations() * samples);
    state.counters["grown_MB"] = ResidentMegabytes() - before;
}
BENCHMARK(BM_Walk)->Args({1100000, 15})->Args({2000000, 15})->Args({1100000, 2000});

void BM_RandomTimes(benchmark::State& state) {
    constexpr uint32_t kTimes = 100000;
    const auto samples = static_cast<uint32_t>(state.range(0));
    OpenTrack track(samples, static_cast<uint32_t>(state.range(1)));
    uint64_t duration = 0;
    Check(mp4_lookup_media_duration(track.reader, &duration));
    std::mt19937_64 dice(1);
    for (auto _ : state)
        for (uint32_t i = 0; i < kTimes; ++i)
            benchmark::DoNotOptimize(track.Describe(track.SampleAt(dice() % duration)));
    state.SetItemsProcessed(state.iterations() * kTimes);
}
BENCHMARK(BM_RandomTimes)->Args({1100000, 15})->Args({1100000, 2000});

}  // namespace
}  // namespace tarn

BENCHMARK_MAIN();
