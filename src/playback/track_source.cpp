#include "playback/track_source.h"

#include <gst/base/gstpushsrc.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace tarn {
namespace {

struct SourceState {
    std::unique_ptr<SampleFeed> feed;
    FeedSample sample;
    uint32_t described = UINT32_MAX;  // the description that the caps tell of
    int beginnings = 0;               // of the sound's first sample
    MovieCode sought = kMovieOk;      // what came of the last seek
    bool jumped = true;               // the next sample follows a seek
    int64_t start = 0;                // where to begin, ns; good for the first start alone
    std::mutex reasonLock;            // written in the streaming thread, read in the main thread
    Reason reason;                    // of the last failure
};

// An instance of the element's class.
struct TrackSource {
    GstPushSrc parent;
    SourceState* state;
};

GstBaseSrcClass* g_parentClass = nullptr;

// Of all timestamps: what comes before the clip's start has a positive time, too.
constexpr int64_t kTimeBase = int64_t{1000} * 3600 * GST_SECOND;

TrackSource* self_of(void* object) {
    return static_cast<TrackSource*>(object);
}

GstClockTime stamp(int64_t time) {
    return static_cast<GstClockTime>(std::max<int64_t>(time + kTimeBase, 0));
}

GstFlowReturn fail(TrackSource* self, MovieCode code) {
    const Reason reason = self->state->feed->ReasonOf(code);
    {
        const std::lock_guard lock(self->state->reasonLock);
        self->state->reason = reason;
    }
    GST_ELEMENT_ERROR(self, RESOURCE, READ, ("%s", ReasonText(reason).c_str()), (nullptr));
    return GST_FLOW_ERROR;
}

// Tells downstream the form of the samples when another description begins.
bool describe(TrackSource* self, uint32_t index) {
    SourceState& state = *self->state;
    if (index == state.described) return true;
    const GstCapsPtr caps = state.feed->Caps(index);
    state.described = index;
    if (caps && state.beginnings > 1)
        gst_caps_set_simple(caps.get(), "beginning", G_TYPE_INT, state.beginnings, nullptr);
    return caps && gst_base_src_set_caps(GST_BASE_SRC(self), caps.get());
}

GstBuffer* to_buffer(SourceState& state) {
    const FeedSample& sample = state.sample;
    GstBuffer* buffer = gst_buffer_new_memdup(sample.data.data(), sample.data.size());
    GST_BUFFER_PTS(buffer) = stamp(sample.shown);
    GST_BUFFER_DTS(buffer) = stamp(sample.decoded);
    // What a movie says of sound's length may be wrong: the bytes tell.
    if (sample.duration > 0)
        GST_BUFFER_DURATION(buffer) = static_cast<GstClockTime>(sample.duration);
    if (!sample.isSync) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    if (std::exchange(state.jumped, false)) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    return buffer;
}

bool begins_sound(const SourceState& state) {
    return state.jumped && state.sample.number == 1 && state.feed->IsCodedSound();
}

// A decoder that is flushed keeps the shape of its last window. Where a sound can't be warmed up,
// at its very start, only a new decoder gives what a save has: one comes with other caps.
void renew_decoder(SourceState& state) {
    ++state.beginnings;
    state.described = UINT32_MAX;
}

GstFlowReturn create(GstPushSrc* source, GstBuffer** buffer) {
    TrackSource* self = self_of(source);
    FeedSample& sample = self->state->sample;
    MovieCode code = self->state->sought;
    if (code != kMovieOk) return fail(self, code);
    do  // a sample without bytes has nothing to decode
        code = self->state->feed->Next(&sample);
    while (code == kMovieOk && sample.data.empty());
    if (code == kMovieEndOfSamples) return GST_FLOW_EOS;
    if (code != kMovieOk) return fail(self, code);
    if (begins_sound(*self->state)) renew_decoder(*self->state);
    if (!describe(self, sample.description)) return GST_FLOW_NOT_NEGOTIATED;
    *buffer = to_buffer(*self->state);
    return GST_FLOW_OK;
}

// Called at the start and for each seek. The segment's stop is one that was asked for, or the last
// one, which lies after the movie's end by the offset.
gboolean do_seek(GstBaseSrc* source, GstSegment* segment) {
    TrackSource* self = self_of(source);
    SampleFeed& feed = *self->state->feed;
    if (segment->rate <= 0) return FALSE;
    const int64_t start = std::exchange(self->state->start, 0);
    if (start > 0) segment->time = static_cast<guint64>(start);
    const auto target = static_cast<int64_t>(segment->time);
    const guint64 length = static_cast<guint64>(feed.DurationNs());
    const auto end = static_cast<int64_t>(std::min(segment->stop, length));
    // A seek that fails would leave the stream without a segment: the next sample tells of it.
    self->state->sought = feed.SeekTo(target, end);
    segment->start = segment->position = stamp(target);
    segment->stop = stamp(std::max(end, target));
    self->state->jumped = true;
    return TRUE;
}

gboolean answer_query(GstBaseSrc* source, GstQuery* query) {
    const int64_t length = self_of(source)->state->feed->DurationNs();
    GstFormat format = GST_FORMAT_UNDEFINED;
    switch (GST_QUERY_TYPE(query)) {
        case GST_QUERY_DURATION:
            gst_query_parse_duration(query, &format, nullptr);
            if (format != GST_FORMAT_TIME) return FALSE;
            gst_query_set_duration(query, format, length);
            return TRUE;
        case GST_QUERY_SEEKING:
            gst_query_parse_seeking(query, &format, nullptr, nullptr, nullptr);
            if (format != GST_FORMAT_TIME) return FALSE;
            gst_query_set_seeking(query, format, TRUE, 0, length);
            return TRUE;
        default:
            return g_parentClass->query(source, query);
    }
}

gboolean always(GstBaseSrc*) {
    return TRUE;
}

void finalize(GObject* object) {
    delete self_of(object)->state;
    G_OBJECT_CLASS(g_parentClass)->finalize(object);
}

void init_class(gpointer type, gpointer) {
    g_parentClass = GST_BASE_SRC_CLASS(g_type_class_peek_parent(type));
    G_OBJECT_CLASS(type)->finalize = finalize;
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type), "Clip track", "Source/File",
                                          "Gives one track of a clip", "Tarn studio");
    AddPadTemplate(type, "src", GST_PAD_SRC, "ANY");
    GstBaseSrcClass* source = GST_BASE_SRC_CLASS(type);
    source->do_seek = do_seek;
    source->is_seekable = always;
    source->query = answer_query;
    GST_PUSH_SRC_CLASS(type)->create = create;
}

void init_instance(GTypeInstance* instance, gpointer) {
    gst_base_src_set_format(GST_BASE_SRC(instance), GST_FORMAT_TIME);
    // Pictures come in the order of decoding: one that ends the movie isn't the last of all.
    gst_base_src_set_automatic_eos(GST_BASE_SRC(instance), FALSE);
}

GType source_type() {
    static const GType type =
        g_type_register_static_simple(GST_TYPE_PUSH_SRC, "TarnTrackSource", sizeof(GstPushSrcClass),
                                      init_class, sizeof(TrackSource), init_instance, GTypeFlags{});
    return type;
}

}  // namespace

GstElementPtr MakeTrackSource(std::unique_ptr<SampleFeed> feed) {
    if (!feed->Caps(0)) return nullptr;
    GstElementPtr source = OwnElement(g_object_new(source_type(), nullptr));
    auto state = std::make_unique<SourceState>();
    state->feed = std::move(feed);
    self_of(source.get())->state = state.release();
    return source;
}

void ReplaceFeed(GstElement* source, std::unique_ptr<SampleFeed> feed) {
    auto state = std::make_unique<SourceState>();
    state->feed = std::move(feed);
    delete std::exchange(self_of(source)->state, state.release());
}

Reason TrackSourceReason(gpointer element) {
    if (!G_TYPE_CHECK_INSTANCE_TYPE(element, source_type())) return {};
    const std::lock_guard lock(self_of(element)->state->reasonLock);
    return self_of(element)->state->reason;
}

bool StartTracksAt(GstElement* graph, int64_t time) {
    bool found = false;
    GstIterator* all = gst_bin_iterate_recurse(GST_BIN(graph));
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(all, &item) == GST_ITERATOR_OK) {
        gpointer element = g_value_get_object(&item);
        if (G_TYPE_CHECK_INSTANCE_TYPE(element, source_type())) {
            self_of(element)->state->start = time;
            found = true;
        }
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(all);
    return found;
}

}  // namespace tarn
