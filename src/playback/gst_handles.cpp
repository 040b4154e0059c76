#include "playback/gst_handles.h"

namespace tarn {

bool StartGst() {
    return gst_init_check(nullptr, nullptr, nullptr) != FALSE;
}

GstElementPtr OwnElement(gpointer created) {
    return GstElementPtr(created ? GST_ELEMENT(gst_object_ref_sink(created)) : nullptr);
}

GstElementPtr MakeElement(const char* factory, const char* name) {
    return OwnElement(gst_element_factory_make(factory, name));
}

GstElementPtr MakeBin(const char* name) {
    return OwnElement(gst_bin_new(name));
}

GstElement* AddElement(GstElement* bin, const char* factory, const char* name) {
    const GstElementPtr owner = MakeElement(factory, name);
    GstElement* const element = owner.get();
    return element && gst_bin_add(GST_BIN(bin), element) ? element : nullptr;
}

bool AddGhostPad(GstElement* bin, GstElement* inside, const char* pad, const char* name) {
    const GstPadPtr target(gst_element_get_static_pad(inside, pad));
    if (!target) return false;
    GstPad* ghost = gst_ghost_pad_new(name, target.get());
    return ghost && gst_element_add_pad(bin, ghost);
}

void AddPadTemplate(gpointer element_class, const char* name, GstPadDirection direction,
                    const std::string& caps) {
    const GstCapsPtr form(gst_caps_from_string(caps.c_str()));
    gst_element_class_add_pad_template(
        GST_ELEMENT_CLASS(element_class),
        gst_pad_template_new(name, direction, GST_PAD_ALWAYS, form.get()));
}

void RemoveElement(GstElement* bin, GstElement* element) {
    gst_element_set_state(element, GST_STATE_NULL);
    gst_bin_remove(GST_BIN(bin), element);
}

Reason MissingPart(const char* elements) {
    return {ReasonCode::kNoGraphPart, ReasonSide::kDevice, {}, {std::string(elements)}};
}

}  // namespace tarn
