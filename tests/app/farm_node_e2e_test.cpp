// corebench on nodes where things go wrong from outside: output that cannot be written, a run
// killed by a job's time limit, a process limit that lets no worker thread start. Each run either
// ends with one line on stderr and a status of its own, or keeps what it printed.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "corebench_process.h"

namespace {

constexpr int kRunFailedStatus = 71;
// ThreadSanitizer starts a thread of its own before the first one the program creates.
#if defined(__SANITIZE_THREAD__)
constexpr int kRuntimeThreads = 1;
#else
constexpr int kRuntimeThreads = 0;
#endif
// LeakSanitizer needs a thread of its own at exit, which the limit refuses; the unit tests check
// the same failure for leaks.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kLeakCheckAtExit = true;
#else
constexpr bool kLeakCheckAtExit = false;
#endif
constexpr int kOutputFailedStatus = 74;

std::string fileText(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// A full disk, a closed descriptor and a reader that has gone away (with SIGPIPE ignored, as job
// runners often leave it) each stop the run with the system's text for the error.
TEST(CorebenchOutput, AFailedWriteGivesOneLineAndItsOwnStatus) {
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0) << strerror(errno);
    int gone[2];
    ASSERT_EQ(pipe(gone), 0);
    close(gone[0]);

    RunOptions toFull;
    toFull.stdoutFd = full;
    RunOptions closed;
    closed.closeStdout = true;
    RunOptions toGone;
    toGone.stdoutFd = gone[1];
    toGone.ignoreSigpipe = true;
    const struct {
        const char* what;
        RunOptions options;
        int error;
    } cases[] = {{"full disk", toFull, ENOSPC},
                 {"closed output", closed, EBADF},
                 {"reader gone", toGone, EPIPE}};
    for (const auto& c : cases) {
        // An emulator opens files of its own before the program runs, which would take the
        // closed descriptor.
        if (c.options.closeStdout && !corebenchLauncher().empty()) {
            continue;
        }
        // Usage runs end at once; a benchmark run must stop before it measures.
        for (const char* test : {"nosuch", "SingleSpeed"}) {
            RunOptions options = c.options;
            options.timeoutMs = 20000;
            const ProcessResult run = runCorebench({test, "LoremIpsum"}, options);
            EXPECT_TRUE(run.exited) << c.what << " " << test;
            EXPECT_EQ(run.status, kOutputFailedStatus) << c.what << " " << test;
            EXPECT_EQ(run.errors, std::string("corebench: cannot write standard output: ") +
                                      strerror(c.error) + "\n")
                << c.what << " " << test;
        }
    }
    close(full);
    close(gone[1]);
}

// Standard output to a file is fully buffered; a run stopped by SIGTERM (a farm job's time limit)
// must still have every line printed before the phase it was stopped in.
TEST(CorebenchKilled, KeepsEveryLinePrintedBeforeTheSignal) {
    char path[] = "/tmp/corebench-killed-XXXXXX";
    const int log = mkstemp(path);
    ASSERT_GE(log, 0);
    const pid_t pid =
        spawnCorebench({"Single5Verbose", "x", "y", "LoremIpsum"}, RunOptions(), log, -1);
    close(log);
    ASSERT_NE(pid, 0);
    // Printed by the summary, the filler and the start of the first run, which then waits for
    // its worker for seconds.
    const std::string runStart =
        "CPU PS Test...\nCreating 1 threads\nt\npsTest: threads created\n"
        "psTest: starting threads - benchmark\n";
    QElapsedTimer timer;
    timer.start();
    std::string text;
    while (timer.elapsed() < 20000 && (text = fileText(path)).find(runStart) == std::string::npos) {
        usleep(50000);
    }
    kill(pid, SIGTERM);
    const int status = waitAtMost(pid, 10000);
    text = fileText(path);
    unlink(path);
    EXPECT_TRUE(status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    const size_t summary = summaryLength(text);
    ASSERT_GT(summary, 0u) << text;
    EXPECT_EQ(text.compare(summary, 13, "\n\nLorem ipsum"), 0) << text;
    EXPECT_EQ(text.compare(summary + 4680, runStart.size(), runStart), 0) << text;
}

// A cgroup of this machine's pids controller that admits at most `tasks` tasks (threads count),
// removed again with the object; empty when there is none to use.
class PidsLimit {
  public:
    explicit PidsLimit(int tasks) {
        if (geteuid() != 0) {
            return;
        }
        // cgroup v1 mounts the controller on its own; v2 offers it in the root's subtree.
        std::string base = "/sys/fs/cgroup/pids";
        if (access((base + "/cgroup.procs").c_str(), W_OK) != 0) {
            base = "/sys/fs/cgroup";
            if (fileText(base + "/cgroup.subtree_control").find("pids") == std::string::npos) {
                return;
            }
        }
        const std::string dir = base + "/corebench-test-" + std::to_string(getpid());
        if (mkdir(dir.c_str(), 0755) != 0) {
            return;
        }
        std::ofstream(dir + "/pids.max") << tasks << "\n";
        dir_ = dir;
    }
    ~PidsLimit() {
        // The cgroup can be removed once its last task has been reaped, which the kernel may
        // finish a moment after waitpid returns.
        for (int i = 0; i < 100 && !dir_.empty() && rmdir(dir_.c_str()) != 0; ++i) {
            usleep(10000);
        }
    }
    bool usable() const { return !dir_.empty(); }
    // Runs the program in the cgroup: the shell joins it, then becomes corebench.
    std::vector<std::string> prefix() const {
        std::vector<std::string> words = {"/bin/sh", "-c", "echo $$ > \"$0\" && exec \"$@\"",
                                          dir_ + "/cgroup.procs"};
        if (kLeakCheckAtExit) {
            const char* options = getenv("ASAN_OPTIONS");
            words.insert(words.end(),
                         {"env", std::string("ASAN_OPTIONS=") +
                                     (options != nullptr ? options : "") + ":detect_leaks=0"});
        }
        return words;
    }

  private:
    std::string dir_;
};

// With room for the main thread only, the one worker of SingleSpeed cannot start; with room for
// one worker, the second worker of an all-cores run cannot, and the first must be stopped.
TEST(CorebenchLimits, AWorkerThreadThatCannotStartEndsTheRunWithOneLine) {
    if (!corebenchLauncher().empty()) {
        GTEST_SKIP() << "an emulator starts threads of its own, so the limit cannot be counted";
    }
    int threads = 0;
    summaryLength(runCorebench({"nosuch"}).output, &threads);
    const struct {
        int tasks;
        std::vector<std::string> arguments;
        int failing;
        int workers;
    } cases[] = {{1, {"SingleSpeed", "exitCodeThreshold", "1"}, 0, 1},
                 {2, {"All", "exitCodeThreshold", "1"}, 1, threads}};
    for (const auto& c : cases) {
        if (c.workers <= c.failing) {
            continue;  // a single-CPU machine runs all its workers within the limit
        }
        PidsLimit limit(c.tasks + kRuntimeThreads);
        if (!limit.usable()) {
            GTEST_SKIP() << "needs root and a cgroup pids controller to limit the threads";
        }
        RunOptions options;
        options.prefix = limit.prefix();
        options.timeoutMs = 60000;
        const ProcessResult run = runCorebench(c.arguments, options);
        EXPECT_TRUE(run.exited) << c.arguments[0];
        EXPECT_EQ(run.status, kRunFailedStatus) << c.arguments[0];
        EXPECT_EQ(run.errors, "corebench: worker thread " + std::to_string(c.failing) + " of " +
                                  std::to_string(c.workers) +
                                  " could not be started: " + strerror(EAGAIN) + "\n")
            << c.arguments[0];
        EXPECT_GT(summaryLength(run.output), 0u) << run.output;
        EXPECT_EQ(run.output.find("PS_Result"), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("Returning exit code"), std::string::npos) << run.output;
    }
}

}  // namespace
