// reference_data.h - the user's settings, kept in Settings.xml.
//
// Changes hold at once and reach the disk with Save alone. A file that is missing or can't be read
// leaves the defaults; a key that it lacks, or one without a text, leaves that field's. Nothing
// throws. Main thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tarn {

class ReferenceData {
public:
    // The program's one set, loaded at the first call from $XDG_CONFIG_HOME/tarn-studio.
    static std::shared_ptr<ReferenceData> GetInstance();

    ReferenceData() : ReferenceData(std::string()) {}
    // Settings in a folder of the caller's choice; an empty name is the user's own folder.
    explicit ReferenceData(std::string folder);

    // Replaces the file once the new one is complete. False when that failed: the old file is as
    // it was, and the values stay in memory.
    [[nodiscard]] bool Save() const;
    // Without a closing slash. Made (mode 0700) when it is not there; empty when that failed.
    std::string GetSettingsFolder() const;

    int32_t m_rememberAccount = 0;          // keep the upload user name and password
    int32_t m_notDisplayMsg = 1;            // no notice strip on the tool bar
    int32_t m_useHardwareAcceleration = 0;  // for graphs that are built from now on
    int32_t m_autoLogin = 0;                // sign in without asking

private:
    void Load();
    std::string FileText() const;

    std::string m_folder;
};

}  // namespace tarn
