// open_fuzz - opens bytes as a movie, asks everything there is to ask and closes; then takes them
// as the camera's own records: texts, file records, roles, profiles.
#include "fuzz_movie.h"
#include "movie/engine/descriptions.h"
#include "movie/engine/meta_lists.h"
#include "movie/engine/tracks.h"
#include "mp4format/atom_tree.h"
#include "support/atoms.h"

namespace tarn {
namespace {

void ask_list(Mp4ReadSession* session, Mp4MetaList* list) {
    if (!list) return;
    for (uint32_t n = 0; n <= list->count + 1; ++n) {
        const auto text = Ask<Mp4MetaTextEntry>(mp4_get_meta_text, session, list, n);
        Ask<Mp4MetaFileEntry>(mp4_get_meta_file, session, list, n);
        Sane(mp4_get_meta_data(session, list, n, text.size, Bytes(text.size + 1).data()));
    }
    uint32_t index = 0;
    Ask<Mp4MetaTextEntry>(mp4_find_meta_text, session, list, &index);
    Sane(mp4_close_meta_list(session, list));
}

void ask_metadata(Mp4ReadSession* session, uint32_t track) {
    ask_list(session, Ask<Mp4MetaList*>(mp4_open_meta_texts, session, track));
    ask_list(session, Ask<Mp4MetaList*>(mp4_open_meta_files, session, track));
    Ask<Mp4TrackRole>(mp4_get_track_role, session, track);
}

void ask_movie(Mp4ReadSession* session) {
    Ask<Mp4FileType>(mp4_get_file_type, session);
    Ask<uint32_t>(mp4_has_compatible_brand, session, fourcc("isom"));
    const auto header = Ask<Mp4MovieHeaderInfo>(mp4_get_movie_header, session);
    Ask<Mp4Date>(mp4_seconds_to_date, session->host, header.creation);
    Ask<Mp4MovieExtent>(mp4_get_movie_extent, session);
    Ask<uint64_t>(mp4_get_movie_duration, session);
    Ask<Mp4ProfileCounts>(mp4_get_profile_counts, session);
    Ask<uint32_t>(mp4_get_file_profile, session);
    Ask<Mp4VideoProfile>(mp4_get_video_profile, session);
    Ask<Mp4AudioProfile>(mp4_get_audio_profile, session);
    ask_metadata(session, 0);
}

void ask_entries(Mp4ReadSession* session, Mp4SampleEntries* entries) {
    if (!entries) return;
    for (uint32_t n = 0; n <= entries->list.count + 1; ++n) {
        Ask<Mp4VideoEntry>(mp4_get_video_entry, session, entries, n);
        Ask<Mp4AudioEntry>(mp4_get_audio_entry, session, entries, n);
        auto size = Ask<uint32_t>(mp4_get_decoder_config_size, session, entries, n);
        Sane(mp4_get_decoder_config(session, entries, n, size, Bytes(size + 1).data()));
        const auto avc = Ask<Mp4AvcInfo>(mp4_get_avc_config_info, session, entries, n);
        for (uint32_t set = 0; set <= avc.sps_count; ++set) {
            size = Ask<uint32_t>(mp4_get_sps_size, session, entries, n, set);
            Sane(mp4_get_sps(session, entries, n, set, size, Bytes(size + 1).data()));
        }
        for (uint32_t set = 0; set <= avc.pps_count; ++set)
            Ask<uint32_t>(mp4_get_pps_size, session, entries, n, set);
    }
    Sane(mp4_close_sample_entries(session, entries));
}

void ask_track(Mp4ReadSession* session, uint32_t track) {
    Ask<Mp4TrackHeaderInfo>(mp4_get_track_header, session, track);
    Ask<Mp4MediaHeaderInfo>(mp4_get_media_header, session, track);
    Ask<Mp4HandlerInfo>(mp4_get_handler, session, track);
    ask_metadata(session, track);
    if (Sane(mp4_open_track(session, track)) != FF4_RET_OK) return;
    Ask<Mp4TrackFragmentDefaults>(mp4_get_track_fragment_defaults, session, track);
    if (auto* edits = Ask<Mp4EditList*>(mp4_open_edit_list, session, track))
        Sane(mp4_close_edit_list(session, edits));
    if (auto* refs = Ask<Mp4DataRefs*>(mp4_open_data_refs, session, track)) {
        Ask<Mp4DataRefEntry>(mp4_get_data_ref, session, refs, 1);
        Sane(mp4_close_data_refs(session, refs));
    }
    ask_entries(session, Ask<Mp4SampleEntries*>(mp4_open_sample_entries, session, track));
    Sane(mp4_close_track(session, track));
}

}  // namespace
}  // namespace tarn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    const Bytes bytes(data, data + size);
    TestHost host(bytes);
    const auto visit = [](const Mp4TreeNode&) { return FF4_RET_OK; };
    Sane(mp4_visit_atoms(host, host.File(), size, visit, nullptr));
    for (const Bytes& file :
         {bytes, Join(Atom("free"), Uuid("PROF", bytes)), Join(Atom("free"), Uuid("LICI", bytes)),
          Join(Atom("free"), Atom("moov", Uuid("USMT", bytes), Atom("trak", Uuid("USMT", bytes)))),
          Join(Atom("free"), Atom("uuid", bytes))}) {
        FuzzMovie movie(file);
        if (!movie) continue;
        ask_movie(movie);
        const auto tracks = Ask<uint32_t>(mp4_get_track_count, static_cast<Mp4ReadSession*>(movie));
        for (uint32_t track = 1; track <= tracks && track <= 8; ++track)
            ask_track(movie, track);
    }
    return 0;
}
