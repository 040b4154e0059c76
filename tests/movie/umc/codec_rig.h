// codec_rig.h - PCM through the encoder and back, a frame at a time.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <span>
#include <vector>

#include "movie/umc/aac_decoder.h"
#include "movie/umc/aac_encoder.h"

namespace tarn::UMC {

using Pcm = std::vector<int16_t>;
using Frame = std::vector<uint8_t>;

// Frames of interleaved sound in any number of channels.
struct Coded {
    std::vector<Frame> frames;
    size_t drained = 0;  // how many of them came from the drain
    uint32_t delay = 0;
    Frame config;
    AACEncoderParams info;
};

inline AACEncoderParams EncoderParams(int32_t rate, int32_t channels, int32_t bit_rate = 128000) {
    AACEncoderParams params;
    params.outputFormat = 2;
    params.info.bitRate = bit_rate;
    params.info.channels = channels;
    params.info.sampleRate = rate;
    params.info.bitsPerSample = 16;
    return params;
}

inline void SetBytes(MediaData* data, const void* bytes, size_t size) {
    if (size == 0) return;
    auto* first = const_cast<uint8_t*>(static_cast<const uint8_t*>(bytes));
    ASSERT_EQ(data->SetBufferPointer(first, static_cast<uint32_t>(size)), kStatusOk);
    ASSERT_EQ(data->SetDataSize(static_cast<uint32_t>(size)), kStatusOk);
}

inline Frame Taken(const MediaData& data) {
    return {data.GetDataPointer(), data.GetDataPointer() + data.GetDataSize()};
}

inline Coded Encode(AACEncoderParams params, const Pcm& pcm) {
    Coded coded;
    AACEncoder encoder;
    EXPECT_EQ(encoder.Init(&params), kStatusOk);
    EXPECT_EQ(encoder.GetInfo(&params), kStatusOk);
    coded.info = params;
    coded.delay = encoder.GetDelay();
    const auto config = encoder.GetDecoderSpecificInfo();
    coded.config.assign(config.begin(), config.end());

    AudioData in, out;
    EXPECT_EQ(out.Alloc(params.suggestedOutputSize), kStatusOk);
    SetBytes(&in, pcm.data(), pcm.size() * 2);
    while (in.GetDataSize() > 0 && encoder.GetFrame(&in, &out) == kStatusOk) {
        coded.frames.push_back(Taken(out));
        out.Reset();
    }
    EXPECT_EQ(in.GetDataSize(), 0u);
    while (encoder.Drain(&out) == kStatusOk) {
        coded.frames.push_back(Taken(out));
        ++coded.drained;
    }
    return coded;
}

// A decoder for this configuration; an empty one makes it expect ADTS headers.
inline Status Configure(AACDecoder* decoder, const Frame& config, AACDecoderParams* params) {
    MediaData data;
    if (!config.empty()) SetBytes(&data, config.data(), config.size());
    params->data = config.empty() ? nullptr : &data;
    params->info.streamType = config.empty() ? 0 : kStreamAacConfigured;
    const Status status = decoder->Init(params);
    params->data = nullptr;
    return status;
}

// One frame, its sound appended.
inline Status DecodeOne(AACDecoder* decoder, std::span<const uint8_t> frame, Pcm* pcm) {
    AACDecoderParams info;
    if (decoder->GetInfo(&info) < 0) return kStatusNoData;
    MediaData in, out;
    SetBytes(&in, frame.data(), frame.size());
    EXPECT_EQ(out.Alloc(info.suggestedOutputSize), kStatusOk);
    const Status status = decoder->GetFrame(&in, &out);
    if (status != kStatusOk) return status;
    const size_t at = pcm->size();
    pcm->resize(at + out.GetDataSize() / 2);
    std::memcpy(pcm->data() + at, out.GetDataPointer(), out.GetDataSize());
    return status;
}

inline Pcm Decode(const Frame& config, const std::vector<Frame>& frames,
                  AudioStreamInfo* info = nullptr) {
    AACDecoder decoder;
    AACDecoderParams params;
    Pcm pcm;
    EXPECT_EQ(Configure(&decoder, config, &params), kStatusOk);
    for (const Frame& frame : frames)
        EXPECT_EQ(DecodeOne(&decoder, frame, &pcm), kStatusOk);
    EXPECT_EQ(decoder.GetInfo(&params), kStatusOk);
    if (info) *info = params.info;
    return pcm;
}

}  // namespace tarn::UMC
