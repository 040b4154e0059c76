// av_library.h - libavcodec and its companions, loaded when the first codec is opened: most of what
// the programs do needs none, and loading takes longer than all of that. Private to the codec.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

// Every call that the codec makes, by its library.
#define TARN_AVCODEC_CALLS(call)                                                       \
    call(av_packet_alloc) call(av_packet_free) call(avcodec_alloc_context3)            \
        call(avcodec_find_decoder_by_name) call(avcodec_find_encoder_by_name)          \
            call(avcodec_free_context) call(avcodec_open2) call(avcodec_receive_frame) \
                call(avcodec_receive_packet) call(avcodec_send_frame) call(avcodec_send_packet)
#define TARN_AVUTIL_CALLS(call)                                                         \
    call(av_buffer_alloc) call(av_buffer_is_writable) call(av_buffer_unref)             \
        call(av_channel_layout_copy) call(av_channel_layout_default)                    \
            call(av_channel_layout_from_mask) call(av_frame_alloc) call(av_frame_free)  \
                call(av_frame_get_buffer) call(av_frame_make_writable) call(av_mallocz) \
                    call(av_opt_set) call(av_opt_set_int) call(av_samples_set_silence)
#define TARN_SWRESAMPLE_CALLS(call) \
    call(swr_alloc_set_opts2) call(swr_convert) call(swr_free) call(swr_init)

namespace tarn::UMC {

struct AvLibrary {
#define TARN_AV_MEMBER(name) decltype(&::name) name = nullptr;
    TARN_AVCODEC_CALLS(TARN_AV_MEMBER)
    TARN_AVUTIL_CALLS(TARN_AV_MEMBER)
    TARN_SWRESAMPLE_CALLS(TARN_AV_MEMBER)
#undef TARN_AV_MEMBER
};

// Loads at the first call, on any thread, and once. Null where they are missing, or others than the
// headers were of.
const AvLibrary* FindAvLibrary();

// For all that lives after FindAvLibrary has given one.
inline const AvLibrary& Av() {
    return *FindAvLibrary();
}

}  // namespace tarn::UMC
