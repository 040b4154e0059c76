// Arbitrary sample tables, and questions about them in an arbitrary order.
//
// The first two bytes are the length of the questions, which come next in eights: a lookup, a
// budget or a count, and what is asked for. The rest is the payload of a `trak`. What two pools of
// different size answer must be the same, whichever was asked first, and never an internal error.
#include <algorithm>

#include "fuzz_movie.h"
#include "support/table_lookups.h"

namespace {

using namespace tarn;

constexpr size_t kQuestion = 8;

struct Pool {
    Pool(TestHost& h, const Mp4TrackTables& t, uint64_t budget) : host(h), tables(t) {
        host->limitClass2 = host->usedClass2 + budget;
        while (mp4_add_track_cache(host, &list, tables, &cache) != FF4_RET_OK)
            ++host->limitClass2;
    }
    ~Pool() { mp4_free_track_caches(host, &list); }

    Answer AskOne(const uint8_t* question) {
        const auto lookup = static_cast<Lookup>(question[0] % kLookups);
        const uint64_t a = uint64_t{get_be16(question + 2)} << 32 | get_be32(question + 4);
        return Ask({host, host.File(), &tables, cache}, lookup, a, question[1] * 9u);
    }

    TestHost& host;
    const Mp4TrackTables& tables;
    Mp4TrackCacheList list{};
    Mp4TrackCache* cache = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t count = std::min<size_t>(get_be16(data), (size - 2) / kQuestion);
    const uint8_t* questions = data + 2;
    TestHost host(Bytes(questions + count * kQuestion, data + size));
    const uint64_t file_size = host.Content(host.File()).size();

    Mp4TrackTables tables{};
    if (mp4_read_track_tables(host, host.File(), {0, file_size}, file_size, &tables) != FF4_RET_OK)
        return 0;
    std::vector<Answer> answers(count);
    {
        Pool roomy(host, tables, 1 << 20);
        for (size_t i = count; i-- > 0;)
            answers[i] = roomy.AskOne(questions + i * kQuestion);
    }
    Pool tight(host, tables, count % 400);
    for (size_t i = 0; i < count; ++i) {
        const Answer answer = tight.AskOne(questions + i * kQuestion);
        Check(answer == answers[i] && answer.result != FF4_RET_INTERNAL);
    }
    return 0;
}
