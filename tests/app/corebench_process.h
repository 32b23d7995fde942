#pragma once

// Runs the built corebench as a separate process, with exact argument bytes (no shell between).
// Every wait is bounded: a run that outlasts its time is killed and reported as not exited.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <string>
#include <vector>

extern char** environ;

struct ProcessResult {
    std::string output;   // everything written to standard output
    std::string errors;   // everything written to standard error
    bool exited = false;  // false when not started, killed by a signal or out of time
    int status = -1;      // exit status as the shell sees it, 0 to 255
};

struct RunOptions {
    int stdoutFd = -1;                // the child's standard output; -1 reads it into output
    bool closeStdout = false;         // the child starts with standard output closed
    bool ignoreSigpipe = false;       // the child starts with SIGPIPE ignored
    std::vector<std::string> prefix;  // a program (and its arguments) that runs corebench
    int timeoutMs = 300000;
};

// The emulator (its words) that runs the program in a cross build; empty for a native one.
inline const std::vector<std::string>& corebenchLauncher() {
    static const std::vector<std::string> launcher = COREBENCH_LAUNCHER;
    return launcher;
}

// Starts corebench with stdout and stderr as given (-1 leaves the test's own); 0 when it could
// not be started.
inline pid_t spawnCorebench(const std::vector<std::string>& arguments, const RunOptions& options,
                            int stdoutFd, int stderrFd) {
    std::vector<char*> argv;
    for (const std::string& word : options.prefix) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    for (const std::string& word : corebenchLauncher()) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(const_cast<char*>(COREBENCH_BINARY));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.closeStdout) {
        posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
    } else if (stdoutFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    }
    if (stderrFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stderrFd, STDERR_FILENO);
    }
    // An ignored signal stays ignored across exec; a caught or default one does not.
    struct sigaction ignore = {}, previous = {};
    ignore.sa_handler = SIG_IGN;
    if (options.ignoreSigpipe) {
        sigaction(SIGPIPE, &ignore, &previous);
    }
    pid_t pid = 0;
    const bool spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    if (options.ignoreSigpipe) {
        sigaction(SIGPIPE, &previous, nullptr);
    }
    posix_spawn_file_actions_destroy(&actions);
    return spawned ? pid : 0;
}

// Waits at most timeoutMs for the child, then kills it. The raw wait status, or -1 when it had to
// be killed.
inline int waitAtMost(pid_t pid, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (timer.elapsed() > timeoutMs) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        usleep(10000);
    }
    return status;
}

inline ProcessResult runCorebench(const std::vector<std::string>& arguments,
                                  const RunOptions& options = RunOptions()) {
    ProcessResult result;
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) {
        return result;
    }
    const pid_t pid = spawnCorebench(arguments, options,
                                     options.stdoutFd >= 0 ? options.stdoutFd : out[1], err[1]);
    close(out[1]);
    close(err[1]);
    QElapsedTimer timer;
    timer.start();
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* texts[2] = {&result.output, &result.errors};
    int open = pid != 0 ? 2 : 0;
    while (open > 0 && timer.elapsed() < options.timeoutMs) {
        if (poll(fds, 2, 100) <= 0) {
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && fds[i].revents != 0) {
                char buffer[65536];
                const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
                if (n > 0) {
                    texts[i]->append(buffer, static_cast<size_t>(n));
                } else {
                    fds[i].fd = -1;
                    --open;
                }
            }
        }
    }
    close(out[0]);
    close(err[0]);
    if (pid != 0) {
        const int elapsed = static_cast<int>(timer.elapsed());
        const int status =
            waitAtMost(pid, elapsed < options.timeoutMs ? options.timeoutMs - elapsed : 0);
        if (status != -1 && WIFEXITED(status)) {
            result.exited = true;
            result.status = WEXITSTATUS(status);
        }
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
