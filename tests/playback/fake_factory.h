// fake_factory.h - element factories that a test puts into the registry: what a machine may have.
#pragma once

#include <gst/gst.h>

#include <string>

namespace tarn {

// A factory that comes before all others, as long as this lives.
class FakeFactory {
public:
    // `takes`: caps of the pad "sink". One that does not start fails as a device does that is not
    // there. Kinds with "Sink" have no pad "src".
    FakeFactory(const char* name, const char* kind, const char* takes, bool starts);
    ~FakeFactory();
    FakeFactory(const FakeFactory&) = delete;
    FakeFactory& operator=(const FakeFactory&) = delete;

private:
    GstPluginFeature* m_feature;
};

// Whether an element of that factory is somewhere in the bin.
bool HasElementOf(GstElement* bin, const std::string& factory);

}  // namespace tarn
