// av_handles.h - owners for libavcodec's objects. Private to the codec: no other folder sees them.
#pragma once

#include <cerrno>
#include <memory>

#include "movie/umc/av_library.h"
#include "movie/umc/status.h"

namespace tarn::UMC {

struct AvDeleter {
    void operator()(AVCodecContext* context) const { Av().avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { Av().av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { Av().av_packet_free(&packet); }
    void operator()(SwrContext* converter) const { Av().swr_free(&converter); }
};
using AvContext = std::unique_ptr<AVCodecContext, AvDeleter>;
using AvFrame = std::unique_ptr<AVFrame, AvDeleter>;
using AvPacket = std::unique_ptr<AVPacket, AvDeleter>;
using AvConverter = std::unique_ptr<SwrContext, AvDeleter>;

// A context that works on the caller's thread and prints nothing: broken frames are told by status.
inline AvContext MakeAvContext(const AVCodec* codec) {
    AvContext context(codec ? Av().avcodec_alloc_context3(codec) : nullptr);
    if (!context) return context;
    context->thread_count = 1;
    context->log_level_offset = 128;  // above every level, and within the byte that is looked at
    return context;
}

// From one sample format to another, the channels and the rate staying as they are. Null where
// there are more channels than the library takes, or memory is short.
inline AvConverter MakeAvConverter(AVSampleFormat from, AVSampleFormat to, int32_t channels,
                                   int32_t rate) {
    AVChannelLayout layout = {};
    Av().av_channel_layout_default(&layout, channels);
    SwrContext* made = nullptr;
    (void)Av().swr_alloc_set_opts2(&made, &layout, to, rate, &layout, from, rate, 0, nullptr);
    AvConverter converter(made);
    if (converter && Av().swr_init(converter.get()) < 0) converter.reset();
    return converter;
}

inline Status StatusOfAv(int error) {
    switch (error) {
        case 0:
            return kStatusOk;
        case AVERROR(ENOMEM):
            return kStatusNoMemory;
        case AVERROR_PATCHWELCOME:
        case AVERROR(ENOSYS):
            return kStatusNotImplemented;
        case AVERROR(EAGAIN):
        case AVERROR_EOF:
            return kStatusNoData;
        default:
            return kStatusBadParameter;
    }
}

}  // namespace tarn::UMC
