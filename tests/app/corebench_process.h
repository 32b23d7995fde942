#pragma once

// Runs the built corebench as a separate process, with exact argument bytes (no shell between).
// Every wait is bounded: a run that outlasts its time is killed and reported as not exited.

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
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
    std::vector<std::string> prefix;  // a program (and its arguments) that runs corebench
    int timeoutMs = 300000;
};

// The emulator (its words) that runs the program in a cross build; empty for a native one.
// COREBENCH_TEST_PROGRAM and COREBENCH_TEST_LAUNCHER (words separated by blanks) run these tests
// against another build's program, e.g. the Windows one under Wine, which cannot run them itself.
inline const std::vector<std::string>& corebenchLauncher() {
    static const std::vector<std::string> launcher = [] {
        const char* words = getenv("COREBENCH_TEST_LAUNCHER");
        if (words == nullptr) {
            return std::vector<std::string>(COREBENCH_LAUNCHER);
        }
        std::vector<std::string> split;
        for (const QString& word : QString::fromLocal8Bit(words).split(' ', Qt::SkipEmptyParts)) {
            split.push_back(word.toStdString());
        }
        return split;
    }();
    return launcher;
}

// False for arguments longer than COREBENCH_TEST_COMMAND_LINE (characters, blanks between them
// included), which the program's system cannot pass: Windows takes at most 32,767.
inline bool fitsCommandLine(const std::vector<std::string>& arguments) {
    const char* limit = getenv("COREBENCH_TEST_COMMAND_LINE");
    size_t length = 0;
    for (const std::string& argument : arguments) {
        length += argument.size() + 1;
    }
    return limit == nullptr || length <= strtoul(limit, nullptr, 10);
}

inline const char* corebenchProgram() {
    const char* program = getenv("COREBENCH_TEST_PROGRAM");
    return program != nullptr ? program : COREBENCH_BINARY;
}

// Starts corebench after the prefix, stdout and stderr as given (-1: the test's own); 0 on failure.
inline pid_t spawnCorebench(const std::vector<std::string>& arguments,
                            const std::vector<std::string>& prefix, int stdoutFd, int stderrFd) {
    std::vector<std::string> words = prefix;
    words.insert(words.end(), corebenchLauncher().begin(), corebenchLauncher().end());
    words.push_back(corebenchProgram());
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdoutFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    }
    if (stderrFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stderrFd, STDERR_FILENO);
    }
    pid_t pid = 0;
    const bool spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return spawned ? pid : 0;
}

// The raw wait status, or -1 when the child had to be killed after timeoutMs.
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

// Everything in the file; pread leaves the offset, which a child writing to it shares.
inline std::string fileText(FILE* file) {
    std::string text;
    char buffer[65536];
    for (ssize_t n; (n = pread(fileno(file), buffer, sizeof buffer, text.size())) > 0;) {
        text.append(buffer, static_cast<size_t>(n));
    }
    return text;
}

inline std::string fileText(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Output and errors go to temporary files, which never fill up and block the child as a pipe can.
inline ProcessResult runCorebench(const std::vector<std::string>& arguments,
                                  const RunOptions& options = RunOptions()) {
    ProcessResult result;
    FILE* out = tmpfile();
    FILE* err = tmpfile();
    const pid_t pid =
        spawnCorebench(arguments, options.prefix,
                       options.stdoutFd >= 0 ? options.stdoutFd : fileno(out), fileno(err));
    const int status = pid != 0 ? waitAtMost(pid, options.timeoutMs) : -1;
    result.exited = status != -1 && WIFEXITED(status);
    result.status = result.exited ? WEXITSTATUS(status) : -1;
    result.output = fileText(out);
    result.errors = fileText(err);
    fclose(out);
    fclose(err);
    return result;
}

// The length of the opening time stamp and system summary (0 when the output does not start with
// them; product type and version are joined without a blank); threads gets NumberOfThreads.
inline size_t summaryLength(const std::string& output, int* threads = nullptr) {
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
