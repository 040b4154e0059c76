#include "movie/save/trimming.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>

#include "movie/facts/movie_text.h"
#include "movie/objects/track_selection.h"
#include "movie/save/effect_writer.h"
#include "movie/save/movie_verify.h"
#include "movie/save/wave_writer.h"

namespace tarn {
namespace {

constexpr uint64_t kProgressEvery = 10;    // rounds
constexpr uint64_t kPicturesPerStep = 32;  // of reading back
constexpr uint64_t kAacBytesPerSecond = 16000;
// The largest frame of AAC in stereo, and how many frames the encoder can hold back.
constexpr uint64_t kMostAacFrame = 2 * 6144 / 8;
constexpr uint64_t kMostFramesHeld = 8;
// Room for what is not media: headers and tables, generously.
constexpr uint64_t kHeadRoom = 1 << 20;
constexpr uint64_t kTableBytesPerSample = 32;

uint32_t clamp32(uint64_t value) {
    return static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
}

// Where the fade ends: with exact points at the one that was asked for.
uint32_t fade_end(const MovieSegment& segment) {
    return clamp32(segment.options.exact ? segment.outMs : segment.actualOutMs);
}

uint64_t samples_of(const MovieRange& range) {
    return uint64_t{range.video.end - range.video.first} + (range.audio.end - range.audio.first);
}

// The most that the media of a save can take: pictures as they are, sound at its new rate or, PCM,
// as it is. Headers may claim any length; no more sound comes out than there are samples.
uint64_t most_media_bytes(const MovieRange& range) {
    const uint64_t ms = range.actualOutMs - std::min(range.actualOutMs, range.actualInMs);
    const uint64_t frames = uint64_t{range.audio.end - range.audio.first} + kMostFramesHeld;
    return range.video.bytes + range.audio.bytes +
           std::min((ms / 1000 + 1) * kAacBytesPerSecond, frames * kMostAacFrame);
}

// A source that is no longer what was opened ends the job.
MovieCode source_state(const CMP4MovieRead& reader) {
    return reader.IsUnchanged() ? kMovieOk : kMovieChanged;
}

// What a save failed with, or the reason behind it: a source that was cut short or written over.
MovieCode cause_of(MovieCode code, const CMP4MovieRead& reader) {
    const bool failed = code != kMovieOk && code != kMovieCancelled;
    return failed && reader.Session() && !reader.IsUnchanged() ? kMovieChanged : code;
}

// What keeps a track out of the save, to be followed by what can't be done with it; empty where
// there is no such track.
std::string fault_of(const CMP4MovieRead& reader, uint32_t handler) {
    uint32_t code = 0;
    switch (FindTrackFault(reader.Session(), handler, &code)) {
        case TrackFault::kNone:
            return {};
        case TrackFault::kDamaged:
            return "is damaged and";
        case TrackFault::kElsewhere:
            return "lies in another file and";
        case TrackFault::kRole:
            return "is not marked as the main one and";
        case TrackFault::kKind:
            break;
    }
    const std::string name = CodecName(code);
    return name.empty() ? "is of a kind that" : "(" + name + ")";
}

// Why a clip can't be saved at all, in words; empty when it can.
std::string refusal(const CMP4MovieRead& reader, bool wav) {
    const CMovieInfoType& info = reader.GetInfo();
    // Neither picture nor sound is left out behind the user's back.
    std::string fault;
    if (!wav && !reader.HasVideo()) fault = fault_of(reader, fourcc("vide"));
    if (!fault.empty()) return "the picture " + fault + " can't be carried; save the sound as WAV";
    if (!reader.HasAudio()) fault = fault_of(reader, fourcc("soun"));
    if (!fault.empty()) return "the sound " + fault + " can't be made anew";
    if (wav && !reader.HasAudio()) return "the clip has no sound that could be saved";
    if (info.timescale == 0) return "the movie header is damaged: it has no time scale";
    if (reader.HasAudio() && !info.audioDescriptions.empty())
        return WhySoundCannotBeSaved(info.audioDescriptions[0], !wav);
    return {};
}

}  // namespace

MovieCode Mp4MovieEditor::Fail(MovieCode code, int32_t systemError, const std::string& reason) {
    m_lastError = systemError;
    m_reason = reason.empty() ? MovieCodeText(code, systemError) : reason;
    return code;
}

MovieCode Mp4MovieEditor::Prepare(MovieSegment* segment, XpSharedPtr<CMP4MovieRead>* reader) {
    auto movie = std::make_shared<CMP4MovieRead>();
    movie->SetPath(segment->source);
    movie->SetSizeLimit(static_cast<int64_t>(std::min<uint64_t>(segment->sizeLimit, INT64_MAX)));
    if (const MovieCode code = movie->Open(); code != kMovieOk)
        return Fail(code, movie->LastError());
    if (const std::string why = refusal(*movie, m_wavOutput); !why.empty())
        return Fail(movie_code(FF4_RET_FORMAT), 0, why);

    const uint64_t duration = movie->GetDurationMs();
    if (segment->inMs >= duration) {
        return Fail(kMovieRange, 0,
                    "the in point lies at or behind the end, " + std::to_string(duration) +
                        " milliseconds");
    }
    uint64_t in = segment->inMs, out = std::min(segment->outMs, duration);
    const bool at_end = duration <= segment->outMs;
    if (out < in) return Fail(kMovieRange, 0, "the out point lies before the in point");
    if (const MovieCode code = movie->SelectRange(&in, &out, at_end); code != kMovieOk)
        return Fail(code, movie->LastError());
    segment->outMs = std::min(segment->outMs, duration);
    segment->actualInMs = segment->options.exact ? movie->GetRange().exactInMs : in;
    segment->actualOutMs = out;
    *reader = std::move(movie);
    return kMovieOk;
}

MovieCode Mp4MovieEditor::CheckRoom(const std::string& target, uint64_t needed) {
    uint64_t free = 0;
    if (XpFreeSpace(target, &free) != 0 || free >= needed) return kMovieOk;
    return Fail(kMovieSystem, ENOSPC,
                "not enough room on the disk: " + std::to_string(needed / 1000000 + 1) +
                    " MB are needed, " + std::to_string(free / 1000000) + " MB are free");
}

MovieCode Mp4MovieEditor::Save(MovieSegment* segment, const XpSharedPtr<CMP4MovieRead>& reader,
                               IMp4MovieEditProgress* progress) {
    const auto start = std::chrono::steady_clock::now();
    MOVIE_TRY(m_wavOutput ? SaveWave(segment, reader, progress)
                          : SaveMovie(segment, reader, progress));
    struct stat info {};
    if (stat(segment->target.c_str(), &info) == 0)
        segment->fileBytes = static_cast<uint64_t>(info.st_size);
    segment->seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return kMovieOk;
}

MovieCode Mp4MovieEditor::SaveMovie(MovieSegment* segment, const XpSharedPtr<CMP4MovieRead>& reader,
                                    IMp4MovieEditProgress* progress) {
    CMP4MovieWriteWithAudioEffect writer;
    writer.SetPath(segment->target);
    writer.SetOptions(segment->options);
    writer.SetPoints(clamp32(segment->actualInMs), fade_end(*segment));
    writer.SetEffects(m_effects);
    const uint64_t total = reader->GetSelectedSampleCount();
    const MovieRange& range = reader->GetRange();
    const uint64_t most = most_media_bytes(range);
    MOVIE_TRY(
        CheckRoom(segment->target, most + samples_of(range) * kTableBytesPerSample + kHeadRoom));
    MovieCode code = writer.Open(reader, kMovieBehindMedia, most);
    while (code == kMovieOk) {
        code = source_state(*reader);
        if (code == kMovieOk && !progress->OnStep(writer.Done(), total)) return kMovieCancelled;
        if (code == kMovieOk) code = writer.WriteNext();
    }
    if (code == kMovieDone) code = source_state(*reader);
    if (code == kMovieOk) code = writer.Finish();
    if (code == kMovieOk && segment->verify)
        MOVIE_TRY(Verify(segment, *reader, writer.HiddenPath(), progress));
    if (code == kMovieOk) code = writer.Close();
    code = cause_of(code, *reader);
    m_outputFailed = code == kMovieSystem && reader->LastError() == 0;
    if (code != kMovieOk) return Fail(code, writer.LastError());
    segment->videoSamples = writer.Video().samples;
    segment->videoBytes = writer.Video().bytes;
    segment->audioSamples = writer.Audio().samples;
    segment->audioBytes = writer.Audio().bytes;
    static_cast<void>(progress->OnStep(total, total));
    return kMovieOk;
}

MovieCode Mp4MovieEditor::SaveWave(MovieSegment* segment, const XpSharedPtr<CMP4MovieRead>& reader,
                                   IMp4MovieEditProgress* progress) {
    WaveWriter writer;
    writer.SetOptions(segment->options);
    const MovieRange& range = reader->GetRange();
    const uint64_t total = range.audio.end - range.audio.first;
    MovieCode code = writer.Open(segment->target, reader, m_effects, clamp32(segment->actualInMs),
                                 fade_end(*segment));
    if (code == kMovieOk) MOVIE_TRY(CheckRoom(segment->target, writer.AnnouncedBytes()));
    while (code == kMovieOk) {
        code = source_state(*reader);
        if (code == kMovieOk && !progress->OnStep(writer.SamplesRead(), total))
            return kMovieCancelled;
        if (code == kMovieOk) code = writer.WriteNext();
    }
    if (code == kMovieDone) code = source_state(*reader);
    if (code == kMovieOk) code = writer.Close();
    code = cause_of(code, *reader);
    m_outputFailed = code == kMovieSystem && reader->LastError() == 0;
    if (code != kMovieOk) return Fail(code, writer.LastError());
    segment->audioSamples = writer.Frames();
    segment->audioBytes = writer.Frames() * 4;
    static_cast<void>(progress->OnStep(total, total));
    return kMovieOk;
}

MovieCode Mp4MovieEditor::Verify(MovieSegment* segment, const CMP4MovieRead& reader,
                                 const std::string& saved, IMp4MovieEditProgress* progress) {
    const TrackRange& range = reader.GetRange().video;
    const uint64_t total = range.end - range.first;
    uint64_t pictures = 0;
    const auto step = [&] {
        return pictures++ % kPicturesPerStep != 0 || progress->OnStep(total, total);
    };
    int32_t error = 0;
    std::string reason;
    const MovieCode code = VerifyPictures(segment->source, range.first, range.end, saved, step,
                                          &segment->verifiedSamples, &error, &reason);
    // A difference is the output's fault only as long as the source is what it was.
    const MovieCode cause = cause_of(code, reader);
    if (cause == kMovieOk || cause == kMovieCancelled) return cause;
    return cause == code ? Fail(code, error, reason) : Fail(cause, 0);
}

Mp4MovieTrimmingEx::~Mp4MovieTrimmingEx() {
    Cancel();
    Join();
}

bool Mp4MovieTrimmingEx::SaveMp4(const MovieSegment& segment, IMp4MovieEditNotify* notify,
                                 const AMPEffectSettings& effects) {
    return Start(segment, notify, effects, false);
}

bool Mp4MovieTrimmingEx::SaveWav(const MovieSegment& segment, IMp4MovieEditNotify* notify,
                                 const AMPEffectSettings& effects) {
    return Start(segment, notify, effects, true);
}

bool Mp4MovieTrimmingEx::Start(const MovieSegment& segment, IMp4MovieEditNotify* notify,
                               const AMPEffectSettings& effects, bool wav) {
    if (!notify || m_thread.IsRunning()) return false;
    m_notify = notify;
    m_cancel = false;
    m_rounds = 0;
    m_editor = Mp4MovieEditor();
    m_editor.Add(segment);
    m_editor.SetEffects(effects);
    m_editor.SetWavOutput(wav);
    m_running.Set();
    return m_thread.Start("tarn-save", [this](std::stop_token) { Run(); }) == 0;
}

void Mp4MovieTrimming::Cancel() {
    m_cancel = true;
    m_running.Set();
}

bool Mp4MovieTrimmingEx::OnStep(uint64_t done, uint64_t total) {
    m_running.Wait();
    if (m_rounds++ % kProgressEvery == 0 || done == total) m_notify->OnProgress(done, total);
    return !m_cancel;
}

void Mp4MovieTrimmingEx::Run() {
    using Notify = IMp4MovieEditNotify;
    m_notify->OnComplete(Notify::kStarted, kMovieOk, 0, {}, nullptr);
    for (MovieSegment& segment : m_editor.Segments()) {
        m_running.Wait();
        XpSharedPtr<CMP4MovieRead> reader;
        MovieCode code = kMovieOk;
        std::string reason;
        try {
            code = m_editor.Prepare(&segment, &reader);
            if (code == kMovieOk) code = m_editor.Save(&segment, reader, this);
            reason = m_editor.Reason();
        } catch (const std::bad_alloc&) {
            code = movie_code(FF4_RET_NOMEM);
            reason = MovieCodeText(code, 0);
        }
        if (code == kMovieCancelled) {
            m_notify->OnComplete(Notify::kCancelled, kMovieOk, 0, {}, &segment);
            return;
        }
        if (code != kMovieOk) {
            m_notify->OnComplete(Notify::kFailed, code, m_editor.LastError(), reason, &segment);
            return;
        }
        m_notify->OnComplete(Notify::kSegmentDone, kMovieOk, 0, {}, &segment);
    }
    m_notify->OnComplete(Notify::kAllDone, kMovieOk, 0, {}, nullptr);
}

}  // namespace tarn
