// track_feed.h - one track of a movie as a player wants it: samples in decoding order, from any
// time on, with the times at which they are shown.
//
// Times are nanoseconds of the movie's own timeline, the one that cuts are made on: edit lists and
// the delay of reordered pictures are taken into account. They are negative where a sample lies
// before the movie's start. A feed has a session of its own; one thread at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "base/reason.h"
#include "movie/engine/samples.h"
#include "movie/facts/clip_session.h"
#include "movie/objects/movie_info.h"
#include "playback/sample_feed.h"

namespace tarn {

class TrackFeed : public SampleFeed {
public:
    enum class Kind { kVideo, kAudio };

    // NoTrack where the movie has no track of that kind.
    Reason Open(const std::string& path, Kind kind);
    static ReasonCode NoTrack(Kind kind) {
        return kind == Kind::kVideo ? ReasonCode::kNoVideoTrack : ReasonCode::kNoAudioTrack;
    }

    Kind TrackKind() const { return m_kind; }
    Mp4ReadSession* Session() const { return m_clip.get(); }
    const MovieTrackInfo& Track() const { return m_track; }
    const std::vector<CVideoSampleDescriptionInfo>& Video() const { return m_video; }
    const std::vector<CAudioSampleDescriptionInfo>& Audio() const { return m_audio; }
    uint32_t Format() const;  // four-character code of the first description
    bool IsPcm() const;       // sound that needs no decoder
    // Pictures a second, as a fraction of the track's length; 0 / 1 when it can't be told.
    void GetFrameRate(uint32_t* numerator, uint32_t* denominator) const;
    int64_t DurationNs() const override { return m_movieEnd; }  // of the movie
    GstCapsPtr Caps(uint32_t description) const override;
    bool IsCodedSound() const override { return m_kind == Kind::kAudio && !IsPcm(); }

    // To the sync sample before a picture, a few samples before a sound.
    MovieCode SeekTo(int64_t time, int64_t end) override;
    // On the way to the place that was sought, pictures that no other one needs are left out.
    MovieCode Next(FeedSample* sample) override;
    Reason ReasonOf(MovieCode code) override;

private:
    // A sample in the neighbourhood of the next one.
    struct Row {
        uint32_t number;
        int64_t decoded, shown;  // media units
        Mp4SampleInfo info;
    };

    MovieCode OpenTrack();
    MovieCode SeekVideo(int64_t units);
    MovieCode SeekAudio(int64_t units);
    MovieCode FetchRows(size_t ahead);
    MovieCode Read(FeedSample* sample);
    bool IsNeedless(const FeedSample& sample) const;
    MovieCode ReadRun(const Row& row, FeedSample* sample, uint32_t* count);
    uint32_t DescriptionOf(uint32_t index) const;
    int64_t ShownFor(const Row& row) const;
    bool IsOver() const;
    int64_t ToNs(int64_t units) const;
    int64_t ToUnits(int64_t time) const;

    ClipSession m_clip;
    Kind m_kind = Kind::kVideo;
    MovieTrackInfo m_track;
    std::vector<CVideoSampleDescriptionInfo> m_video;
    std::vector<CAudioSampleDescriptionInfo> m_audio;
    int64_t m_shift = 0;              // of a time in media units that is 0 in the movie
    int64_t m_presentationStart = 0;  // media units
    int64_t m_movieEnd = 0;
    int64_t m_from = 0, m_end = 0;  // of what is wanted
    uint32_t m_fetched = 1;         // the next number to be looked up
    std::deque<Row> m_rows;         // passed ones, the next, and those that follow
    size_t m_next = 0;              // of them, the one that is read next
};

}  // namespace tarn
