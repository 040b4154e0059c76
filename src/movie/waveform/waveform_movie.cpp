#include "movie/waveform/waveform_movie.h"

#include <algorithm>
#include <new>

#include "movie/waveform/waveform_aac.h"
#include "movie/waveform/waveform_pcm.h"
#include "movie/waveform/waveform_picker.h"
#include "mp4format/atoms/profile.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

constexpr uint32_t kAac = fourcc("mp4a");
constexpr uint32_t kLittleEndian = fourcc("sowt");  // the other PCM, 'twos', is big-endian
constexpr uint64_t kLongestAacFrame = 2048;         // sample frames, with band replication
constexpr uint32_t kLowestAacRate = 7350;           // hertz

int8_t high_byte(int16_t sample) {
    return static_cast<int8_t>(sample >> 8);
}

// Rounded down; at most the largest number.
uint64_t scale(uint64_t value, uint64_t mul, uint64_t div) {
    return mp4_mul_div_or(value, mul, div, UINT64_MAX);
}

// The first frame at or after a time of the track.
uint64_t frame_at(uint64_t time, uint32_t rate, uint32_t timescale) {
    if (rate == timescale) return time;
    const uint64_t frames = scale(time, rate, timescale);
    return scale(frames, timescale, rate) < time ? frames + 1 : frames;
}

// The points from frame `first` up to `end`, of which the frames in `pcm` are the first ones.
void pick(std::span<const int16_t> pcm, uint32_t channels, uint64_t first, uint64_t end,
          WaveformPicker* picker) {
    picker->SkipTo(first);  // a stream that changes its rate may have left one behind
    const uint64_t held = channels > 0 ? pcm.size() / channels : 0;
    const size_t right = channels > 1 ? 1 : 0;
    while (!picker->Full() && picker->NextFrame() < std::min(end, first + held)) {
        const size_t at = static_cast<size_t>(picker->NextFrame() - first) * channels;
        picker->Put(high_byte(pcm[at]), high_byte(pcm[at + right]));
    }
    picker->SkipTo(end);
}

}  // namespace

bool MovieWaveform::Read(const std::string& path, uint32_t pointsPerSecond,
                         const WaveformProgress& progress) {
    CMP4MovieRead movie;
    movie.SetPath(path);
    movie.SetReadOptions(reading);
    if (movie.Open() != kMovieOk) return Stop(WaveformFault::kFile, movie.GetReason());
    return Read(&movie, pointsPerSecond, progress);
}

bool MovieWaveform::Read(CMP4MovieRead* movie, uint32_t pointsPerSecond,
                         const WaveformProgress& progress) {
    m_movie = movie;
    try {
        if (!FindSound() || !IsAllowed() || !MakeRows(pointsPerSecond)) return false;
        WaveformPicker picker(&points, pointsPerSecond, progress);
        return Sound().entry.format == kAac ? ReadAac(&picker) : ReadPcm(&picker);
    } catch (const std::bad_alloc&) {
        points = {};
        return Stop(WaveformFault::kFile,
                    {ReasonCode::kOutOfMemory, ReasonSide::kNone, movie->Path(), {}});
    }
}

bool MovieWaveform::FindSound() {
    if (!m_movie->HasAudio() || m_movie->GetInfo().audioDescriptions.empty())
        return Stop(WaveformFault::kNoSound, Why(ReasonCode::kNoSoundShown));
    Mp4AudioProfile profile{};
    m_hasProfile = mp4_get_audio_profile(m_movie->Session(), &profile) == FF4_RET_OK;
    m_profileChannels = profile.channels;
    m_profileRate = profile.sampling_rate;
    return true;
}

const CAudioSampleDescriptionInfo& MovieWaveform::Sound() const {
    return m_movie->GetInfo().audioDescriptions.front();
}

// A camera clip goes by its profile record alone; others by what their sound entry says.
bool MovieWaveform::IsAllowed() {
    if (m_hasProfile) {
        if (m_profileChannels == 2) return true;
        return Stop(WaveformFault::kNoSound, Why(ReasonCode::kProfileNotStereo));
    }
    const Mp4AudioEntry& entry = Sound().entry;
    if (entry.format == kAac || (entry.sample_size == 16 && entry.channel_count > 0)) return true;
    return Stop(WaveformFault::kNoSound, Why(ReasonCode::kSoundNotShown));
}

uint32_t MovieWaveform::PcmChannels() const {
    return m_hasProfile ? 2 : Sound().entry.channel_count;
}

// Of the sound entry. It has no room for a rate above 65535.
uint32_t MovieWaveform::EntryRate() const {
    const uint32_t rate = Sound().entry.sampling_rate;
    return rate != 0 ? rate : m_movie->GetInfo().audio.timescale;
}

// The tables say how long the sound is, but no longer than the file can hold.
bool MovieWaveform::MakeRows(uint32_t pointsPerSecond) {
    const MovieTrackInfo& track = m_movie->GetInfo().audio;
    const uint64_t length = m_movie->Session()->file_size;
    uint64_t most = 0;
    if (Sound().entry.format == kAac) {
        most = scale(track.sampleCount, kLongestAacFrame * pointsPerSecond, kLowestAacRate);
    } else {
        const uint64_t frames = length / (2 * PcmChannels());
        most = std::min(scale(frames, pointsPerSecond, EntryRate()), length);
    }
    uint64_t count = std::min(scale(track.duration, pointsPerSecond, track.timescale), most);
    count = std::min<uint64_t>(count, UINT32_MAX);
    points.left = WaveformRow(count);
    points.right = WaveformRow(count);
    return true;
}

bool MovieWaveform::ReadAac(WaveformPicker* picker) {
    AacSound sound;
    const MovieTrackInfo& track = m_movie->GetInfo().audio;
    if (!sound.Init(Sound(), m_hasProfile ? m_profileRate : EntryRate(), !m_hasProfile))
        return StopAt(
            0, Why(UMC::HasCodecLibrary() ? ReasonCode::kSoundBroken : ReasonCode::kNoCodec));
    CReadBuffer sample;
    ReadSampleInfo info;
    TrackCursor cursor{track.trackNumber};
    uint64_t left = m_movie->Session()->file_size;  // bytes: more is not there but once
    while (!picker->Full()) {
        if (!picker->Report()) return Cancelled();
        const uint64_t time = cursor.currentTime;
        if (cursor.currentSample > track.sampleCount)
            return StopAt(time, Why(ReasonCode::kSoundEndsEarly));
        if (m_movie->ReadSample(&cursor, &sample, &info) != kMovieOk)
            return StopAt(time, m_movie->GetReason());
        if (sample.size() > left) return StopAt(time, Why(ReasonCode::kSamplesOverlap));
        left -= sample.size();
        std::span<const int16_t> pcm;
        const UMC::Status status = sound.Decode(&sample, &pcm);
        if (status == UMC::kStatusNoMemory) throw std::bad_alloc();
        if (status != UMC::kStatusOk && !m_movie->GetReadOptions().silenceDamage)
            return StopAt(time, Why(ReasonCode::kSoundBroken));
        if (sample.data.empty()) pcm = {};  // the points are 0 already
        picker->SetRate(sound.Rate());
        pick(pcm, sound.Channels(), frame_at(time, sound.Rate(), track.timescale),
             frame_at(cursor.currentTime, sound.Rate(), track.timescale), picker);
    }
    return true;
}

bool MovieWaveform::ReadPcm(WaveformPicker* picker) {
    const MovieTrackInfo& track = m_movie->GetInfo().audio;
    const uint32_t channels = PcmChannels(), rate = EntryRate();
    const size_t left = Sound().entry.format == kLittleEndian ? 1 : 0;  // of the high byte
    const size_t right = left + (channels > 1 ? 2 : 0);
    PcmFrames frames(m_movie->Session(), track.trackNumber, channels);
    picker->SetRate(rate);
    while (!picker->Full()) {
        if (!picker->Report()) return Cancelled();
        const uint64_t frame = picker->NextFrame();
        const uint8_t* bytes = nullptr;
        const Mp4Result result = frames.At(frame, &bytes);
        if (result != FF4_RET_OK) {
            return StopAt(scale(frame, track.timescale, rate),
                          result == FF4_RET_NOTFOUND ? Why(ReasonCode::kSoundEndsEarly)
                                                     : m_movie->ReasonFor(movie_code(result)));
        }
        picker->Put(static_cast<int8_t>(bytes[left]), static_cast<int8_t>(bytes[right]));
    }
    return true;
}

bool MovieWaveform::Cancelled() {
    return Stop(WaveformFault::kCancelled,
                {ReasonCode::kCancelled, ReasonSide::kNone, m_movie->Path(), {}});
}

bool MovieWaveform::Stop(WaveformFault fault, const Reason& reason) {
    outcome.fault = fault;
    outcome.reason = reason;
    return false;
}

// `time` in the track's units.
bool MovieWaveform::StopAt(uint64_t time, const Reason& reason) {
    outcome.endMs = scale(time, 1000, m_movie->GetInfo().audio.timescale);
    return Stop(WaveformFault::kCutShort, reason);
}

bool WFMP4Reader::Open(const std::string& path, uint32_t pointsPerSecond) {
    MovieWaveform waveform;
    waveform.reading = m_readOptions;
    static_cast<void>(waveform.Read(path, pointsPerSecond, m_progress));
    Take(&waveform);
    return true;
}

void WFMP4Reader::Open(CMP4MovieRead* movie, uint32_t pointsPerSecond) {
    MovieWaveform waveform;
    static_cast<void>(waveform.Read(movie, pointsPerSecond, m_progress));
    Take(&waveform);
}

void WFMP4Reader::Take(MovieWaveform* waveform) {
    m_points = std::move(waveform->points);
    m_outcome = std::move(waveform->outcome);
}

}  // namespace tarn
