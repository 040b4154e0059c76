// check_command.cpp - `tarn check FILE`: whether the program would open a clip.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "base/xp_file.h"
#include "cli/commands.h"
#include "cli/report.h"
#include "movie/save/savable.h"

namespace tarn {
namespace {

const char* meaning(MovieFileStatus status) {
    switch (status) {
        case kFileUnreadable:
            return "can't be opened";
        case kFileNoGraph:
            return "can't be previewed";
        case kFileUnsupported:
            return "not usable";
        case kFileUsable:
            return "usable";
    }
    return "";
}

int run_check(const std::string& path) {
    const SaveCheck check = CheckForSaving(path);
    const Reason reason = OfEitherKind(check.reason);
    std::cout << static_cast<int>(check.status) << ' '
              << (check.canBeSaved ? meaning(check.status)
                                   : "can be opened, but not saved as a movie");
    // "can't be opened" is said already.
    if (const int error = reason.SystemError())
        std::cout << ": " << XpErrorText(error);
    else if (reason)
        std::cout << ": " << ReasonText(reason);
    std::cout << '\n';
    // A usable file may lack something all the same.
    return check.status != kFileUsable ? Fail(reason) : kExitDone;
}

}  // namespace

void AddCheckCommand(CLI::App& app, int* status) {
    auto path = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("check", "Tell whether a clip can be edited");
    command->add_option("FILE", *path, "A movie or WAV file")->required();
    command->footer(
        "Prints a digit and its meaning: 3 usable, 2 not usable, 1 no preview, 0 can't "
        "be opened.\nThe exit status is 0 for 3 alone.");
    command->callback([path, status] { *status = run_check(*path); });
}

}  // namespace tarn
