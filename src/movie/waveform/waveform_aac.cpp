#include "movie/waveform/waveform_aac.h"

#include "movie/umc/aac_config.h"

namespace tarn {

bool AacSound::Init(const CAudioSampleDescriptionInfo& description, uint32_t rate, bool foreign) {
    const auto specific = UMC::FindDecoderSpecificInfo(description.decoderConfig);
    if (specific.empty()) return false;
    std::vector<uint8_t> bytes(specific.begin(), specific.end());
    UMC::AacConfig parsed;
    if (UMC::ParseAacConfig(bytes, &parsed) != UMC::kStatusOk) return false;
    m_frameLength = static_cast<uint32_t>(parsed.frameLength) * (parsed.sbr || parsed.ps ? 2 : 1);
    const auto size = static_cast<uint32_t>(bytes.size());
    UMC::MediaData config;
    if (config.SetBufferPointer(bytes.data(), size) != UMC::kStatusOk ||
        config.SetDataSize(size) != UMC::kStatusOk)
        return false;

    m_params.data = &config;
    m_params.psSupport = foreign ? 1 : 0;
    m_params.info.streamType = UMC::kStreamAacConfigured;
    m_params.info.streamSubType = 1;
    m_params.info.channels = 2;
    m_params.info.bitsPerSample = 0;
    m_params.info.sampleRate = static_cast<int32_t>(rate);
    const UMC::Status status = m_decoder.Init(&m_params);
    m_params.data = nullptr;
    return status == UMC::kStatusOk && m_decoder.GetInfo(&m_params) >= 0 &&
           m_out.Alloc(m_params.suggestedOutputSize) == UMC::kStatusOk;
}

UMC::Status AacSound::Decode(CReadBuffer* sample, std::span<const int16_t>* pcm) {
    *pcm = {};
    const UMC::Status status = sample->data.empty() ? UMC::kStatusNoData : Give(sample);
    if (status == UMC::kStatusNoData) {
        m_silence.resize(size_t{Channels()} * m_frameLength);  // nobody writes there
        *pcm = m_silence;
        return UMC::kStatusOk;
    }
    if (status != UMC::kStatusOk) return status;
    if (m_decoder.GetInfo(&m_params) < 0 || Channels() == 0) return UMC::kStatusBadParameter;
    *pcm = {reinterpret_cast<const int16_t*>(m_out.GetDataPointer()), m_out.GetDataSize() / 2};
    m_frameLength = static_cast<uint32_t>(pcm->size() / Channels());
    return UMC::kStatusOk;
}

UMC::Status AacSound::Give(CReadBuffer* sample) {
    const UMC::Status status = DecodeInto(sample);
    if (status != UMC::kStatusTargetTooSmall || m_decoder.GetInfo(&m_params) < 0) return status;
    // The stream has got more channels.
    const UMC::Status room = m_out.Alloc(m_params.suggestedOutputSize);
    return room == UMC::kStatusOk ? DecodeInto(sample) : room;
}

UMC::Status AacSound::DecodeInto(CReadBuffer* sample) {
    UMC::MediaData in;
    UMC::Status status = in.SetBufferPointer(sample->data.data(), sample->size());
    if (status == UMC::kStatusOk) status = in.SetDataSize(sample->size());
    m_out.Reset();
    return status == UMC::kStatusOk ? m_decoder.GetFrame(&in, &m_out) : status;
}

}  // namespace tarn
