#include "fake_factory.h"

#include <cstdlib>
#include <cstring>

#include "playback/gst_handles.h"

namespace tarn {
namespace {

struct Kind {
    const char *kind, *takes;
    bool starts;
};

struct FakeClass {
    GstElementClass parent;
    const Kind* kind;
};

GstElementClass* parent_class() {
    return static_cast<GstElementClass*>(g_type_class_peek(GST_TYPE_ELEMENT));
}

GstStateChangeReturn change_state(GstElement* element, GstStateChange change) {
    const Kind& kind = *reinterpret_cast<FakeClass*>(GST_ELEMENT_GET_CLASS(element))->kind;
    if (change == GST_STATE_CHANGE_NULL_TO_READY && !kind.starts) return GST_STATE_CHANGE_FAILURE;
    return parent_class()->change_state(element, change);
}

void init_class(gpointer type, gpointer data) {
    const auto* kind = static_cast<const Kind*>(data);
    static_cast<FakeClass*>(type)->kind = kind;
    GstElementClass* element = GST_ELEMENT_CLASS(type);
    element->change_state = change_state;
    gst_element_class_set_static_metadata(element, "Fake", kind->kind, "Stands for another", "-");
    const GstCapsPtr takes(gst_caps_from_string(kind->takes)), any(gst_caps_new_any());
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, takes.get()));
    if (!std::strstr(kind->kind, "Sink"))
        gst_element_class_add_pad_template(
            element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, any.get()));
}

void init_element(GTypeInstance* instance, gpointer type) {
    for (GList* at = gst_element_class_get_pad_template_list(GST_ELEMENT_CLASS(type)); at;
         at = at->next) {
        auto* pad_template = static_cast<GstPadTemplate*>(at->data);
        gst_element_add_pad(GST_ELEMENT(instance),
                            gst_pad_new_from_template(pad_template, pad_template->name_template));
    }
}

}  // namespace

FakeFactory::FakeFactory(const char* name, const char* kind, const char* takes, bool starts) {
    if (!StartGst()) std::abort();
    GTypeInfo info{};
    info.class_size = sizeof(FakeClass);
    info.class_init = init_class;
    info.class_data = new Kind{kind, takes, starts};  // types stay to the end, and so does this
    info.instance_size = sizeof(GstElement);
    info.instance_init = init_element;
    const GType type = g_type_register_static(GST_TYPE_ELEMENT, name, &info, GTypeFlags{});
    if (!gst_element_register(nullptr, name, GST_RANK_PRIMARY + 1000, type)) std::abort();
    m_feature = gst_registry_lookup_feature(gst_registry_get(), name);
}

FakeFactory::~FakeFactory() {
    gst_registry_remove_feature(gst_registry_get(), m_feature);
    gst_object_unref(m_feature);
}

bool HasElementOf(GstElement* bin, const std::string& factory) {
    GstIterator* all = gst_bin_iterate_recurse(GST_BIN(bin));
    const auto is_of = [](gconstpointer item, gconstpointer name) -> gint {
        auto* element = GST_ELEMENT(g_value_get_object(static_cast<const GValue*>(item)));
        GstElementFactory* made_by = gst_element_get_factory(element);
        return made_by ? g_strcmp0(GST_OBJECT_NAME(made_by), static_cast<const char*>(name)) : 1;
    };
    GValue found = G_VALUE_INIT;
    const bool has =
        gst_iterator_find_custom(all, is_of, &found, const_cast<char*>(factory.c_str())) != FALSE;
    g_value_unset(&found);
    gst_iterator_free(all);
    return has;
}

}  // namespace tarn
