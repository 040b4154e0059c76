// movie_writer.h - a new movie from a selection of another: pictures as they are, sound as an
// IMovieSound makes it.
//
//     writer.SetPath(path); writer.Open(reader, layout, bytes);
//     while ((code = writer.WriteNext()) == kMovieOk) {}
//     if (code == kMovieDone) code = writer.Finish();
//     ... the complete file can be read at writer.HiddenPath() ...
//     if (code == kMovieOk) code = writer.Close();
//
// Nothing stands under the path before Close has succeeded: the bytes go to a file beside it, which
// the destructor takes away again after a failure.
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

// Samples of the new sound track.
struct SoundBlock {
    const void* data = nullptr;  // good until the next call
    uint64_t size = 0;
    Mp4SampleRun run{};
    uint32_t description = 1;  // 1-based
    uint32_t samples = 0;      // of the source, taken for these
    uint64_t taken = 0;        // their duration, media units
};

// What becomes of the sound on its way into the file. Failures are the source's.
class IMovieSound {
public:
    virtual ~IMovieSound() = default;

    virtual MovieCode Open(CMP4MovieRead* reader, const MovieWriteOptions& options) = 0;
    // Of the new track's samples; null where the source's own hold.
    virtual const Mp4SampleEntry* Description() const = 0;
    // What comes of the next samples of the selection, of at most `most` media units of them;
    // `samples` is 0 when already the next one is longer. `startsAt` is how far into the sound
    // track's own time the selection's first shown sound lies.
    virtual MovieCode Next(uint64_t most, int64_t startsAt, SoundBlock* block) = 0;
    // After the selection's last sample: what the track holds beyond, until kMovieEndOfSamples.
    virtual MovieCode NextHeld(SoundBlock* block) = 0;
    // Media units at the head of the track that are not the selection's.
    virtual uint64_t Delay() const = 0;
};

// GetReason tells of failures of the output alone: the reader has its own.
class CMP4MovieWrite : public CMP4MovieBase {
public:
    ~CMP4MovieWrite() override;

    void SetOptions(const MovieWriteOptions& options) { m_options = options; }
    // `reader` has its range selected; `totalBytes` are the most media bytes there will be.
    MovieCode Open(XpSharedPtr<CMP4MovieRead> reader, Mp4Layout layout, uint64_t totalBytes);
    // One round: a chunk of pictures and the sound that goes with it. kMovieDone after the last.
    MovieCode WriteNext();
    // Writes what follows the media: the file is complete, but for its name.
    MovieCode Finish();
    std::string HiddenPath() const { return m_output.TemporaryPath(); }
    // Gives the finished file its name.
    MovieCode Close();

    uint64_t FileBytes() const { return m_fileBytes; }  // once it is finished
    const WrittenTrack& Video() const { return m_video; }
    const WrittenTrack& Audio() const { return m_audio; }
    // Samples of the main track that have been dealt with, and of the selection.
    uint64_t Done() const { return m_video.number != 0 ? m_video.samples : m_audio.samples; }
    uint64_t Total() const { return m_total; }

protected:
    // `sound` outlives the writer's use.
    void SetSound(IMovieSound* sound) { m_sound = sound; }

private:
    // A chunk on its way into the file.
    struct Chunk {
        uint64_t offset = 0, bytes = 0, duration = 0;
        uint32_t description = 0;
        std::vector<Mp4SampleRun> runs;
    };

    MovieCode OpenSession();
    MovieCode AddHead();
    MovieCode AddProfile();
    MovieCode AddMetadata();
    MovieCode DescribeSound();
    MovieCode AddTrack(const MovieTrackInfo& source, uint32_t handler, WrittenTrack* track);
    Chunk& StartChunk();
    MovieCode WriteVideoChunk(bool* ended);
    MovieCode WriteAudioChunk(bool final);
    MovieCode FinishSound(Chunk* chunk);
    MovieCode StoreSound(const SoundBlock& block, Chunk* chunk);
    MovieCode CheckNothingLost();
    // Puts bytes at the end of the media and their samples into the chunk.
    MovieCode Store(const void* data, uint64_t size, const Mp4SampleRun& run, Chunk* chunk);
    bool IsChunkFull(const Chunk& chunk) const;
    MovieCode AddChunk(WrittenTrack* track, const Chunk& chunk);
    uint64_t SoundTarget(bool final) const;
    int64_t ShownFrom() const;
    // From the start of the output to the sound track's first sample of the selection, media units.
    // Negative: the sound starts so much later.
    int64_t SoundStart() const;
    MovieCode AddEdits();
    MovieCode AddEdit(const WrittenTrack& track, uint32_t timescale, uint64_t wait, uint64_t start,
                      uint64_t end);
    MovieCode CopyDescriptions(const MovieTrackInfo& source, uint32_t track);
    MovieCode Written(Mp4Result result);
    MovieCode Failed(int error);
    const CMovieInfoType& Source() const { return m_reader->GetInfo(); }

    XpSharedPtr<CMP4MovieRead> m_reader;
    IMovieSound* m_sound = nullptr;
    MovieWriteOptions m_options;
    XpOutputFile m_output;
    CWriteBuffer m_stagingBuffer;
    Mp4Host* m_host = nullptr;
    Mp4WriteSession* m_session = nullptr;
    WrittenTrack m_video, m_audio;
    // For one round, here so that their memory is used again.
    Chunk m_chunk;
    CReadBuffer m_picture;
    uint64_t m_dataOffset = 0, m_dataWritten = 0, m_fileBytes = 0, m_total = 0;
    uint64_t m_soundTaken = 0;    // of the source's sound, media units
    uint64_t m_soundSamples = 0;  // the same in samples
    int64_t m_shownEnd = 0;       // when the last picture shown is over, media units of the output
    // Presentation of the first kept picture, counted from its own decoding time.
    int64_t m_firstVideoTime = 0;
    bool m_hasFirstVideo = false, m_soundFinished = false, m_finished = false;
};

}  // namespace tarn
