// export_movie.cpp - `tarn export IN.mp4 OUT.mp4` and `tarn export IN.mp4 OUT.wav`.
#include <iostream>

#include "base/reason.h"
#include "base/xp_output_file.h"
#include "base/xp_path.h"
#include "cli/commands.h"
#include "cli/export_job.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "movie/save/trimming.h"
#include "movie/waveform/peaks.h"

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
bool measure_peak(const std::string& path, float* peak) {
    const auto source = PeakSource::Create(path, 1);
    if (!source || source->GetCount() == 0) return false;
    *peak = source->GetPeak();
    return true;
}

// Whose fault a failure is: the output's when writing failed, else the input's.
int fail(const ExportOptions& options, const Mp4MovieEditor& editor, MovieCode code) {
    if (code == kMovieCancelled) return Fail(options.output, "cancelled, nothing was written");
    const int error = editor.LastError();
    if (code == kMovieSystem && error == EEXIST)
        return Fail(options.output, "already exists; choose another name");
    if (code == kMovieSystem && XpIsDiskFull(error))
        return Fail(options.output, "no room for the output (" + editor.Reason() + ")");
    if (code == kMovieSystem && editor.OutputFailed())
        return Fail(options.output, "can't be written: " + editor.Reason());
    if (code == kMovieMismatch)
        return Fail(options.output, editor.Reason() + "; nothing was saved");
    return Fail(options.input, editor.Reason());
}

Json document_of(const MovieSegment& s) {
    Json json = {{"input", s.source},
                 {"output", s.target},
                 {"requested", {{"in_ms", s.inMs}, {"out_ms", s.outMs}}},
                 {"actual", {{"in_ms", s.actualInMs}, {"out_ms", s.actualOutMs}}},
                 {"video", {{"samples", s.videoSamples}, {"bytes", s.videoBytes}}},
                 {"audio", {{"samples", s.audioSamples}, {"bytes", s.audioBytes}}},
                 {"bytes", s.fileBytes}};
    if (s.verify) json["verified"] = s.verifiedSamples;
    json["seconds"] = s.seconds;
    return json;
}

void say(const MovieSegment& s, bool wav) {
    std::cout << XpPath::Printable(s.target) << ": " << TimeText(s.actualInMs) << " to "
              << TimeText(s.actualOutMs);
    if (wav) {
        std::cout << ", " << s.audioSamples << " sound frames made anew\n";
        return;
    }
    std::cout << ", " << s.videoSamples << " pictures kept as they were, " << s.audioSamples
              << " sound samples made anew\n";
    if (s.verify)
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
    segment.options = {.exact = options.exact, .compensateDelay = !options.raw_delay};
    segment.verify = options.verify;

    Mp4MovieEditor editor;
    editor.SetWavOutput(wav);
    Steps steps(cancel, options.quiet);
    XpSharedPtr<CMP4MovieRead> reader;
    MovieCode code = editor.Prepare(&segment, &reader);
    if (code != kMovieOk) return {fail(options, editor, code), {}};

    float peak = 1.0f;
    if (!reader->HasAudio() && options.effects.AnyChosen())
        Note(options.input, "has no sound: the effects have nothing to treat");
    else if (options.effects.NeedsPeak() && !measure_peak(options.input, &peak))
        return {Fail(options.input, "the peak of its sound can't be measured"), {}};
    editor.SetEffects(options.effects.Settings(peak));
    code = editor.Save(&segment, reader, &steps);
    if (code != kMovieOk) return {fail(options, editor, code), {}};
    if (!options.json && !options.quiet) say(segment, wav);
    return {kExitDone, document_of(segment)};
}

}  // namespace tarn
