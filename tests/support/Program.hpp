// Runs a program as a child process the test can kill -9 at a chosen point of its
// output, which lands the kill mid-run without guessing at timing.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace bvgeo::testing {

struct ProgramRun {
    int status = -1;    // as from waitpid; -1 when it could not start
    std::string output; // everything it wrote to stdout, also after the kill
    bool killed() const { return status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL; }
};

// Runs words[0] with the rest as arguments, stderr to /dev/null. Kills it with
// SIGKILL once `killAfterLines` lines came out: 0 kills it at once, a negative
// count never.
inline ProgramRun runProgram(const std::vector<std::string>& words, int killAfterLines) {
    ProgramRun run;
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return run;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_t child = -1;
    const int spawned = posix_spawn(&child, words[0].c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (spawned != 0) {
        ::close(pipeFds[0]);
        return run;
    }
    if (killAfterLines == 0) ::kill(child, SIGKILL);
    int lines = 0;
    char buffer[4096];
    ssize_t n;
    // Read on after the kill: what the program wrote before it died still counts.
    while ((n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0) {
        run.output.append(buffer, static_cast<std::size_t>(n));
        if (killAfterLines <= 0) continue;
        for (ssize_t i = 0; i < n; ++i) lines += buffer[i] == '\n';
        if (lines >= killAfterLines) {
            ::kill(child, SIGKILL);
            killAfterLines = -1;
        }
    }
    ::close(pipeFds[0]);
    ::waitpid(child, &run.status, 0);
    return run;
}

} // namespace bvgeo::testing
