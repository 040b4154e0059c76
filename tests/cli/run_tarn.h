// run_tarn.h - runs the built `tarn` and keeps what it says.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tarn {

struct TarnRun {
    int status = -1;  // exit status; 128 and the number of the signal that ended it
    std::string out, err;
};

// `meanwhile`, called again and again while it runs with its process id, may send it signals.
TarnRun RunTarn(const std::vector<std::string>& arguments,
                const std::function<void(int pid)>& meanwhile = nullptr);

}  // namespace tarn
