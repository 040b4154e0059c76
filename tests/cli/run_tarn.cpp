#include "cli/run_tarn.h"

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/temp_dir.h"

namespace tarn {

TarnRun RunTarn(const std::vector<std::string>& arguments,
                const std::function<void(int pid)>& meanwhile) {
    const TempDir dir;
    std::vector<char*> argv;
    std::string program = TARN_BINARY;
    argv.push_back(program.data());
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int kFlags = O_WRONLY | O_CREAT;
    posix_spawn_file_actions_addopen(&files, 1, dir.Path("out").c_str(), kFlags, 0600);
    posix_spawn_file_actions_addopen(&files, 2, dir.Path("err").c_str(), kFlags, 0600);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, program.c_str(), &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) return {};

    int status = 0;
    while (waitpid(pid, &status, meanwhile ? WNOHANG : 0) == 0) {
        meanwhile(pid);
        sched_yield();
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), dir.Read("out"),
            dir.Read("err")};
}

}  // namespace tarn
