#include "movie/save/trimming.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <utility>

#include "movie/facts/movie_text.h"
#include "movie/objects/track_selection.h"
#include "movie/objects/whole_samples.h"
#include "movie/save/effect_writer.h"
#include "movie/save/movie_verify.h"
#include "movie/save/wave_writer.h"
#include "mp4format/atoms/hevc_entry.h"

namespace tarn {
namespace {

constexpr uint64_t kProgressEvery = 10;    // rounds
constexpr uint64_t kPicturesPerStep = 32;  // of reading back
constexpr uint64_t kLookAtSource = 16;     // rounds; also after the last

uint32_t clamp32(uint64_t value) {
    return static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
}

// For samples of a kind that is not served.
Reason fault_of_kind(const CMP4MovieRead& reader, bool picture, uint32_t code) {
    using enum ReasonCode;
    const std::string name = CodecName(code);
    const auto fault = [&](ReasonCode of, std::vector<ReasonArgument> arguments) {
        return Reason{of, ReasonSide::kSource, reader.Path(), std::move(arguments)};
    };
    if (name.empty()) return fault(picture ? kPictureUnknown : kSoundUnknown, {});
    return fault(picture ? kPictureKind : kSoundKind, {name});
}

// What keeps a track out of the save; none where there is no such track.
Reason fault_of(const CMP4MovieRead& reader, bool picture) {
    using enum ReasonCode;
    const auto fault = [&](ReasonCode of_picture, ReasonCode of_sound) {
        return Reason{picture ? of_picture : of_sound, ReasonSide::kSource, reader.Path(), {}};
    };
    uint32_t code = 0;
    switch (FindTrackFault(reader.Session(), fourcc(picture ? "vide" : "soun"), &code)) {
        case TrackFault::kNone:
            return {};
        case TrackFault::kDamaged:
            // Of a picture it is said what can be done all the same, of a sound where it is hurt.
            if (picture || code == 0) return fault(kPictureDamaged, kSoundDamaged);
            return {kDamagedSoundAtom, ReasonSide::kSource, reader.Path(), {ReasonAtom{code}}};
        case TrackFault::kElsewhere:
            return fault(kPictureElsewhere, kSoundElsewhere);
        case TrackFault::kRole:
            return fault(kPictureNotMain, kSoundNotMain);
        case TrackFault::kKind:
            break;
    }
    return fault_of_kind(reader, picture, code);
}

// A picture track is chosen by its first description; the others may be of another kind, or hurt.
Reason fault_of_descriptions(const CMP4MovieRead& reader) {
    for (const CVideoSampleDescriptionInfo& picture : reader.GetInfo().videoDescriptions) {
        if (picture.entry.config_type != 0) continue;
        if (!mp4_is_hevc(picture.entry.format))
            return fault_of_kind(reader, true, picture.entry.format);
        return {ReasonCode::kPictureDamaged, ReasonSide::kSource, reader.Path(), {}};
    }
    return {};
}

// Why a clip can't be saved at all.
Reason refusal(const CMP4MovieRead& reader, bool wav) {
    const CMovieInfoType& info = reader.GetInfo();
    // Neither picture nor sound is left out without a word.
    Reason fault;
    const bool picture_cut = info.video.missingSamples > 0,
               sound_cut = info.audio.missingSamples > 0;
    if (!wav && reader.HasVideo()) fault = fault_of_descriptions(reader);
    if (!wav && !reader.HasVideo() && !picture_cut) fault = fault_of(reader, true);
    if (!fault && !reader.HasAudio() && !sound_cut) fault = fault_of(reader, false);
    if (fault) return fault;
    if (wav && !reader.HasAudio())
        return {ReasonCode::kNoSound, ReasonSide::kSource, reader.Path(), {}};
    if (info.timescale == 0)
        return {ReasonCode::kNoTimescale, ReasonSide::kSource, reader.Path(), {}};
    if (!reader.HasAudio() || info.audioDescriptions.empty()) return {};
    const CAudioSampleDescriptionInfo& sound = info.audioDescriptions[0];
    if (Reason why = WhySoundCannotBeSaved(sound, reader.Path(), !wav)) return why;
    if (sound.entry.format == fourcc("mp4a") && !UMC::HasCodecLibrary())
        return {ReasonCode::kNoCodec, ReasonSide::kNone, reader.Path(), {}};
    return {};
}

// One save: the same rounds whatever is written.
class Saving {
public:
    Saving(const MovieSegment& segment, XpSharedPtr<CMP4MovieRead> reader,
           IMp4MovieEditProgress* progress, SavedSegment* saved)
        : m_segment(segment), m_reader(std::move(reader)), m_progress(progress), m_saved(saved) {}

    template <typename Writer>
    MovieCode Run(Writer& writer, const AMPEffectSettings& effects);

private:
    MovieCode Fail(MovieCode code, const Reason& ofOutput, const Reason& ofSound = {});
    void Tell(const SoundReader& sound);
    MovieCode Cancelled();
    MovieCode CheckRoom(uint64_t needed);
    MovieCode Verify(const std::string& written);
    bool SourceChanged() const { return m_reader->Session() && !m_reader->IsUnchanged(); }
    // With exact points the fade ends at the one that was asked for.
    uint64_t FadeEnd() const {
        return m_segment.options.exact ? m_saved->outMs : m_saved->actualOutMs;
    }

    const MovieSegment& m_segment;
    XpSharedPtr<CMP4MovieRead> m_reader;
    IMp4MovieEditProgress* m_progress;
    SavedSegment* m_saved;
};

template <typename Writer>
MovieCode Saving::Run(Writer& writer, const AMPEffectSettings& effects) {
    writer.SetPath(m_segment.target);
    writer.SetOptions(m_segment.options);
    writer.SetPoints(clamp32(m_saved->actualInMs), clamp32(FadeEnd()));
    writer.SetEffects(effects);
    MovieCode code = writer.Open(m_reader);
    if (code == kMovieOk) MOVIE_TRY(CheckRoom(writer.MostBytes()));
    for (uint64_t round = 0; code == kMovieOk; ++round) {
        if (!m_progress->OnStep(writer.Done(), writer.Total())) return Cancelled();
        code = writer.WriteNext();
        if ((code != kMovieOk || round % kLookAtSource == 0) && SourceChanged())
            code = kMovieChanged;
    }
    if (code == kMovieDone) code = writer.Finish();
    if (code == kMovieOk && m_segment.verify && writer.Video().samples > 0)
        MOVIE_TRY(Verify(writer.HiddenPath()));
    if (code == kMovieOk) code = writer.Close();
    if (code != kMovieOk) return Fail(code, writer.GetReason(), writer.Sound().GetReason());
    Tell(writer.Sound());
    m_saved->videoSamples = writer.Video().samples;
    m_saved->videoBytes = writer.Video().bytes;
    m_saved->audioSamples = writer.Audio().samples;
    m_saved->audioBytes = writer.Audio().bytes;
    m_saved->fileBytes = writer.FileBytes();
    static_cast<void>(m_progress->OnStep(writer.Total(), writer.Total()));
    return kMovieOk;
}

// A source that was cut short or written over meanwhile explains whatever failed. Else what is not
// the output's fault lies in the source.
MovieCode Saving::Fail(MovieCode code, const Reason& ofOutput, const Reason& ofSound) {
    const Reason& of_source = m_reader->GetReason();
    if (SourceChanged()) code = kMovieChanged;
    if (code != kMovieChanged && ofOutput)
        m_saved->reason = ofOutput;
    else if (code == kMovieCodec && ofSound)
        m_saved->reason = ofSound;
    else if (code != kMovieChanged && code != kMovieCodec)
        m_saved->reason = of_source ? of_source : m_reader->ReasonFor(code);
    else
        m_saved->reason = MovieReason(code, ReasonSide::kSource, m_segment.source);
    return code;
}

// What of the sound is silence.
void Saving::Tell(const SoundReader& sound) {
    const SoundDamage& damage = sound.Damage();
    m_saved->soundSamples = sound.Selected();
    m_saved->damagedSoundSamples = damage.samples;
    if (damage.samples == 0) return;
    const CMovieInfoType& info = m_reader->GetInfo();
    int64_t offset = 0;
    if (GetEditOffset(m_reader->Session(), info.audio, info.timescale, &offset) != FF4_RET_OK)
        offset = 0;
    const int64_t ms = mp4_scale_nearest(static_cast<int64_t>(damage.firstTime) - offset, 1000,
                                         info.audio.timescale);
    const ReasonTime first{static_cast<uint64_t>(std::max<int64_t>(ms, 0))};
    m_saved->notes.push_back({ReasonCode::kSoundSilenced,
                              ReasonSide::kSource,
                              m_segment.source,
                              {damage.samples, uint64_t{sound.Selected()}, first}});
}

MovieCode Saving::Cancelled() {
    m_saved->reason = MovieReason(kMovieCancelled, ReasonSide::kNone, m_segment.target);
    return kMovieCancelled;
}

MovieCode Saving::CheckRoom(uint64_t needed) {
    constexpr uint64_t kMegabyte = 1000000;
    uint64_t free = 0;
    if (XpFreeSpace(m_segment.target, &free) != 0 || free >= needed) return kMovieOk;
    return Fail(kMovieSystem, {ReasonCode::kTooLittleRoom,
                               ReasonSide::kTarget,
                               m_segment.target,
                               {needed / kMegabyte + 1, free / kMegabyte, ReasonError{ENOSPC}}});
}

MovieCode Saving::Verify(const std::string& written) {
    const TrackRange& range = m_reader->GetRange().video;
    const uint64_t total = range.end - range.first;
    const auto step = [&](uint64_t pictures) {
        return pictures % kPicturesPerStep != 0 || m_progress->OnStep(total, total);
    };
    Reason reason;
    const MovieCode code =
        VerifyPictures(m_reader.get(), written, step, &m_saved->verifiedSamples, &reason);
    if (code == kMovieOk) return kMovieOk;
    if (code == kMovieCancelled) return Cancelled();
    // Nobody knows the file by that path.
    if (reason.side == ReasonSide::kTarget) reason.file = m_segment.target;
    return Fail(code, reason);
}

// What of the selection lies beyond the end of the file.
void tell_missing(const CMP4MovieRead& movie, SavedSegment* saved) {
    const MovieTrackInfo &video = movie.GetInfo().video, &audio = movie.GetInfo().audio;
    const bool pictures =
        video.missingSamples > 0 && movie.GetRange().video.end > video.sampleCount;
    const bool sound = audio.missingSamples > 0 && movie.GetRange().audio.end > audio.sampleCount;
    const auto counts = [](const MovieTrackInfo& track) {
        return SampleCounts{uint64_t{track.sampleCount} + track.missingSamples,
                            track.missingSamples};
    };
    if (pictures || sound)
        saved->notes.push_back(MissingSamples(counts(video), counts(audio), movie.Path()));
}

}  // namespace

MovieCode Mp4MovieEditor::Prepare(const MovieSegment& segment, XpSharedPtr<CMP4MovieRead>* reader,
                                  SavedSegment* saved) const {
    auto movie = std::make_shared<CMP4MovieRead>();
    movie->SetPath(segment.source);
    movie->SetReadOptions(segment.reading);
    movie->SetSizeLimit(static_cast<int64_t>(std::min<uint64_t>(segment.sizeLimit, INT64_MAX)));
    if (const MovieCode code = movie->Open(); code != kMovieOk) {
        *saved = {};
        saved->reason = movie->GetReason();
        return code;
    }
    MOVIE_TRY(Choose(segment, movie.get(), saved));
    *reader = std::move(movie);
    return kMovieOk;
}

MovieCode Mp4MovieEditor::Choose(const MovieSegment& segment, CMP4MovieRead* movie,
                                 SavedSegment* saved) const {
    const auto fail = [&](MovieCode code, Reason reason) {
        saved->reason = std::move(reason);
        return code;
    };
    const auto range_fault = [&](ReasonCode code, std::vector<ReasonArgument> arguments) {
        return fail(kMovieRange, {code, ReasonSide::kSource, segment.source, std::move(arguments)});
    };
    *saved = {};
    if (Reason why = refusal(*movie, m_wavOutput))
        return fail(movie_code(FF4_RET_FORMAT), std::move(why));

    const uint64_t duration = movie->GetDurationMs();
    saved->inMs = segment.inMs;
    saved->outMs = std::min(segment.outMs, duration);
    if (segment.inMs >= duration)
        return range_fault(ReasonCode::kInPastEnd, {ReasonTime{duration}});
    if (saved->outMs < segment.inMs) return range_fault(ReasonCode::kOutBeforeIn, {});
    uint64_t in = saved->inMs, out = saved->outMs;
    const bool at_end = duration <= segment.outMs;
    if (const MovieCode code = movie->SelectRange(&in, &out, at_end); code != kMovieOk)
        return fail(code, movie->GetReason());
    if (movie->SelectsOverlap())
        return fail(movie_code(FF4_RET_FORMAT),
                    {ReasonCode::kSamplesOverlap, ReasonSide::kSource, segment.source, {}});
    saved->actualInMs = segment.options.exact ? movie->GetRange().exactInMs : in;
    saved->actualOutMs = out;
    tell_missing(*movie, saved);
    return kMovieOk;
}

MovieCode Mp4MovieEditor::Save(const MovieSegment& segment,
                               const XpSharedPtr<CMP4MovieRead>& reader,
                               IMp4MovieEditProgress* progress, SavedSegment* saved) const {
    const auto start = std::chrono::steady_clock::now();
    Saving saving(segment, reader, progress, saved);
    CMP4MovieWriteWithAudioEffect movie;
    WaveWriter wave;
    const MovieCode code = m_wavOutput ? saving.Run(wave, m_effects) : saving.Run(movie, m_effects);
    saved->seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return code;
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

MovieCode Mp4MovieTrimmingEx::RunSegment(const MovieSegment& segment, SavedSegment* saved) {
    try {
        XpSharedPtr<CMP4MovieRead> reader;
        MOVIE_TRY(m_editor.Prepare(segment, &reader, saved));
        return m_editor.Save(segment, reader, this, saved);
    } catch (const std::bad_alloc&) {
        const MovieCode code = movie_code(FF4_RET_NOMEM);
        saved->reason = MovieReason(code, ReasonSide::kNone, segment.source);
        return code;
    }
}

void Mp4MovieTrimmingEx::Run() {
    using Notify = IMp4MovieEditNotify;
    m_notify->OnComplete(Notify::kStarted, kMovieOk, 0, nullptr);
    for (const MovieSegment& segment : m_editor.Segments()) {
        m_running.Wait();
        SavedSegment saved;
        const MovieCode code = RunSegment(segment, &saved);
        if (code == kMovieCancelled)
            return m_notify->OnComplete(Notify::kCancelled, kMovieOk, 0, &saved);
        if (code != kMovieOk)
            return m_notify->OnComplete(Notify::kFailed, code, saved.reason.SystemError(), &saved);
        m_notify->OnComplete(Notify::kSegmentDone, kMovieOk, 0, &saved);
    }
    m_notify->OnComplete(Notify::kAllDone, kMovieOk, 0, nullptr);
}

}  // namespace tarn
