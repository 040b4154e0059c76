// export_movie.cpp - `tarn export IN.mp4 OUT.mp4` and `tarn export IN.mp4 OUT.wav`.
#include <iostream>

#include "base/reason.h"
#include "base/xp_path.h"
#include "cli/commands.h"
#include "cli/export_job.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "movie/save/trimming.h"
#include "movie/waveform/peaks.h"
#include "movie/waveform/waveform_movie.h"

namespace tarn {
namespace {

using Json = nlohmann::ordered_json;

// Shows the progress of a save and ends it when the user asked for that.
class Steps final : public IMp4MovieEditProgress {
public:
    Steps(const CancelOnSignals& cancel, bool quiet) : m_cancel(cancel), m_quiet(quiet) {}
    bool OnStep(uint64_t done, uint64_t total) override {
        if (!m_quiet) m_bar.Show(done, total);
        return !m_cancel.Requested();
    }

private:
    const CancelOnSignals& m_cancel;
    bool m_quiet;
    ProgressBar m_bar;
};

// The peak that normalising needs: that of the whole clip, as the waveform has it.
// A part of it is no peak: with it the sound would be far too loud.
Reason measure_peak(CMP4MovieRead* movie, Steps steps, float* peak) {
    WFMP4Reader sound;
    sound.SetProgress([&](uint32_t done, uint32_t count) { return steps.OnStep(done, count); });
    sound.Open(movie, PeakSource::PointsPerSecond());
    const auto source = PeakSource::Create(&sound, 1);
    if (source->GetReason()) return source->GetReason();
    *peak = source->GetPeak();
    if (source->GetCount() > 0) return {};
    return {ReasonCode::kPeakUnknown, ReasonSide::kSource, movie->Path(), {}};
}

Json document_of(const MovieSegment& segment, const SavedSegment& s) {
    Json json = {{"input", segment.source},
                 {"output", segment.target},
                 {"requested", {{"in_ms", s.inMs}, {"out_ms", s.outMs}}},
                 {"actual", {{"in_ms", s.actualInMs}, {"out_ms", s.actualOutMs}}},
                 {"video", {{"samples", s.videoSamples}, {"bytes", s.videoBytes}}},
                 {"audio", {{"samples", s.audioSamples}, {"bytes", s.audioBytes}}},
                 {"damaged_sound_samples", s.damagedSoundSamples},
                 {"bytes", s.fileBytes}};
    for (const Reason& note : s.notes)
        json["notes"].push_back(ReasonJson(note));
    if (segment.verify) json["verified"] = s.verifiedSamples;
    json["seconds"] = s.seconds;
    return json;
}

// What is missing of the recording is never left unsaid.
void tell(const SavedSegment& saved) {
    for (const Reason& note : saved.notes)
        Note(note.file, ReasonText(note));
}

void say(const MovieSegment& segment, const SavedSegment& s, bool wav) {
    std::cout << XpPath::Printable(segment.target) << ": " << TimeText(s.actualInMs) << " to "
              << TimeText(s.actualOutMs);
    if (wav) {
        std::cout << ", " << s.audioSamples << " sound frames re-encoded\n";
        return;
    }
    std::cout << ", " << s.videoSamples << " pictures kept as they were, " << s.audioSamples
              << " sound samples re-encoded\n";
    if (segment.verify)
        std::cout << "verified: " << s.verifiedSamples
                  << " pictures are the source's, byte for byte\n";
}

}  // namespace

ExportReport ExportMovie(const ExportOptions& options, const CancelOnSignals& cancel) {
    const bool wav = XpPath::HasExtension(options.output, ".wav");
    MovieSegment segment;
    segment.source = options.input;
    segment.target = options.output;
    segment.inMs = options.in_ms.value_or(0);
    if (options.out_ms) segment.outMs = *options.out_ms;
    if (!options.strict) segment.reading = kRescueDamaged;
    segment.options = {.exact = options.exact, .compensateDelay = !options.raw_delay};
    segment.verify = options.verify;

    Mp4MovieEditor editor;
    editor.SetWavOutput(wav);
    Steps steps(cancel, options.quiet);
    XpSharedPtr<CMP4MovieRead> reader;
    SavedSegment saved;
    if (editor.Prepare(segment, &reader, &saved) != kMovieOk) return {saved.reason, {}};

    float peak = 1.0f;
    if (!reader->HasAudio() && options.effects.AnyChosen())
        Note(options.input, "has no sound: the effects have nothing to treat");
    else if (options.effects.NeedsPeak())
        if (Reason reason = measure_peak(reader.get(), {cancel, options.quiet}, &peak))
            return {std::move(reason), {}};
    // What is broken outside the selection keeps nobody from saving that.
    if (!reader->Session() && editor.Prepare(segment, &reader, &saved) != kMovieOk)
        return {saved.reason, {}};
    editor.SetEffects(options.effects.Settings(peak));
    if (editor.Save(segment, reader, &steps, &saved) != kMovieOk) return {saved.reason, {}};
    tell(saved);
    if (!options.json && !options.quiet) say(segment, saved, wav);
    return {{}, document_of(segment, saved)};
}

}  // namespace tarn
