#include "playback/sound_effect_stream.h"

#include <algorithm>
#include <new>
#include <utility>

namespace tarn {
namespace {

constexpr uint64_t kSecond = 1000000000;  // ns
// What the time stamps may be off, in milliseconds: an audio sink, too, plays on through it.
constexpr uint32_t kTolerance = 40;

constexpr uint32_t kSwitchMs = 5;
// Longer blocks than any source here gives are treated in parts.
constexpr uint32_t kMostFrames = 16384;

AMPEffectSettings without_bypass(AMPEffectSettings settings) {
    settings.bypass = 0;
    return settings;
}

// To the nearest frame: time stamps are cut to whole nanoseconds, often more than once.
uint64_t frame_at(uint64_t ns, uint32_t rate) {
    return ns / kSecond * rate + (ns % kSecond * rate + kSecond / 2) / kSecond;
}

// Cut to whole milliseconds as a save does with its positions.
uint32_t position_of(uint64_t frame, uint32_t rate) {
    const uint64_t ms = frame / rate * 1000 + frame % rate * 1000 / rate;
    return static_cast<uint32_t>(std::min<uint64_t>(ms, UINT32_MAX));
}

}  // namespace

SoundEffectStream::~SoundEffectStream() {
    Free(m_pending.load());
    Free(m_used.load());
}

void SoundEffectStream::Free(Parcel* parcels) {
    while (parcels) {
        const std::unique_ptr<Parcel> owner(parcels);
        parcels = owner->next;
    }
}

HRESULT SoundEffectStream::SetSampleRate(int32_t rate) {
    if (rate < static_cast<int32_t>(kMinSampleRate) || rate > static_cast<int32_t>(kMaxSampleRate))
        return E_INVALIDARG;
    m_toldRate = static_cast<uint32_t>(rate);
    return S_OK;
}

HRESULT SoundEffectStream::SetEffects(const AMPEffectSettings* settings) {
    if (!settings) return E_POINTER;
    Free(m_used.exchange(nullptr));
    // What is taken back here can't be taken over there any more: the new change makes up for it.
    std::unique_ptr<Parcel> superseded(m_pending.exchange(nullptr));
    std::unique_ptr<Parcel> parcel = Prepare(*settings, superseded.get());
    if (!parcel) {
        m_pending = superseded.release();
        return E_OUTOFMEMORY;
    }
    m_requested = without_bypass(*settings);
    m_pending = parcel.release();
    return S_OK;
}

std::unique_ptr<SoundEffectStream::Parcel> SoundEffectStream::Prepare(
    const AMPEffectSettings& settings, Parcel* superseded) const {
    const AMPEffectSettings to = without_bypass(settings);
    // A save builds its chain from the very settings, so a new peak alone is a new level here.
    AMPEffectSettings from = m_requested;
    if (settings.peak != from.peak) from.normalize = 0;
    const uint32_t rate = m_streamRate != 0 ? m_streamRate : m_toldRate;
    try {
        auto parcel = std::make_unique<Parcel>();
        parcel->settings = settings;
        parcel->change.reset(
            AMPEffectPrepare(rate, from, to, superseded ? superseded->change.get() : nullptr));
        if (!parcel->change) return nullptr;
        return parcel;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

HRESULT SoundEffectStream::Store(int32_t ms, std::atomic<int32_t>* place) {
    if (ms < 0) return E_INVALIDARG;
    *place = ms;
    return S_OK;
}

bool SoundEffectStream::SetFormat(uint32_t rate) {
    if (rate < kMinSampleRate || rate > kMaxSampleRate) return false;
    if (m_chain && rate == m_streamRate) return true;
    if (const uint32_t old = m_streamRate; old != 0)
        m_next = m_next / old * rate + m_next % old * rate / old;
    m_streamRate = rate;
    m_switchFrames = rate * kSwitchMs / 1000;
    m_plain = 0;
    m_fresh = true;
    m_dry.resize(size_t{2} * kMostFrames);
    m_meter.Begin(rate);
    m_chain.reset(AMPEffectCreate(rate));
    if (m_chain && !AMPEffectSetParameters(m_chain.get(), m_applied)) m_chain.reset();
    TakeChange();
    return true;
}

void SoundEffectStream::Flush() {
    if (m_chain) AMPEffectReset(m_chain.get());
    if (m_streamRate != 0) m_meter.Begin(m_streamRate);
    m_timed = false;
    m_fresh = true;
}

void SoundEffectStream::Process(int16_t* samples, uint32_t frames, std::optional<uint64_t> time) {
    const uint32_t rate = m_streamRate;
    if (rate == 0 || frames == 0) return;
    const uint64_t first = FirstFrame(time);
    m_next = first + frames;
    TakeChange();
    if (std::exchange(m_fresh, false)) m_plain = m_bypass ? m_switchFrames : 0;
    for (uint32_t done = 0; done < frames; done += kMostFrames)
        Treat(samples + size_t{2} * done, std::min(frames - done, kMostFrames), first + done);
}

void SoundEffectStream::Treat(int16_t* samples, uint32_t frames, uint64_t first) {
    std::copy_n(samples, size_t{2} * frames, m_dry.data());
    if (m_chain) {
        AMPEffectSetRange(m_chain.get(), static_cast<uint32_t>(m_in.load()),
                          static_cast<uint32_t>(m_out.load()));
        AMPEffectProcess(m_chain.get(), samples, samples, frames, position_of(first, m_streamRate));
    }
    Blend(samples, frames);
    m_meter.Take(m_dry.data(), samples, frames);
}

// From the treated sound to the one that came, or back, where bypass was switched.
void SoundEffectStream::Blend(int16_t* samples, uint32_t frames) {
    const uint32_t target = m_bypass ? m_switchFrames : 0;
    if (m_plain == 0 && target == 0) return;
    const auto whole = static_cast<int32_t>(m_switchFrames);
    for (uint32_t i = 0; i < frames; ++i) {
        if (m_plain < target) ++m_plain;
        if (m_plain > target) --m_plain;
        const auto plain = static_cast<int32_t>(m_plain);
        for (size_t at = size_t{2} * i; at < size_t{2} * i + 2; ++at)
            samples[at] =
                static_cast<int16_t>((m_dry[at] * plain + samples[at] * (whole - plain)) / whole);
    }
}

uint64_t SoundEffectStream::FirstFrame(std::optional<uint64_t> time) {
    const uint32_t rate = m_streamRate;
    if (time) {
        m_timed = true;
        const uint64_t first = frame_at(*time, rate);
        const uint64_t off = first > m_next ? first - m_next : m_next - first;
        if (m_chain && off > uint64_t{kTolerance} * rate / 1000) AMPEffectReset(m_chain.get());
        return first;
    }
    if (m_timed) return m_next;
    const int32_t told = m_toldPosition.exchange(-1);
    return told < 0 ? m_next : static_cast<uint64_t>(told) * rate / 1000;
}

void SoundEffectStream::TakeChange() {
    Parcel* const parcel = m_pending.exchange(nullptr);
    if (!parcel) return;
    m_applied = without_bypass(parcel->settings);
    m_bypass = parcel->settings.bypass != 0;
    // Only where the rate is new can a change be for another: then it is made here after all.
    if (m_chain && !AMPEffectApply(m_chain.get(), parcel->change.get()) &&
        !AMPEffectSetParameters(m_chain.get(), m_applied))
        m_chain.reset();
    parcel->next = m_used;
    while (!m_used.compare_exchange_weak(parcel->next, parcel)) {
    }
}

}  // namespace tarn
