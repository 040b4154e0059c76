#include "movie/umc/aac_decoder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "movie/umc/aac_config.h"
#include "movie/umc/av_handles.h"

namespace tarn::UMC {
namespace {

// Eight channels at 6144 bits fill 6 KiB; ten times that is no AAC frame.
constexpr uint32_t kLargestFrame = 1 << 16;
// No channel element is shorter. Less is not worth the library's while: a file may hold millions.
constexpr uint32_t kSmallestFrame = 3;
constexpr uint32_t kLargestConfig = 1 << 12;
constexpr int32_t kMostChannels = 8;
constexpr int32_t kLongestFrame = 2048;  // with band replication

int32_t ChannelMask(int32_t channels) {
    static constexpr int32_t kMasks[] = {0, 0x4, 0x3, 0x7, 0xf, 0x37, 0x3f};
    return channels < static_cast<int32_t>(std::size(kMasks)) ? kMasks[channels] : 0;
}

// What can't be decoded will not get better on a second try.
Status DropInput(MediaData* in, Status reason) {
    const Status moved = in->MoveDataPointer(in->GetDataSize());
    return moved == kStatusOk ? reason : moved;
}

}  // namespace

struct AACDecoder::State {
    AudioStreamInfo asked;
    std::array<uint8_t, kLargestConfig> configBytes;
    uint32_t configSize = 0;
    AacConfig config;
    bool psWanted = false;

    AvContext context;
    AvFrame frame, surplus;
    AvPacket packet;
    AvConverter converter;  // for `converted` channels
    int32_t converted = 0;

    // As configured, then of the last frame.
    int32_t channels = 0, sampleRate = 0, profile = 0;
    uint64_t bytes = 0;  // taken since the start
    double seconds = 0;  // given since the start

    Status Configure(const AACDecoderParams& params);
    void TakeSettings(const AACDecoderParams& params);
    Status Open();
    Status Decode(std::span<const uint8_t> sample);
    Status Fill(std::span<const uint8_t> sample);
    void NoteStream();
    Status MatchConverter();
    Status Give(MediaData* out);
    bool Known() const { return channels > 0 && sampleRate > 0; }
    uint32_t OutputSize() const {
        const int32_t most = Known() ? std::max(channels, 2) : kMostChannels;
        return static_cast<uint32_t>(most * kLongestFrame) * sizeof(int16_t);
    }
};

// The library settles the other modes by itself, from what the stream holds.
void AACDecoder::State::TakeSettings(const AACDecoderParams& params) {
    const int32_t ps = params.psSupport;
    const bool forced = ps == 111 || ps == 411;  // these bring their own mode along
    const bool mode = params.decodeMode == 18 || params.decodeMode == 28;
    const bool sampling = params.downsample == 0 || params.downsample == 1;
    if (mode && sampling) psWanted = ps == 1 || forced;
}

Status AACDecoder::State::Configure(const AACDecoderParams& params) {
    asked = params.info;
    TakeSettings(params);
    const bool needed = params.info.streamType == kStreamAacConfigured;
    const uint8_t* first = params.data ? params.data->GetDataPointer() : nullptr;
    const uint32_t size = first ? params.data->GetDataSize() : 0;
    if (size == 0 && needed) return first ? kStatusNoData : kStatusNullPointer;
    if (size == 0) return kStatusOk;
    if (size > kLargestConfig) return kStatusOutOfRange;
    std::memcpy(configBytes.data(), first, size);
    configSize = size;
    return ParseAacConfig({configBytes.data(), configSize}, &config);
}

Status AACDecoder::State::Open() {
    if (!FindAvLibrary()) return kStatusNotImplemented;
    const AVCodec* codec = Av().avcodec_find_decoder_by_name("aac");
    context = MakeAvContext(codec);
    frame.reset(Av().av_frame_alloc());
    surplus.reset(Av().av_frame_alloc());
    packet.reset(Av().av_packet_alloc());
    if (!codec) return kStatusNotImplemented;
    if (!context || !frame || !surplus || !packet) return kStatusNoMemory;
    if (configSize > 0) {
        context->extradata =
            static_cast<uint8_t*>(Av().av_mallocz(configSize + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!context->extradata) return kStatusNoMemory;
        std::memcpy(context->extradata, configBytes.data(), configSize);
        context->extradata_size = static_cast<int>(configSize);
    }
    const Status status = StatusOfAv(Av().avcodec_open2(context.get(), codec, nullptr));
    if (status != kStatusOk) return status;

    channels = sampleRate = profile = 0;
    bytes = 0;
    seconds = 0;
    if (configSize == 0) return kStatusOk;
    channels = context->ch_layout.nb_channels;
    if (config.ps && psWanted && channels == 1) channels = 2;
    sampleRate = config.outputRate;
    profile = config.ps ? kAacPs : config.sbr ? kAacSbr : config.objectType;
    return kStatusOk;
}

// The packet's buffer is used again unless the library still holds it.
Status AACDecoder::State::Fill(std::span<const uint8_t> sample) {
    const size_t needed = sample.size() + AV_INPUT_BUFFER_PADDING_SIZE;
    AVBufferRef*& buffer = packet->buf;
    if (!buffer || buffer->size < needed || !Av().av_buffer_is_writable(buffer)) {
        Av().av_buffer_unref(&buffer);
        buffer = Av().av_buffer_alloc(std::max<size_t>(needed, 4096));
        if (!buffer) return kStatusNoMemory;
    }
    std::memcpy(buffer->data, sample.data(), sample.size());
    std::memset(buffer->data + sample.size(), 0, AV_INPUT_BUFFER_PADDING_SIZE);
    packet->data = buffer->data;
    packet->size = static_cast<int>(sample.size());
    return kStatusOk;
}

// Leaves the decoded sound in `frame`.
Status AACDecoder::State::Decode(std::span<const uint8_t> sample) {
    Status status = Fill(sample);
    if (status != kStatusOk) return status;
    status = StatusOfAv(Av().avcodec_send_packet(context.get(), packet.get()));
    if (status == kStatusOk)
        status = StatusOfAv(Av().avcodec_receive_frame(context.get(), frame.get()));
    // Bytes behind the frame may make the library give more; they are no part of this sample's
    // time. A failure inside them leaves what was decoded as it is.
    int more = 0;
    while (more != AVERROR(EAGAIN) && more != AVERROR_EOF)
        more = Av().avcodec_receive_frame(context.get(), surplus.get());
    const bool sound =
        frame->nb_samples > 0 && frame->ch_layout.nb_channels > 0 && frame->sample_rate > 0;
    return status == kStatusOk && !sound ? kStatusNoData : status;
}

void AACDecoder::State::NoteStream() {
    channels = frame->ch_layout.nb_channels;
    sampleRate = frame->sample_rate;
    profile = context->profile + 1;  // the library counts object types from 0
    if (config.ps || config.sbr) profile = std::max(profile, config.ps ? kAacPs : kAacSbr);
    const bool from_mono = config.channelConfig == 1 || profile == kAacPs;
    if (from_mono && channels == 2 && !psWanted) channels = 1;
    bytes += static_cast<uint64_t>(packet->size);
    if (sampleRate > 0) seconds += static_cast<double>(frame->nb_samples) / sampleRate;
}

Status AACDecoder::State::MatchConverter() {
    if (converter && converted == channels) return kStatusOk;
    converter = MakeAvConverter(AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16, channels, sampleRate);
    converted = channels;
    return converter ? kStatusOk : kStatusNotImplemented;
}

Status AACDecoder::State::Give(MediaData* out) {
    const int32_t count = frame->nb_samples;
    const uint64_t size =
        uint64_t{2} * static_cast<uint32_t>(channels) * static_cast<uint32_t>(count);
    if (size > out->Capacity()) return kStatusTargetTooSmall;
    auto** planes = reinterpret_cast<float**>(frame->extended_data);
    if (channels < frame->ch_layout.nb_channels)  // stereo made from mono: back to mono
        for (int32_t i = 0; i < count; ++i)
            planes[0][i] = 0.5f * (planes[0][i] + planes[1][i]);
    const Status status = MatchConverter();
    if (status != kStatusOk) return status;
    uint8_t* target = out->GetDataPointer();
    const auto** source = const_cast<const uint8_t**>(frame->extended_data);
    if (Av().swr_convert(converter.get(), &target, count, source, count) != count)
        return kStatusBadParameter;
    return out->SetDataSize(static_cast<uint32_t>(size));
}

AACDecoder::AACDecoder() = default;
AACDecoder::~AACDecoder() = default;

Status AACDecoder::Init(BaseCodecParams* params) {
    (void)Close();
    const auto* given = dynamic_cast<const AACDecoderParams*>(params);
    if (!given) return params ? kStatusBadParameter : kStatusNullPointer;
    Status status = AudioDecoder::Init(params);
    if (status == kStatusOk) status = m_state.Create(Allocator());
    if (status == kStatusOk) {
        const CodecState<State>::Locked state(m_state);
        status = state ? state->Configure(*given) : kStatusNoMemory;
        if (status == kStatusOk) status = state->Open();
    }
    if (status != kStatusOk) (void)Close();
    return status;
}

Status AACDecoder::GetFrame(MediaData* in, MediaData* out) {
    if (!in || !out) return kStatusNullPointer;
    const CodecState<State>::Locked state(m_state);
    if (!state || in->GetDataSize() == 0) return kStatusNoData;
    if (!out->GetDataPointer()) return kStatusNullPointer;
    if (out->Capacity() < state->OutputSize()) return kStatusTargetTooSmall;

    std::span<const uint8_t> sample(in->GetDataPointer(), in->GetDataSize());
    if (state->configSize == 0) {  // ADTS: one frame of what may be many; no frame takes it all
        const uint32_t length = AdtsFrameLength(sample);
        if (length == 0) return DropInput(in, kStatusBadParameter);
        sample = sample.first(length);
    }
    if (sample.size() > kLargestFrame) return DropInput(in, kStatusOutOfRange);

    if (sample.size() < kSmallestFrame)
        return DropInput(in, AacFrameHasSound(sample) ? kStatusBadParameter : kStatusNoData);

    Status status = state->Decode(sample);
    if (status == kStatusOk) {
        state->NoteStream();
        out->startTime = in->startTime;
        out->endTime = in->endTime;
        status = state->Give(out);
    }
    const Status moved = in->MoveDataPointer(static_cast<int64_t>(sample.size()));
    return status == kStatusOk ? moved : status;
}

Status AACDecoder::GetInfo(BaseCodecParams* params) {
    if (!params) return kStatusNullPointer;
    const CodecState<State>::Locked state(m_state);
    if (!state) return kStatusNoData;
    params->suggestedInputSize = kMostChannels * 768;
    params->suggestedOutputSize = state->OutputSize();
    if (!state->Known()) return kStatusNoStreamYet;
    auto* given = dynamic_cast<AudioDecoderParams*>(params);
    if (!given) return kStatusOk;
    AudioStreamInfo& info = given->info;
    info.profile = state->profile;
    info.bitsPerSample = 16;
    info.channels = state->channels;
    info.sampleRate = state->sampleRate;
    info.bitRate =
        state->seconds > 0
            ? static_cast<int32_t>(static_cast<double>(state->bytes) * 8 / state->seconds)
            : 0;
    info.streamType = kStreamPcm;
    info.streamSubType = state->asked.streamSubType;
    info.channelMask = ChannelMask(state->channels);
    return kStatusOk;
}

Status AACDecoder::Close() {
    m_state.Destroy();
    return AudioDecoder::Close();
}

Status AACDecoder::Reset() {
    Status status = kStatusNoData;
    {
        const CodecState<State>::Locked state(m_state);
        if (!state) return status;
        status = state->Open();
    }
    if (status != kStatusOk) (void)Close();
    return status;
}

Status AACDecoder::SetParams(BaseCodecParams* params) {
    const auto* given = dynamic_cast<const AACDecoderParams*>(params);
    if (!given) return params ? kStatusBadParameter : kStatusNullPointer;
    const CodecState<State>::Locked state(m_state);
    if (!state) return kStatusNoData;
    state->TakeSettings(*given);
    return kStatusOk;
}

Status AACDecoder::GetDuration(float* seconds) {
    if (!seconds) return kStatusNullPointer;
    const CodecState<State>::Locked state(m_state);
    if (!state) return kStatusNoData;
    *seconds = static_cast<float>(state->seconds);
    return kStatusOk;
}

}  // namespace tarn::UMC
