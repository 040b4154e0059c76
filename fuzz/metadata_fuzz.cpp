// metadata_fuzz - takes bytes as the camera's own records: texts, file records, roles, profiles.
#include "fuzz_movie.h"
#include "movie/engine/meta_lists.h"
#include "movie/engine/tracks.h"
#include "support/atoms.h"

namespace tarn {
namespace {

void ask_list(Mp4ReadSession* session, Mp4MetaList* list) {
    Mp4MetaTextEntry text{};
    Mp4MetaFileEntry file{};
    uint32_t index = 0;
    for (uint32_t n = 0; n <= list->count + 1; ++n) {
        if (Sane(mp4_get_meta_text(session, list, n, &text)) != FF4_RET_OK) continue;
        Sane(mp4_get_meta_file(session, list, n, &file));
        Bytes data(text.size + 1);
        Sane(mp4_get_meta_data(session, list, n, text.size, data.data()));
    }
    Sane(mp4_find_meta_text(session, list, &index, &text));
    Sane(mp4_close_meta_list(session, list));
}

void ask_all(Mp4ReadSession* session) {
    Mp4MetaList* list = nullptr;
    for (uint32_t track = 0; track <= 1; ++track) {
        if (Sane(mp4_open_meta_texts(session, track, &list)) == FF4_RET_OK) ask_list(session, list);
        if (Sane(mp4_open_meta_files(session, track, &list)) == FF4_RET_OK) ask_list(session, list);
    }
    Mp4TrackRole role{};
    Mp4ProfileCounts counts{};
    Mp4VideoProfile video{};
    Mp4AudioProfile audio{};
    uint32_t profile = 0;
    Sane(mp4_get_track_role(session, 1, &role));
    Sane(mp4_get_profile_counts(session, &counts));
    Sane(mp4_get_file_profile(session, &profile));
    Sane(mp4_get_video_profile(session, &video));
    Sane(mp4_get_audio_profile(session, &audio));
}

}  // namespace
}  // namespace tarn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    const Bytes bytes(data, data + size);
    // Whatever the bytes are meant as, they are tried in each of their places.
    for (const Bytes& movie :
         {Join(Atom("free"), Atom("moov", Uuid("USMT", bytes), Atom("trak", Uuid("USMT", bytes)))),
          Join(Atom("free"), Uuid("PROF", bytes)), Join(Atom("free"), Uuid("LICI", bytes)),
          Join(Atom("free"), Atom("uuid", bytes))}) {
        FuzzMovie session(movie);
        if (session) ask_all(session);
    }
    return 0;
}
