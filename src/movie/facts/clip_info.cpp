#include "movie/facts/clip_info.h"

#include <iterator>

#include "movie/engine/samples.h"
#include "movie/facts/clip_session.h"
#include "movie/objects/movie_metadata.h"
#include "movie/objects/track_selection.h"
#include "movie/objects/whole_samples.h"
#include "movie/umc/aac_config.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

Mp4Result read_track(Mp4ReadSession* session, uint32_t number, ClipTrackInfo* info) {
    FF4_TRY(mp4_open_track(session, number));
    MovieTrackInfo track;
    track.trackNumber = number;
    FF4_TRY(ReadTrackInfo(session, &track));
    info->number = number;
    info->samples = track.sampleCount;
    info->timescale = track.timescale;
    info->duration = track.duration;
    MovieTrackInfo whole = track;
    FF4_TRY(CutMissingSamples(session, &whole));
    info->missing = whole.missingSamples;
    info->edits = std::move(track.edits);
    uint64_t bytes = 0;
    FF4_TRY(mp4_get_media_bytes(session, number, &bytes));
    uint64_t bits = 0;
    FF4_TRY(mp4_mul(bytes, 8, &bits));
    info->bitRate = mp4_mul_div_or(bits, info->timescale, info->duration, 0);
    return FF4_RET_OK;
}

Mp4Result read_video(Mp4ReadSession* session, uint32_t number, ClipTrackInfo* info) {
    FF4_TRY(read_track(session, number, info));
    std::vector<CVideoSampleDescriptionInfo> list;
    FF4_TRY(ReadVideoDescriptions(session, number, &list));
    if (list.empty()) return FF4_RET_NOTFOUND;
    info->codec = list[0].entry.format;
    info->width = list[0].entry.width;
    info->height = list[0].entry.height;
    if (info->duration > 0) {
        info->frameRate = static_cast<double>(info->samples) * info->timescale /
                          static_cast<double>(info->duration);
    }
    return FF4_RET_OK;
}

Mp4Result read_audio(Mp4ReadSession* session, uint32_t number, ClipTrackInfo* info) {
    FF4_TRY(read_track(session, number, info));
    std::vector<CAudioSampleDescriptionInfo> list;
    FF4_TRY(ReadAudioDescriptions(session, number, &list));
    if (list.empty()) return FF4_RET_NOTFOUND;
    info->codec = list[0].entry.format;
    info->bits = list[0].entry.sample_size;
    info->sampleRate = list[0].entry.sampling_rate;
    info->channels = SoundChannels(list[0]);
    return FF4_RET_OK;
}

void read_profiles(Mp4ReadSession* session, ClipInfo* info) {
    Mp4ProfileCounts counts{};
    info->hasProfile = mp4_get_profile_counts(session, &counts) == FF4_RET_OK;
    if (!info->hasProfile) return;
    static_cast<void>(mp4_get_file_profile(session, &info->fileProfile));
    Mp4VideoProfile video{};
    if (mp4_get_video_profile(session, &video) == FF4_RET_OK) info->videoProfile = video;
    Mp4AudioProfile audio{};
    if (mp4_get_audio_profile(session, &audio) == FF4_RET_OK) info->audioProfile = audio;
}

void read_brands(Mp4ReadSession* session, ClipInfo* info) {
    Mp4FileType type{};
    if (mp4_get_file_type(session, &type) != FF4_RET_OK) return;
    info->brand = type.major_brand;
    info->minor = type.minor_version;
    uint32_t brands[256], count = 0, first = 1;
    while (mp4_get_compatible_brands(session, first, std::size(brands), brands, &count) ==
               FF4_RET_OK &&
           count > 0) {
        info->compatible.insert(info->compatible.end(), brands, brands + count);
        first += count;
    }
}

Mp4Result read_times(Mp4ReadSession* session, ClipInfo* info) {
    Mp4MovieHeaderInfo header{};
    FF4_TRY(mp4_get_movie_header(session, &header));
    // A creation time of 0 is what programs write that do not know it.
    if (header.creation != 0)
        static_cast<void>(mp4_seconds_to_date(session->host, header.creation, &info->created));
    uint64_t duration = 0;
    FF4_TRY(mp4_get_movie_duration(session, &duration));
    if (header.timescale != 0)
        FF4_TRY(mp4_mul_div(duration, 1000, header.timescale, &info->durationMs));
    return FF4_RET_OK;
}

// A broken track is left out as long as the other one can be shown.
Mp4Result read_tracks(const ClipSession& session, ClipInfo* info) {
    const ClipSession::Tracks tracks = session.ChooseTracks();
    Mp4Result video = FF4_RET_NOTFOUND, audio = FF4_RET_NOTFOUND;
    if (tracks.video != 0) video = read_video(session.get(), tracks.video, &info->video.emplace());
    if (video != FF4_RET_OK) info->video.reset();
    if (tracks.audio != 0) audio = read_audio(session.get(), tracks.audio, &info->audio.emplace());
    if (audio != FF4_RET_OK) info->audio.reset();
    if (video == FF4_RET_OK || audio == FF4_RET_OK) return FF4_RET_OK;
    return tracks.video != 0 ? video : audio;
}

void read_metadata(Mp4ReadSession* session, ClipInfo* info) {
    Mp4MetaList* list = nullptr;
    if (mp4_open_meta_texts(session, 0, &list) != FF4_RET_OK) return;
    LoadMetaData(session, list, &info->metadata);
    static_cast<void>(mp4_close_meta_list(session, list));
}

Mp4Result read_all(const ClipSession& session, ClipInfo* info) {
    info->size = session.Size();
    info->fragmented = session.get()->index.moofs.head != nullptr;
    read_brands(session.get(), info);
    read_profiles(session.get(), info);
    read_metadata(session.get(), info);
    FF4_TRY(read_times(session.get(), info));
    return read_tracks(session, info);
}

}  // namespace

uint32_t SoundChannels(const CAudioSampleDescriptionInfo& sound) {
    UMC::AacConfig config;
    const auto specific = UMC::FindDecoderSpecificInfo(sound.decoderConfig);
    if (!specific.empty() && UMC::ParseAacConfig(specific, &config) == UMC::kStatusOk &&
        config.channelConfig >= 1 && config.channelConfig <= 7)
        return config.channelConfig == 7 ? 8u : static_cast<uint32_t>(config.channelConfig);
    return sound.entry.channel_count;
}

Reason ReadClipInfo(const std::string& path, ClipInfo* info) {
    *info = {};
    ClipSession session;
    if (Reason reason = session.Open(path)) return reason;
    if (Reason reason = session.ReasonFor(movie_code(read_all(session, info)))) return reason;
    const auto count = [](const std::optional<ClipTrackInfo>& track) {
        return track ? SampleCounts{track->samples, track->missing} : SampleCounts{};
    };
    info->missing = MissingSamples(count(info->video), count(info->audio), path);
    return {};
}

}  // namespace tarn
