// tree_command.cpp - `tarn tree FILE`: the atoms of a file, indented.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <vector>

#include "cli/commands.h"
#include "cli/json_stream.h"
#include "cli/report.h"
#include "movie/engine/movie_file.h"
#include "mp4format/atom_tree.h"

namespace tarn {
namespace {

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

// Nests the atoms as they come, by their depth.
class TreeJson {
public:
    explicit TreeJson(JsonStream* out) : m_out(out) {}
    void Add(const Mp4TreeNode& node) {
        CloseTo(node.depth);
        if (!m_parents.empty() && !m_parents.back()) {
            m_parents.back() = true;
            m_out->Key("children").Open('[');
        }
        m_out->Open('{');
        m_out->Key("type").Text(CodeText(node.atom.type));
        m_out->Key("offset").Number(node.atom.atom.offset);
        m_out->Key("size").Number(node.atom.atom.size);
        if (node.uuid) m_out->Key("uuid").Text(uuid_text(node.uuid));
        if (node.cut) m_out->Key("cut").Value(true);
        m_parents.push_back(false);
    }
    // Closes the atoms at that depth and below.
    void CloseTo(size_t depth) {
        for (; m_parents.size() > depth; m_parents.pop_back()) {
            if (m_parents.back()) m_out->Close();
            m_out->Close();
        }
    }

private:
    JsonStream* m_out;
    std::vector<bool> m_parents;  // of the open atoms: whether they have children
};

Mp4Result print_tree(MovieFile& file, TreeJson* tree, uint64_t* failed_at) {
    return mp4_visit_atoms(
        file.Host(), file.File(), file.Size(),
        [&](const Mp4TreeNode& node) {
            if (tree) {
                tree->Add(node);
            } else {
                print_node(node);
            }
            return FF4_RET_OK;
        },
        failed_at);
}

Reason why(MovieFile& file, const std::string& path, Mp4Result result, uint64_t failed_at) {
    if (result == FF4_RET_OK) return {};
    if (result == FF4_RET_FORMAT)
        return {ReasonCode::kBrokenHeader, ReasonSide::kSource, path, {failed_at}};
    return file.ReasonFor(movie_code(result));
}

Reason print_document(MovieFile& file, const std::string& path) {
    JsonStream out;
    out.Open('{');
    out.Key("path").Value(path);
    out.Key("size").Number(file.Size());
    out.Key("atoms").Open('[');
    TreeJson tree(&out);
    uint64_t failed_at = 0;
    const Mp4Result result = print_tree(file, &tree, &failed_at);
    tree.CloseTo(0);
    out.Close();
    const Reason reason = why(file, path, result, failed_at);
    if (reason) out.Key("error").Value(ReasonJson(reason));
    out.Close();
    return reason;
}

int run_tree(const std::string& path, bool json) {
    MovieFile file;
    // A file that is no movie at all is refused before anything is printed.
    if (file.OpenFile(path) != kMovieOk || file.GetReason()) return Fail(file.GetReason(), json);

    Reason reason;
    if (json) {
        reason = print_document(file, path);
    } else {
        uint64_t failed_at = 0;
        const Mp4Result result = print_tree(file, nullptr, &failed_at);
        reason = why(file, path, result, failed_at);
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
