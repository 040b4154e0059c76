#include "playback/track_feed.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "movie/objects/range_selection.h"
#include "movie/objects/track_selection.h"
#include "movie/objects/whole_samples.h"
#include "movie/umc/aac_config.h"
#include "mp4format/time_math.h"
#include "playback/avc_sample.h"

namespace tarn {
namespace {

constexpr uint32_t kSecond = 1'000'000'000, kMillisecond = 1'000'000;
// Among so many rows before and after a picture is the one that is shown next.
constexpr size_t kNeighbours = kMostReordered + 1;
// Pictures before the place of a seek that are decoded in any case: a decoder learns from them how
// far pictures are reordered.
constexpr int64_t kRunUp = 6;
constexpr uint8_t kObjectAac = 0x40;
constexpr uint32_t kPcmRun = 1024;  // frames handed on together, as AAC has it

}  // namespace

Reason TrackFeed::Open(const std::string& path, Kind kind) {
    m_kind = kind;
    if (Reason reason = m_clip.Open(path)) return reason;
    const ClipSession::Tracks tracks = m_clip.ChooseTracks();
    m_track.trackNumber = kind == Kind::kVideo ? tracks.video : tracks.audio;
    if (m_track.trackNumber == 0) return {NoTrack(kind), ReasonSide::kSource, path, {}};
    if (const MovieCode code = OpenTrack()) return ReasonOf(code);
    return ReasonOf(SeekTo(0, m_movieEnd));
}

Reason TrackFeed::ReasonOf(MovieCode code) {
    return code == kMovieOk ? Reason{} : m_clip.ReasonFor(code);
}

uint32_t TrackFeed::Format() const {
    return m_kind == Kind::kVideo ? m_video[0].entry.format : m_audio[0].entry.format;
}

MovieCode TrackFeed::OpenTrack() {
    Mp4ReadSession* session = m_clip.get();
    MOVIE_TRY(mp4_open_track(session, m_track.trackNumber));
    MOVIE_TRY(ReadTrackInfo(session, &m_track));
    if (m_kind == Kind::kVideo)
        MOVIE_TRY(ReadVideoDescriptions(session, m_track.trackNumber, &m_video));
    else
        MOVIE_TRY(ReadAudioDescriptions(session, m_track.trackNumber, &m_audio));
    if (m_video.empty() && m_audio.empty()) return movie_code(FF4_RET_FORMAT);
    const uint64_t most = kFarthestTime / kMillisecond;
    uint64_t length = 0;
    MOVIE_TRY(CutMissingSamples(session, &m_track));
    MOVIE_TRY(m_clip.GetWholeDurationMs(&length));
    m_movieEnd = static_cast<int64_t>(std::min(length, most) * kMillisecond);
    if (m_track.sampleCount == 0) return kMovieOk;
    uint64_t start = 0;
    Mp4SampleInfo first{};
    MOVIE_TRY(mp4_get_numbered_sample(session, m_track.trackNumber, 1, &start, &first));
    m_track.defaultDuration = first.duration;
    MOVIE_TRY(GetPresentationStart(session, m_track, &m_presentationStart));
    int64_t offset = 0;
    MOVIE_TRY(GetEditOffset(session, m_track, session->index.movie.timescale, &offset));
    if (__builtin_add_overflow(offset, m_presentationStart, &m_shift) || m_shift > kFarthestTime ||
        m_shift < -kFarthestTime || std::abs(m_presentationStart) > kFarthestTime)
        return movie_code(FF4_RET_OVERFLOW);
    return kMovieOk;
}

int64_t TrackFeed::ToNs(int64_t units) const {
    return mp4_scale_floor(units - m_shift, kSecond, m_track.timescale);
}

int64_t TrackFeed::ToUnits(int64_t time) const {
    return mp4_scale_floor(time, m_track.timescale, kSecond) + m_shift;
}

void TrackFeed::GetFrameRate(uint32_t* numerator, uint32_t* denominator) const {
    *numerator = 0;
    *denominator = 1;
    const uint64_t count = m_track.sampleCount, length = m_track.duration;
    if (count == 0 || length / count > INT_MAX || length < count) return;
    // Evenly spaced pictures have a rate of two small numbers.
    if (length == count * m_track.defaultDuration && m_track.timescale <= INT_MAX) {
        *numerator = m_track.timescale;
        *denominator = static_cast<uint32_t>(m_track.defaultDuration);
        return;
    }
    const double rate =
        static_cast<double>(count) * m_track.timescale / static_cast<double>(length);
    if (rate < 1 || rate > 1000) return;
    *numerator = static_cast<uint32_t>(std::lround(rate * 1000));
    *denominator = 1000;
}

MovieCode TrackFeed::SeekTo(int64_t time, int64_t end) {
    m_rows.clear();
    m_next = 0;
    m_fetched = 1;
    m_from = time;
    m_end = std::min(end, m_movieEnd);
    // As a decoding time: what is shown then was decoded that much earlier.
    const int64_t units = ToUnits(time) - m_presentationStart;
    if (m_track.sampleCount == 0 || units <= 0) return kMovieOk;
    return m_kind == Kind::kVideo ? SeekVideo(units) : SeekAudio(units);
}

MovieCode TrackFeed::SeekVideo(int64_t units) {
    // After the last picture that one stays.
    const uint64_t last = m_track.duration > 0 ? m_track.duration - 1 : 0;
    SyncBounds bounds{};
    MOVIE_TRY(FindShownSync(m_clip.get(), m_track, std::min(static_cast<uint64_t>(units), last),
                            m_presentationStart, &bounds));
    m_fetched = bounds.prev;
    return kMovieOk;
}

MovieCode TrackFeed::SeekAudio(int64_t units) {
    const auto target = static_cast<uint64_t>(units);
    if (target >= m_track.duration) {
        m_fetched = m_track.sampleCount + 1;
        return kMovieOk;
    }
    uint32_t number = 1;
    MOVIE_TRY(mp4_get_sample_number_at_time(m_clip.get(), m_track.trackNumber, target, &number));
    const uint32_t back = IsPcm() ? 0 : kWarmUpSamples;
    m_fetched = number > back ? number - back : 1;
    return kMovieOk;
}

bool TrackFeed::IsPcm() const {
    return !m_audio.empty() && (Format() == fourcc("twos") || Format() == fourcc("sowt"));
}

// Looks up the samples that follow the next one, so that the time of the picture after it is
// known.
MovieCode TrackFeed::FetchRows(size_t ahead) {
    while (m_rows.size() <= m_next + ahead && m_fetched <= m_track.sampleCount) {
        Row row{m_fetched, 0, 0, {}};
        uint64_t time = 0;
        MOVIE_TRY(mp4_get_numbered_sample(m_clip.get(), m_track.trackNumber, row.number, &time,
                                          &row.info));
        if (time > static_cast<uint64_t>(kFarthestTime)) return movie_code(FF4_RET_OVERFLOW);
        row.decoded = static_cast<int64_t>(time);
        row.shown = row.decoded + row.info.compositionOffset;
        m_rows.push_back(row);
        ++m_fetched;
    }
    for (; m_next > kNeighbours; --m_next)
        m_rows.pop_front();
    return kMovieOk;
}

// Until the earliest of the neighbours that are shown later; the last picture lasts to the end of
// the movie at least.
int64_t TrackFeed::ShownFor(const Row& row) const {
    int64_t next = INT64_MAX;
    for (const Row& other : m_rows)
        if (other.shown > row.shown) next = std::min(next, other.shown);
    const int64_t shown = ToNs(row.shown);
    if (next != INT64_MAX) return ToNs(next) - shown;
    return std::max(ToNs(row.shown + row.info.duration), m_movieEnd) - shown;
}

// One sample, or as many frames of PCM as lie together.
MovieCode TrackFeed::ReadRun(const Row& row, FeedSample* sample, uint32_t* count) {
    *count = 1;
    if (IsPcm()) {
        MOVIE_TRY(mp4_get_alike_samples(m_clip.get(), m_track.trackNumber, row.number, count));
        *count = std::clamp<uint32_t>(*count, 1, kPcmRun);
    }
    const MovieCode code =
        m_clip.ReadBytes(row.info.offset, uint64_t{row.info.size} * *count, &sample->data);
    if (m_kind == Kind::kVideo) return code;
    // Sound that is missing from the file is silence, as is a frame without any: a decoder would
    // take the next one's sound for its.
    const bool silent = code == kMovieOk && m_audio[0].objectType == kObjectAac &&
                        !UMC::AacFrameHasSound(sample->data);
    if (code != movie_code(FF4_RET_FORMAT) && !silent) return code;
    sample->data.clear();
    return kMovieOk;
}

uint32_t TrackFeed::DescriptionOf(uint32_t index) const {
    const size_t count = std::max(m_video.size(), m_audio.size());
    return index >= 1 && index <= count ? index - 1 : 0;
}

// Decoding is what makes a seek long. A picture on the way that no other one needs is left out.
bool TrackFeed::IsNeedless(const FeedSample& sample) const {
    if (sample.description >= m_video.size() || sample.shown >= m_from) return false;
    const CVideoSampleDescriptionInfo& form = m_video[sample.description];
    return !form.avcConfig.empty() && (m_from - sample.shown) / kRunUp >= sample.duration &&
           IsDisposableAvcSample(sample.data, form.avc.length_size);
}

MovieCode TrackFeed::Next(FeedSample* sample) {
    do
        MOVIE_TRY(Read(sample));
    while (IsNeedless(*sample));
    return kMovieOk;
}

// Where pictures are shown before the time of their decoding, one after the end of that time may
// belong to what is shown.
bool TrackFeed::IsOver() const {
    return std::all_of(
        m_rows.begin() + static_cast<ptrdiff_t>(m_next), m_rows.end(),
        [this](const Row& row) { return ToNs(std::min(row.decoded, row.shown)) >= m_end; });
}

MovieCode TrackFeed::Read(FeedSample* sample) {
    const bool video = m_kind == Kind::kVideo;
    MOVIE_TRY(FetchRows(video ? kNeighbours : 0));
    if (IsOver()) return kMovieEndOfSamples;
    const Row row = m_rows[m_next];
    uint32_t count = 1;
    MOVIE_TRY(ReadRun(row, sample, &count));
    sample->shown = ToNs(row.shown);
    sample->decoded = ToNs(row.decoded);
    sample->isSync = !video || row.info.isSync != 0;
    sample->number = row.number;
    sample->description = DescriptionOf(row.info.descriptionIndex);
    sample->duration = video ? ShownFor(row) : 0;
    if (count > 1) {  // the rest of the run is done
        m_rows.clear();
        m_next = 0;
        m_fetched = row.number + count;
    } else {
        ++m_next;
    }
    return kMovieOk;
}

}  // namespace tarn
