// check_movie_file.h - the one gate before a clip may be opened.
#pragma once

#include <functional>
#include <string>

#include "base/reason.h"
#include "movie/objects/movie_reader.h"

namespace tarn {

enum MovieFileStatus : int {
    kFileUnreadable = 0,   // no memory, nothing in it that this program reads, or a WAV that can't
                           // be opened
    kFileNoGraph = 1,      // the file is fine but no preview can be built for it
    kFileUnsupported = 2,  // another kind of file, damaged, or not stereo
    kFileUsable = 3,
};

// Builds a preview for the path and lets it go again, or says why it can't. The caller brings it,
// so that programs without a preview need no player.
using GraphStep = std::function<Reason(const std::string& path)>;

// Checks an .mp4 or .wav file; any other name is unsupported. `strict` also refuses a WAV that is
// not two channels of 16 bits. `reason`, where given, gets why the file is not usable, or what a
// usable one lacks. Without a graph step a good file is usable.
MovieFileStatus CheckMovieFile(const std::string& path, bool strict, const GraphStep& graph,
                               Reason* reason = nullptr);
// The same for a file of any name: what is in it decides.
MovieFileStatus CheckAnyFile(const std::string& path, bool strict, const GraphStep& graph,
                             Reason* reason = nullptr);

// The same of a movie that is open, where it depends on what is in it.
MovieFileStatus CheckOpenMovie(const CMP4MovieInput& movie, Reason* reason);

// The key of the text that tells the user why a file was not opened; its one argument is the
// file's name. Empty for a usable file.
std::string MovieFileMessageKey(MovieFileStatus status);

}  // namespace tarn
