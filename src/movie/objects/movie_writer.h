// movie_writer.h - a new movie from a selection of another: pictures as they are, sound by a hook.
//
//     writer.SetPath(path); writer.Open(reader, layout, bytes);
//     while ((code = writer.WriteNext()) == kMovieOk) {}
//     if (code == kMovieDone) code = writer.Finish();
//     ... the complete file can be read at writer.HiddenPath() ...
//     if (code == kMovieOk) code = writer.Close();
//
// Nothing stands under the path before Close has succeeded: the bytes go to a hidden name beside
// it, which the destructor takes away again after a failure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/xp_output_file.h"
#include "base/xp_shared_ptr.h"
#include "movie/engine/write_session.h"
#include "movie/objects/movie_reader.h"
#include "movie/objects/write_buffer.h"

namespace tarn {

// How the start of the output is made up. The defaults are the plain form.
struct MovieWriteOptions {
    // The edit lists begin with the picture that is shown at the requested in point; else with the
    // kept sync sample.
    bool exact = false;
    // The codecs' delay is taken out of the sound, the decoder is warmed up with what lies before
    // the selection, and the encoder is emptied at the end.
    bool compensateDelay = false;
};

// One track that is being written.
struct WrittenTrack {
    uint32_t number = 0;  // in the write session, 0: none
    uint32_t id = 0;
    uint64_t samples = 0, bytes = 0;
    uint64_t duration = 0;  // media units, as the samples count
};

class CMP4MovieWrite : public CMP4MovieBase {
public:
    CMP4MovieWrite() = default;
    ~CMP4MovieWrite() override;

    void SetOptions(const MovieWriteOptions& options) { m_options = options; }
    // `reader` has its range selected; `totalBytes` are the most media bytes there will be.
    MovieCode Open(XpSharedPtr<CMP4MovieRead> reader, Mp4Layout layout, uint64_t totalBytes);
    // One round: a chunk of pictures and the sound that goes with it. kMovieDone behind the last.
    MovieCode WriteNext();
    // Writes what is behind the media: the file is complete, under its hidden name still.
    MovieCode Finish();
    std::string HiddenPath() const { return m_output.TemporaryPath(); }
    // Gives the finished file its name.
    MovieCode Close();

    const WrittenTrack& Video() const { return m_video; }
    const WrittenTrack& Audio() const { return m_audio; }
    // Samples of the main track that have been dealt with, out of GetSelectedSampleCount.
    virtual uint64_t Done() const {
        return m_video.number != 0 ? m_video.samples : m_audio.samples;
    }

protected:
    // A chunk on its way into the file.
    struct Chunk {
        uint64_t offset = 0, bytes = 0, duration = 0;
        uint32_t description = 0;
        std::vector<Mp4SampleRun> runs;
    };

    // --- what a derived class does to the sound; here it is copied

    // Adds the descriptions of the new sound track.
    virtual MovieCode DescribeSound();
    // The profile records of a camera clip, before they are set.
    virtual void AdjustProfile(Mp4ProfileBuild* /*profile*/) const {}
    // Reads the next samples, at most `most` media units of them but at least one, and puts what
    // becomes of them into the chunk. `taken` is the source's duration that went in.
    virtual MovieCode TakeSound(uint64_t most, Chunk* chunk, uint64_t* taken);
    // What the sound track holds beyond the selection once its last sample is in.
    virtual MovieCode FinishSound(Chunk* chunk);
    // Media units at the head of the sound track that are not the selection's.
    virtual uint64_t SoundDelay() const { return 0; }

    // Puts bytes at the end of the media and their samples into the chunk.
    MovieCode Store(const void* data, uint64_t size, const Mp4SampleRun& run, Chunk* chunk);
    MovieCode Failed(int error);
    CMP4MovieRead& Reader() { return *m_reader; }
    const CMovieInfoType& Source() const { return m_reader->GetInfo(); }
    const MovieWriteOptions& Options() const { return m_options; }
    Mp4WriteSession* Session() { return m_session; }
    XpOutputFile& Output() { return m_output; }
    WrittenTrack& Sound() { return m_audio; }
    // From the start of the output to the sound track's first sample of the selection, media units.
    // Negative: the sound starts so much later.
    int64_t SoundStart() const;

private:
    MovieCode OpenSession();
    MovieCode AddHead();
    MovieCode AddProfile();
    MovieCode AddMetadata();
    MovieCode AddTrack(const MovieTrackInfo& source, uint32_t handler, WrittenTrack* track);
    MovieCode WriteVideoChunk(bool* ended);
    MovieCode WriteAudioChunk(bool final);
    MovieCode AddVideoSample(const CReadBuffer& sample, const ReadSampleInfo& info, Chunk* chunk);
    bool IsChunkFull(const Chunk& chunk) const;
    MovieCode AddChunk(WrittenTrack* track, const Chunk& chunk);
    uint64_t SoundTarget(bool final) const;
    int64_t ShownFrom() const;
    MovieCode AddEdits();
    MovieCode AddEdit(const WrittenTrack& track, uint32_t timescale, uint64_t wait, uint64_t start,
                      uint64_t hidden);
    MovieCode CopyDescriptions(const MovieTrackInfo& source, uint32_t track);
    MovieCode FromEngine(Mp4Result result);

    XpSharedPtr<CMP4MovieRead> m_reader;
    MovieWriteOptions m_options;
    XpOutputFile m_output;
    CWriteBuffer m_stagingBuffer;
    Mp4Host* m_host = nullptr;
    Mp4WriteSession* m_session = nullptr;
    WrittenTrack m_video, m_audio;
    uint64_t m_dataOffset = 0, m_dataWritten = 0;
    uint64_t m_soundTaken = 0;  // of the source's sound, media units
    // Presentation of the first kept picture, counted from its own decoding time.
    int64_t m_firstVideoTime = 0;
    bool m_hasFirstVideo = false, m_soundFinished = false, m_finished = false;
};

}  // namespace tarn
