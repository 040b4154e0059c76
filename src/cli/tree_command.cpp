// tree_command.cpp - `tarn tree FILE`: the atoms of a file, indented.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <vector>

#include "cli/commands.h"
#include "cli/report.h"
#include "movie/engine/movie_file.h"
#include "mp4format/atom_tree.h"

namespace tarn {
namespace {

using Json = nlohmann::ordered_json;

std::string uuid_text(const uint8_t* name) {
    char text[37];
    std::snprintf(text, sizeof text,
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", name[0],
                  name[1], name[2], name[3], name[4], name[5], name[6], name[7], name[8], name[9],
                  name[10], name[11], name[12], name[13], name[14], name[15]);
    return text;
}

void print_node(const Mp4TreeNode& node) {
    std::cout << std::string(2 * size_t{node.depth}, ' ') << CodeText(node.atom.type) << ' '
              << node.atom.atom.offset << ' ' << node.atom.atom.size;
    if (node.uuid) std::cout << ' ' << uuid_text(node.uuid);
    if (node.cut) std::cout << " (cut short)";
    std::cout << '\n';
}

Json node_json(const Mp4TreeNode& node) {
    Json json = {{"type", CodeText(node.atom.type)},
                 {"offset", node.atom.atom.offset},
                 {"size", node.atom.atom.size}};
    if (node.uuid) json["uuid"] = uuid_text(node.uuid);
    if (node.cut) json["cut"] = true;
    return json;
}

// Nests the atoms as they come, by their depth.
class TreeJson {
public:
    void Add(const Mp4TreeNode& node) {
        while (m_open.size() > node.depth)
            Close();
        m_open.push_back(node_json(node));
    }
    Json Take() {
        while (!m_open.empty())
            Close();
        return std::move(m_top);
    }

private:
    void Close() {
        Json done = std::move(m_open.back());
        m_open.pop_back();
        Json& parent = m_open.empty() ? m_top : m_open.back()["children"];
        parent.push_back(std::move(done));
    }
    Json m_top = Json::array();
    std::vector<Json> m_open;
};

int run_tree(const std::string& path, bool json) {
    MovieFile file;
    // A file that is no movie at all is refused before anything is printed.
    if (file.OpenFile(path) != kMovieOk || file.GetReason()) return Fail(file.GetReason(), json);

    TreeJson tree;
    uint64_t failed_at = 0;
    const Mp4Result result = mp4_visit_atoms(
        file.Host(), file.File(), file.Size(),
        [&](const Mp4TreeNode& node) {
            if (json) {
                tree.Add(node);
            } else {
                print_node(node);
            }
            return FF4_RET_OK;
        },
        &failed_at);
    Reason reason;
    if (result == FF4_RET_FORMAT)
        reason = {ReasonCode::kBrokenHeader, ReasonSide::kSource, path, {failed_at}};
    else if (result != FF4_RET_OK)
        reason = file.ReasonFor(movie_code(result));
    if (json) {
        Json document = {{"path", path}, {"size", file.Size()}, {"atoms", tree.Take()}};
        if (reason) document["error"] = ReasonJson(reason);
        PrintJson(document);
    }
    return reason ? Fail(reason) : kExitDone;
}

}  // namespace

void AddTreeCommand(CLI::App& app, int* status) {
    struct Options {
        std::string path;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("tree", "Show the atoms of a movie file");
    command->add_option("FILE", options->path, "The movie file")->required();
    command->add_flag("--json", options->json, "Print one JSON document");
    command->callback([options, status] { *status = run_tree(options->path, options->json); });
}

}  // namespace tarn
