// commands.h - the commands of `tarn`, one file each.
//
// Each function adds its subcommand, with options and help, and a callback that runs it and leaves
// the exit status: 0 done, 1 failed (one line on standard error: what, which file, why). Wrong
// usage is found by the parser and answered with 2 before any callback runs.
#pragma once

namespace CLI {
class App;
}

namespace tarn {

enum ExitStatus : int { kExitDone = 0, kExitFailed = 1, kExitUsage = 2 };

void AddCheckCommand(CLI::App& app, int* status);
void AddInfoCommand(CLI::App& app, int* status);
void AddPeaksCommand(CLI::App& app, int* status);
void AddSamplesCommand(CLI::App& app, int* status);
void AddTreeCommand(CLI::App& app, int* status);
void AddExportCommand(CLI::App& app, int* status);

}  // namespace tarn
