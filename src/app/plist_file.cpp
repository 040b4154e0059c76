#include "app/plist_file.h"

#include <pugixml.hpp>

#include "base/xp_file.h"
#include "base/xp_path.h"

namespace tarn {
namespace {

// Comments and instructions stay in the tree: they count as nodes of the walk.
constexpr unsigned kParseFlags = pugi::parse_default | pugi::parse_comments | pugi::parse_pi;

struct TextCollector final : pugi::xml_tree_walker {
    bool for_each(pugi::xml_node& node) override {
        if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata)
            text += node.value();
        return true;
    }
    std::string text;
};

std::string text_of(pugi::xml_node node) {
    if (node.type() != pugi::node_element) return node.value();
    TextCollector collector;
    node.traverse(collector);
    return collector.text;
}

bool is_named(pugi::xml_node node, std::string_view name) {
    return name == node.name();
}

bool is_plain_text(std::string_view text) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find_first_of("\t\n"));
        if (XpPath::Printable(line) != line) return false;
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
    }
    return true;
}

}  // namespace

bool ParsePlist(std::string_view bytes, PlistPairs* pairs) {
    pairs->clear();
    pugi::xml_document document;
    if (!document.load_buffer(bytes.data(), bytes.size(), kParseFlags)) return false;
    const pugi::xml_node root = document.document_element();
    if (!is_named(root, "plist")) return false;

    PlistPairs found;
    const pugi::xml_node dictionary = root.first_child();
    for (pugi::xml_node node = dictionary.first_child(); node; node = node.next_sibling()) {
        if (!is_named(node, "key") || !node.first_child()) continue;
        std::string key = text_of(node.first_child());
        // Whatever follows a key is used up with it, be it the next key.
        node = node.next_sibling();
        if (!is_named(node, "string") || !node.first_child()) continue;
        found.emplace_back(std::move(key), text_of(node.first_child()));
        if (!is_plain_text(found.back().first) || !is_plain_text(found.back().second)) return false;
    }
    *pairs = std::move(found);
    return true;
}

bool ReadPlist(const std::string& path, PlistPairs* pairs) {
    pairs->clear();
    std::string bytes;
    return ReadSmallFile(path, &bytes) && ParsePlist(bytes, pairs);
}

bool ReadSmallFile(const std::string& path, std::string* bytes) {
    bytes->clear();
    XpFile file;
    uint64_t length = 0, done = 0;
    if (file.Open(path, XpFile::Mode::kRead) != 0) return false;
    if (file.GetLength(&length) != 0 || length > kMaxPlistBytes) return false;
    std::string content(length, '\0');
    if (file.Read(content.data(), length, &done) != 0) return false;
    content.resize(done);
    *bytes = std::move(content);
    return true;
}

}  // namespace tarn
