#pragma once

// Runs the built corebench as a separate process, with exact argument bytes (no shell between).

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QRegularExpression>
#include <string>
#include <vector>

extern char** environ;

struct ProcessResult {
    std::string output;   // everything written to standard output
    bool exited = false;  // false when not started or killed by a signal
    int status = -1;      // exit status as the shell sees it, 0 to 255
};

// Runs the program directly, or through the emulator (its words first) in a cross build.
inline ProcessResult runCorebench(const std::vector<std::string>& arguments) {
    static const std::vector<std::string> launcher = COREBENCH_LAUNCHER;
    std::vector<char*> argv;
    for (const std::string& word : launcher) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(const_cast<char*>(COREBENCH_BINARY));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    ProcessResult result;
    int fds[2];
    if (pipe(fds) != 0) {
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    pid_t pid = 0;
    const bool spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    char buffer[65536];
    for (ssize_t n; spawned && (n = read(fds[0], buffer, sizeof buffer)) > 0;) {
        result.output.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);
    int status = 0;
    if (spawned && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
        result.exited = true;
        result.status = WEXITSTATUS(status);
    }
    return result;
}

// The length of the opening time stamp and system summary (0 when the output does not start with
// them); threads receives the NumberOfThreads figure.
inline size_t summaryLength(const std::string& output, int* threads = nullptr) {
    // Product type and version are joined without a blank ("debian12").
    static const QRegularExpression summary(
        "^\\d\\d:\\d\\d\\.\\d\\d\nSpecificOperSys: \\S+\nNumberOfThreads: ([1-9]\\d*)\n"
        "(RAM installed: \\d+\n)?OperatingSystem: MAC\n");
    const QRegularExpressionMatch match =
        summary.match(QString::fromLatin1(output.data(), static_cast<int>(output.size())));
    if (threads != nullptr) {
        *threads = match.captured(1).toInt();
    }
    return match.hasMatch() ? static_cast<size_t>(match.capturedEnd()) : 0;
}
