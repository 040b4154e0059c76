// trimming.h - the job that turns a clip, an in and an out point and effect settings into a new
// file, on a thread of its own.
//
//     Mp4MovieTrimmingEx job;
//     job.SaveMp4({.source = in, .target = out, .inMs = a, .outMs = b}, &notify, effects);
//     ... notify.OnComplete tells how it ended; Pause, Resume and Cancel from any thread ...
//     job.Join();
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "base/reason.h"
#include "base/xp_event.h"
#include "base/xp_thread.h"
#include "effects/effect_settings.h"
#include "movie/movie_codes.h"
#include "movie/objects/movie_writer.h"

namespace tarn {

// One stretch of a source that is to be saved.
struct MovieSegment {
    std::string source, target;
    uint64_t inMs = 0, outMs = UINT64_MAX;  // an out point after the end is the end
    uint64_t sizeLimit = 0;                 // bytes the pictures may take, 0 for none
    MovieReadOptions reading = {};          // of the source
    MovieWriteOptions options;
    bool verify = false;  // read back and compare every picture, before the file gets its name
};

// What became of it.
struct SavedSegment {
    uint64_t inMs = 0, outMs = 0;              // as asked for, but the end at most
    uint64_t actualInMs = 0, actualOutMs = 0;  // as the cut was made
    uint64_t videoSamples = 0, videoBytes = 0, audioSamples = 0, audioBytes = 0;
    uint64_t fileBytes = 0, verifiedSamples = 0;
    // Of the selection's sound: what the source has, and what of it became silence.
    uint64_t soundSamples = 0, damagedSoundSamples = 0;
    double seconds = 0;
    Reason reason;              // why it failed
    std::vector<Reason> notes;  // what is missing of the recording, and what was damaged
};

// Hears of a job, on the job's thread.
class IMp4MovieEditNotify {
public:
    virtual ~IMp4MovieEditNotify() = default;
    virtual void OnProgress(uint64_t done, uint64_t total) = 0;

    enum Kind : uint32_t {
        kStarted = 0,
        kAllDone = 1,
        kFailed = 2,
        kCancelled = 3,
        kSegmentDone = 4
    };
    // A failure has its code and the system's error. `saved` goes with the end of a segment,
    // whichever way it ended, and is null otherwise.
    virtual void OnComplete(Kind kind, MovieCode code, int32_t systemError,
                            const SavedSegment* saved) = 0;
};

// Called between steps; false ends the job.
class IMp4MovieEditProgress {
public:
    virtual ~IMp4MovieEditProgress() = default;
    virtual bool OnStep(uint64_t done, uint64_t total) = 0;
};

// Saves segments one after the other on the caller's thread.
class Mp4MovieEditor {
public:
    void Add(const MovieSegment& segment) { m_segments.push_back(segment); }
    const std::vector<MovieSegment>& Segments() const { return m_segments; }
    void SetEffects(const AMPEffectSettings& effects) { m_effects = effects; }
    void SetWavOutput(bool wav) { m_wavOutput = wav; }

    // Opens a segment's source and chooses its cut.
    MovieCode Prepare(const MovieSegment& segment, XpSharedPtr<CMP4MovieRead>* reader,
                      SavedSegment* saved) const;
    // The same with the source that is open.
    MovieCode Choose(const MovieSegment& segment, CMP4MovieRead* movie, SavedSegment* saved) const;
    // Writes the prepared segment. kMovieCancelled when `progress` ended it. Nothing is left of a
    // save that fails, be it in reading back.
    MovieCode Save(const MovieSegment& segment, const XpSharedPtr<CMP4MovieRead>& reader,
                   IMp4MovieEditProgress* progress, SavedSegment* saved) const;

private:
    std::vector<MovieSegment> m_segments;
    AMPEffectSettings m_effects;
    bool m_wavOutput = false;
};

// A job on a thread of its own, which any thread can pause, resume and cancel.
class Mp4MovieTrimming {
public:
    virtual ~Mp4MovieTrimming() = default;

    // A pause takes effect between two steps.
    void Pause() { m_running.Clear(); }
    void Resume() { m_running.Set(); }
    // Also ends a paused job.
    void Cancel();
    void Join() { m_thread.Join(); }

protected:
    Mp4MovieTrimming() = default;

    XpEvent m_running{XpEvent::Reset::kManual};
    XpThread m_thread;
    std::atomic<bool> m_cancel{false};
};

// Saves one segment of a clip with its sound treated.
class Mp4MovieTrimmingEx final : public Mp4MovieTrimming, private IMp4MovieEditProgress {
public:
    ~Mp4MovieTrimmingEx() override;

    // Start the job. `notify` outlives it. False when no thread could be had or one is running.
    bool SaveMp4(const MovieSegment& segment, IMp4MovieEditNotify* notify,
                 const AMPEffectSettings& effects);
    bool SaveWav(const MovieSegment& segment, IMp4MovieEditNotify* notify,
                 const AMPEffectSettings& effects);

private:
    bool Start(const MovieSegment& segment, IMp4MovieEditNotify* notify,
               const AMPEffectSettings& effects, bool wav);
    void Run();
    MovieCode RunSegment(const MovieSegment& segment, SavedSegment* saved);
    bool OnStep(uint64_t done, uint64_t total) override;

    Mp4MovieEditor m_editor;
    IMp4MovieEditNotify* m_notify = nullptr;
    uint64_t m_rounds = 0;
};

}  // namespace tarn
