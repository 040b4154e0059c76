// main.cpp - the `tarn` program: parses the command line and leaves the work to the commands.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <new>

#include "cli/commands.h"

namespace {

// A closed standard stream would give its number to the next file that is opened, and a message
// would land in somebody's recording.
void fill_standard_streams() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(number, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tarn;
    CLI::App app{"Cut, treat and save clips of music performances.", "tarn"};
    app.set_version_flag("--version", "tarn " TARN_VERSION);
    app.require_subcommand(1);
    app.failure_message(CLI::FailureMessage::help);

    fill_standard_streams();
    int status = kExitDone;
    AddCheckCommand(app, &status);
    AddInfoCommand(app, &status);
    AddPeaksCommand(app, &status);
    AddSamplesCommand(app, &status);
    AddTreeCommand(app, &status);
    AddExportCommand(app, &status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitDone : kExitUsage;
    } catch (const std::bad_alloc&) {
        std::fputs("tarn: not enough memory\n", stderr);
        return kExitFailed;
    }
    return status;
}
