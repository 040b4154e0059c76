// main.cpp - the `tarn` program: parses the command line and leaves the work to the commands.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>

#include "base/reason.h"
#include "cli/commands.h"
#include "cli/report.h"

namespace {

using namespace tarn;

// A closed standard stream would give its number to the next file that is opened, and a message
// would land in somebody's recording.
void fill_standard_streams() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(number, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
}

// What is wrong, and where to read how it is right.
std::string usage_text(const CLI::App* app, const CLI::Error& error) {
    std::string text = "tarn: ";
    text.append(error.what()).append("\nsee tarn ");
    for (const CLI::App* command : app->get_subcommands())
        text.append(command->get_name()).append(" ");
    return text.append("--help\n");
}

int tell_no_memory() {
    std::fputs("tarn: not enough memory\n", stderr);
    return kExitFailed;
}

// For memory that is short where nothing may throw, as in a destructor.
[[noreturn]] void on_terminate() {
    try {
        if (const std::exception_ptr current = std::current_exception())
            std::rethrow_exception(current);
    } catch (const std::bad_alloc&) {
        _exit(tell_no_memory());
    } catch (...) {
    }
    std::abort();
}

// A script that reads half a document must not take it for the whole one.
int finish_output(int status) {
    std::cout.flush();
    int error = std::fflush(stdout) != 0 ? errno : 0;
    if (error == 0 && std::cout && std::ferror(stdout) == 0) return status;
    if (error == 0) {  // it failed before: once more, to hear why
        std::clearerr(stdout);
        error = std::fputc('\n', stdout) == EOF || std::fflush(stdout) != 0 ? errno : EIO;
    }
    const Reason reason =
        SystemReason(ReasonCode::kCantWrite, ReasonSide::kNone, "standard output", error);
    return status == kExitDone ? Fail(reason) : status;
}

int run(int argc, char** argv) {
    CLI::App app{"Cut, treat and save clips of music performances.", "tarn"};
    app.set_version_flag("--version", "tarn " TARN_VERSION);
    app.require_subcommand(1);
    app.failure_message(usage_text);

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
        status = app.exit(error) == 0 ? kExitDone : kExitUsage;
    }
    return finish_output(status);
}

}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(on_terminate);
    fill_standard_streams();
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        return tell_no_memory();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tarn: unexpected failure: %s\n", error.what());
    } catch (...) {
        std::fputs("tarn: unexpected failure\n", stderr);
    }
    return kExitFailed;
}
