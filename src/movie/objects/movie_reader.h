// movie_reader.h - a movie opened to be reported on (CMP4MovieReader) or walked (CMP4MovieRead).
//
// Both fill a CMovieInfoType when they open. The engine stays open until Close. Make a new object
// for another look at a file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "movie/engine/samples.h"
#include "movie/objects/movie_base.h"
#include "movie/objects/movie_info.h"
#include "movie/objects/range_selection.h"

namespace tarn {

// One sample's bytes; the block is used again for the next one.
struct CReadBuffer {
    std::vector<uint8_t> data;
    uint32_t size() const { return static_cast<uint32_t>(data.size()); }
};

// What is read of a sample beside its bytes.
struct ReadSampleInfo {
    uint32_t duration = 0;  // media units
    int32_t compositionOffset = 0;
    bool isSync = false;
    uint32_t description = 0;  // 1-based index of the sample description
    bool isMissing = false;    // the bytes lie beyond the end of the file: there are none
};

// What is done about a recording that is damaged. By default nothing but whole samples are taken.
struct MovieReadOptions {
    // Samples beyond the end of the file are missing: a track ends with its last whole one.
    bool endWithFile = false;
    // Sound that can't be read at its place or decoded is silence.
    bool silenceDamage = false;
};
// As much of a recording as there is: what the programs set.
inline constexpr MovieReadOptions kRescueDamaged{true, true};

// A walk over the samples of a track. Any number of them may be under way in one movie.
struct TrackCursor {
    uint32_t trackNumber = 0;                   // 1-based
    uint32_t currentSample = 1, endSample = 1;  // the next sample, the first one after the walk
    uint64_t currentTime = 0, endTime = 0;      // their decoding times, media units
};

// What the two kinds of reader share.
class CMP4MovieInput : public CMP4MovieBase {
public:
    // Before Open.
    void SetReadOptions(const MovieReadOptions& options) { m_readOptions = options; }
    const MovieReadOptions& GetReadOptions() const { return m_readOptions; }
    void Close();
    const CMovieInfoType& GetInfo() const { return m_info; }
    bool HasVideo() const { return m_info.video.trackNumber != 0; }
    bool HasAudio() const { return m_info.audio.trackNumber != 0; }
    bool IsFragmented() const { return (m_info.fileProfile & kProfileFragmented) != 0; }
    // 0 for a movie timescale of 0.
    uint64_t GetDurationMs() const;
    Mp4ReadSession* Session() const { return m_engine.file.Session(); }
    // The reason for a code that the session has answered.
    Reason ReasonFor(MovieCode code) { return m_engine.file.ReasonFor(code); }
    // 1-based position of the description that a sample names, 0 when there is none.
    uint32_t FindVideoDescription(uint32_t index) const;
    uint32_t FindAudioDescription(uint32_t index) const;

protected:
    // Whether the chosen tracks' lengths and edits are loaded too.
    enum class Loading { kReport, kWalk };
    CMP4MovieInput() = default;
    // Codes: kMovieSystem for a file that can't be opened, FF4_RET_FORMAT for a broken one,
    // FF4_RET_NOTFOUND for one that holds nothing this program reads, kMovieNoTrack.
    MovieCode Load(Loading loading);
    // The code as it is; that of a failure leaves its reason.
    MovieCode Told(MovieCode code);

    CMovieInfoType m_info;
    MovieReadOptions m_readOptions;
    bool m_loaded = false;
    int64_t m_selectedBytes = 0;  // taken by a selection, 'moov' included

private:
    MovieCode LoadAll(Loading loading);
    MovieCode LoadInfo();
    MovieCode LoadTimes();
    MovieCode LoadProfiles();
    MovieCode LoadTracks();
    MovieCode LoadTimelines();
    MovieCode EndWithFile();
    MovieCode LoadDescriptions();
};

// Opens a movie only to say what it is.
class CMP4MovieReader final : public CMP4MovieInput {
public:
    MovieCode Open() { return Load(Loading::kReport); }
    // The sound format in the profile record, four characters; empty without one.
    std::string AudioProfileTag() const;
};

// Walks the samples of a movie's selected tracks.
class CMP4MovieRead final : public CMP4MovieInput {
public:
    enum class Track { kVideo, kAudio };

    // All of the movie is walked until a range is selected.
    MovieCode Open();
    // Chooses what is to be walked: the points become those of the cut that can be made. Both
    // cursors go to its start. `atEnd` keeps all after the in point.
    MovieCode SelectRange(uint64_t* inMs, uint64_t* outMs, bool atEnd);
    const MovieRange& GetRange() const { return m_range; }
    // Bytes that the pictures of a selection may take, 0 for no limit.
    void SetSizeLimit(int64_t bytes) { m_sizeLimit = bytes; }
    // 'moov' and the samples of the selection.
    int64_t GetSelectedBytes() const { return m_selectedBytes; }

    const TrackCursor& GetCursor(Track track) const {
        return track == Track::kVideo ? m_video : m_audio;
    }

    // Whether the samples of the selection that lie in the file have more bytes than it: then they
    // lie over each other, and a small file could be saved to a giant one.
    bool SelectsOverlap();

    // The next sample of a cursor's track, and the cursor one on. kMovieEndOfSamples after the
    // track's last one, FF4_RET_FORMAT for a sample that reaches past the end of the file, unless
    // the options take such sound as missing. `info` is filled as soon as the sample is found, also
    // when its bytes then can't be read.
    MovieCode ReadSample(TrackCursor* cursor, CReadBuffer* buffer, ReadSampleInfo* info);
    // The same within the selection; the description is then the position in the list.
    MovieCode ReadVideoSample(CReadBuffer* buffer, ReadSampleInfo* info);
    MovieCode ReadAudioSample(CReadBuffer* buffer, ReadSampleInfo* info);
    // Up to `most` samples of sound that are alike and lie in the file one after the other, in one
    // read, as long as they last no more than `units`. `count` 0: the next one alone is longer.
    MovieCode ReadAudioRun(uint32_t most, uint64_t units, CReadBuffer* buffer, ReadSampleInfo* info,
                           uint32_t* count);
    // The sound sample that comes `back` samples before the next one; the cursor stays.
    MovieCode PeekAudioSample(uint32_t back, CReadBuffer* buffer);
    // Whether the file is still what was opened: same length and time of change, not removed.
    bool IsUnchanged() const { return m_engine.file.IsUnchanged(); }
    // Gives the last sample back: it will be the next one again. The cursor's time stays.
    void UnreadSample(Track track);
    // Samples between the cursor and the end of the selection, of the video track where there is
    // one.
    uint32_t GetSelectedSampleCount() const;

private:
    MovieCode Described(uint32_t position, const TrackCursor& cursor, ReadSampleInfo* info);
    MovieCode FindSample(uint32_t track, uint32_t number, Mp4SampleInfo* sample);
    MovieCode ReadBytes(const Mp4SampleInfo& sample, uint32_t number, uint32_t count,
                        CReadBuffer* buffer);
    MovieCode TakeMissing(MovieCode code, uint32_t track, CReadBuffer* buffer,
                          ReadSampleInfo* info);

    TrackCursor m_video, m_audio;
    MovieRange m_range;
};

}  // namespace tarn
