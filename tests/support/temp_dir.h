// temp_dir.h - a folder of the test's own, gone with all in it at the end.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tarn {

class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
        if (!mkdtemp(name.data())) std::abort();
        m_path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string Path(const std::string& name) const { return m_path + "/" + name; }

    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // Names in the folder, hidden ones included.
    size_t FileCount() const {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(m_path), {}));
    }

private:
    std::string m_path;
};

}  // namespace tarn
