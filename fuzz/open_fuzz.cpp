// open_fuzz - opens bytes as a movie, asks everything there is to ask and closes.
#include "fuzz_movie.h"
#include "movie/engine/descriptions.h"
#include "movie/engine/tracks.h"
#include "mp4format/atom_tree.h"

namespace tarn {
namespace {

void ask_movie(Mp4ReadSession* session) {
    Mp4FileType type{};
    Mp4MovieHeaderInfo header{};
    Mp4MovieExtent extent{};
    Mp4Date date{};
    uint32_t brand = 0;
    uint64_t duration = 0;
    Sane(mp4_get_file_type(session, &type));
    Sane(mp4_has_compatible_brand(session, fourcc("isom"), &brand));
    if (Sane(mp4_get_movie_header(session, &header)) == FF4_RET_OK)
        Sane(mp4_seconds_to_date(session->host, header.creation, &date));
    Sane(mp4_get_movie_extent(session, &extent));
    Sane(mp4_get_movie_duration(session, &duration));
}

void ask_entries(Mp4ReadSession* session, uint32_t track) {
    Mp4SampleEntries* entries = nullptr;
    if (Sane(mp4_open_sample_entries(session, track, &entries)) != FF4_RET_OK) return;
    for (uint32_t n = 0; n <= entries->list.count + 1; ++n) {
        Mp4VideoEntry video{};
        Mp4AudioEntry audio{};
        Mp4AvcInfo avc{};
        uint32_t size = 0;
        Sane(mp4_get_video_entry(session, entries, n, &video));
        Sane(mp4_get_audio_entry(session, entries, n, &audio));
        if (Sane(mp4_get_decoder_config_size(session, entries, n, &size)) == FF4_RET_OK) {
            Bytes config(size);
            Sane(mp4_get_decoder_config(session, entries, n, size, config.data()));
        }
        Sane(mp4_get_avc_config_info(session, entries, n, &avc));
        for (uint32_t set = 0; set <= avc.sps_count; ++set) {
            if (Sane(mp4_get_sps_size(session, entries, n, set, &size)) != FF4_RET_OK) continue;
            Bytes parameters(size + 1);
            Sane(mp4_get_sps(session, entries, n, set, size, parameters.data()));
        }
        for (uint32_t set = 0; set <= avc.pps_count; ++set)
            Sane(mp4_get_pps_size(session, entries, n, set, &size));
    }
    Sane(mp4_close_sample_entries(session, entries));
}

void ask_track(Mp4ReadSession* session, uint32_t track) {
    Mp4TrackHeaderInfo header{};
    Mp4MediaHeaderInfo media{};
    Mp4HandlerInfo handler{};
    Sane(mp4_get_track_header(session, track, &header));
    Sane(mp4_get_media_header(session, track, &media));
    Sane(mp4_get_handler(session, track, &handler));
    if (Sane(mp4_open_track(session, track)) != FF4_RET_OK) return;
    Mp4TrackFragmentDefaults defaults{};
    Sane(mp4_get_track_fragment_defaults(session, track, &defaults));
    Mp4EditList* edits = nullptr;
    if (Sane(mp4_open_edit_list(session, track, &edits)) == FF4_RET_OK)
        Sane(mp4_close_edit_list(session, edits));
    Mp4DataRefs* refs = nullptr;
    Mp4DataRefEntry ref{};
    if (Sane(mp4_open_data_refs(session, track, &refs)) == FF4_RET_OK) {
        Sane(mp4_get_data_ref(session, refs, 1, &ref));
        Sane(mp4_close_data_refs(session, refs));
    }
    ask_entries(session, track);
    Sane(mp4_close_track(session, track));
}

}  // namespace
}  // namespace tarn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    FuzzMovie movie(Bytes(data, data + size));
    TestHost& host = movie.host();
    Sane(mp4_visit_atoms(
        host, host.File(), size, [](const Mp4TreeNode&) { return FF4_RET_OK; }, nullptr));
    if (!movie) return 0;
    ask_movie(movie);
    uint32_t tracks = 0;
    Sane(mp4_get_track_count(movie, &tracks));
    for (uint32_t track = 1; track <= tracks && track <= 8; ++track)
        ask_track(movie, track);
    return 0;
}
