// movie_reader.h - a movie opened to be reported on (CMP4MovieReader) or walked (CMP4MovieRead).
//
// Both fill a CMovieInfoType when they open. The engine stays open behind it, so that the record's
// session handles are good until Close. Make a new object for another look at a file.
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
};

// What the two kinds of reader share.
class CMP4MovieInput : public CMP4MovieBase {
public:
    ~CMP4MovieInput() override;

    // Codes: kMovieSystem (LastError tells), FF4_RET_FORMAT for a broken file, FF4_RET_NOTFOUND
    // for one that holds nothing this program reads, kMovieNoTrack.
    MovieCode Open();
    void Close();
    const CMovieInfoType& GetInfo() const { return m_info; }
    bool HasVideo() const { return m_info.video.trackNumber != 0; }
    bool HasAudio() const { return m_info.audio.trackNumber != 0; }
    bool IsFragmented() const { return (m_info.fileProfile >> 28 & 1) != 0; }
    // 0 for a movie timescale of 0.
    uint64_t GetDurationMs() const;
    // Mp4FileFlags of the open file.
    uint32_t FileFlags() const { return m_fileFlags; }
    Mp4ReadSession* Session() const { return m_engine.readSession; }
    // 1-based position of the description that a sample names, 0 when there is none.
    uint32_t FindVideoDescription(uint32_t index) const;
    uint32_t FindAudioDescription(uint32_t index) const;

protected:
    // The step between the choice of tracks and the end of loading.
    enum class Loading { kReport, kWalk };
    explicit CMP4MovieInput(Loading loading) : m_loading(loading) {}

    CMovieInfoType m_info;
    bool m_loaded = false;
    int64_t m_selectedBytes = 0;  // taken by a selection, 'moov' included
    uint32_t m_fileFlags = 0;

private:
    MovieCode LoadAll();
    MovieCode LoadInfo();
    MovieCode LoadTimes();
    MovieCode LoadProfiles();
    MovieCode LoadTracks();
    MovieCode LoadDescriptions();

    Loading m_loading;
};

// Opens a movie only to say what it is.
class CMP4MovieReader final : public CMP4MovieInput {
public:
    CMP4MovieReader() : CMP4MovieInput(Loading::kReport) {}
    ~CMP4MovieReader() override;

    // The sound format in the profile record, four characters; empty without one.
    std::string AudioProfileTag() const;
};

// Walks the samples of a movie's selected tracks.
class CMP4MovieRead final : public CMP4MovieInput {
public:
    CMP4MovieRead() : CMP4MovieInput(Loading::kWalk) {}
    ~CMP4MovieRead() override;

    enum class Track { kVideo, kAudio };

    // Chooses what is to be walked: the points become those of the cut that can be made. Both
    // cursors go to its start. `atEnd` keeps all behind the in point.
    MovieCode SelectRange(uint64_t* inMs, uint64_t* outMs, bool atEnd);
    const MovieRange& GetRange() const { return m_range; }
    // Bytes that the pictures of a selection may take, 0 for no limit.
    void SetSizeLimit(int64_t bytes) { m_sizeLimit = bytes; }
    // 'moov' and the samples of the selection.
    int64_t GetSelectedBytes() const { return m_selectedBytes; }

    // The next sample of a track, and the cursor one on. kMovieEndOfSamples behind the last one,
    // FF4_RET_FORMAT for a sample that reaches past the end of the file. `info` is filled as soon
    // as the sample is found, also when its bytes then can't be read.
    MovieCode ReadSample(MovieTrackInfo* track, CReadBuffer* buffer, ReadSampleInfo* info);
    // The same within the selection; the description is then the position in the list.
    MovieCode ReadVideoSample(CReadBuffer* buffer, ReadSampleInfo* info);
    MovieCode ReadAudioSample(CReadBuffer* buffer, ReadSampleInfo* info);
    // Up to `most` samples of sound that lie behind each other in the file and are alike, in one
    // read, as long as they last no more than `units`. `count` 0: the next one alone is longer.
    MovieCode ReadAudioRun(uint32_t most, uint64_t units, CReadBuffer* buffer, ReadSampleInfo* info,
                           uint32_t* count);
    // The sound sample `back` places in front of the cursor, which stays where it is.
    MovieCode PeekAudioSample(uint32_t back, CReadBuffer* buffer);
    // Whether the file is still what was opened: same length and time of change, not removed.
    bool IsUnchanged() const;
    // Gives the last sample back. Its time is not taken off the cursor's.
    void UnreadSample(Track track);
    // Samples between the cursor and the end of the selection, of the video track where there is
    // one.
    uint32_t GetSelectedSampleCount() const;

private:
    MovieCode FindSample(const MovieTrackInfo& track, Mp4SampleInfo* sample);
    MovieCode ReadBytes(const Mp4SampleInfo& sample, uint32_t count, CReadBuffer* buffer);

    MovieRange m_range;
};

}  // namespace tarn
