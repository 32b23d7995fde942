// Faults from outside (unwritable output, a job's time limit, a thread limit): each run ends with
// one line on stderr and a status of its own, or keeps what it printed.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "corebench_process.h"

namespace {

constexpr int kRunFailedStatus = 71;
constexpr int kOutputFailedStatus = 74;
// ThreadSanitizer starts a thread of its own before the first one the program creates.
#if defined(__SANITIZE_THREAD__)
constexpr int kRuntimeThreads = 1;
#else
constexpr int kRuntimeThreads = 0;
#endif

// A full disk, a closed descriptor and a reader that has gone away (with SIGPIPE ignored, as job
// runners often leave it) each stop the run with the system's text for the error.
TEST(CorebenchOutput, AFailedWriteGivesOneLineAndItsOwnStatus) {
    int gone[2];
    ASSERT_EQ(pipe(gone), 0);
    close(gone[0]);
    const struct {
        int stdoutFd;
        const char* shell;
        int error;
    } cases[] = {{-1, "exec \"$@\" >/dev/full", ENOSPC},
                 {-1, "exec \"$@\" >&-", EBADF},
                 {gone[1], "trap '' PIPE && exec \"$@\"", EPIPE}};
    for (const auto& c : cases) {
        // An emulator opens files of its own before the program runs, which would take the
        // closed descriptor.
        if (c.error == EBADF && !corebenchLauncher().empty()) {
            continue;
        }
        // Usage runs end at once; a benchmark run must stop before it measures.
        for (const char* test : {"nosuch", "SingleSpeed"}) {
            RunOptions options;
            options.stdoutFd = c.stdoutFd;
            options.prefix = {"/bin/sh", "-c", c.shell, "sh"};
            options.timeoutMs = 20000;
            const ProcessResult run = runCorebench({test, "LoremIpsum"}, options);
            EXPECT_TRUE(run.exited && run.status == kOutputFailedStatus) << test << run.status;
            EXPECT_EQ(run.errors, std::string("corebench: cannot write standard output: ") +
                                      strerror(c.error) + "\n");
        }
    }
    close(gone[1]);
}

// Standard output to a file is fully buffered; a run stopped by SIGTERM (a farm job's time limit)
// must still have every line printed before the phase it was stopped in.
TEST(CorebenchKilled, KeepsEveryLinePrintedBeforeTheSignal) {
    FILE* log = tmpfile();
    ASSERT_NE(log, nullptr);
    const pid_t pid =
        spawnCorebench({"Single5Verbose", "x", "y", "LoremIpsum"}, {}, fileno(log), -1);
    ASSERT_NE(pid, 0);
    // Printed by the summary, the filler and the start of the first run, which then waits for
    // its worker for seconds.
    const std::string runStart =
        "CPU PS Test...\nCreating 1 threads\nt\npsTest: threads created\n"
        "psTest: starting threads - benchmark\n";
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 20000 && fileText(log).find(runStart) == std::string::npos) {
        usleep(50000);
    }
    kill(pid, SIGTERM);
    const int status = waitAtMost(pid, 10000);
    const std::string text = fileText(log);
    fclose(log);
    EXPECT_TRUE(status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    const size_t summary = summaryLength(text);
    ASSERT_GT(summary, 0u) << text;
    EXPECT_EQ(text.compare(summary, 13, "\n\nLorem ipsum"), 0) << text;
    EXPECT_EQ(text.compare(summary + 4680, runStart.size(), runStart), 0) << text;
}

// A cgroup of this machine's pids controller that admits at most `tasks` tasks (threads count);
// empty when there is none to use.
std::string pidsCgroup(int tasks) {
    // cgroup v1 mounts the controller on its own; v2 offers it in the root's subtree.
    std::string base = "/sys/fs/cgroup/pids";
    if (access((base + "/cgroup.procs").c_str(), W_OK) != 0) {
        base = "/sys/fs/cgroup";
        if (fileText(base + "/cgroup.subtree_control").find("pids") == std::string::npos) {
            return "";
        }
    }
    const std::string dir = base + "/corebench-test-" + std::to_string(getpid());
    if (geteuid() != 0 || mkdir(dir.c_str(), 0755) != 0) {
        return "";
    }
    std::ofstream(dir + "/pids.max") << tasks << "\n";
    return dir;
}

// With room for the main thread only, the one worker of SingleSpeed cannot start; with room for
// one worker, the second worker of an all-cores run cannot, and the first must be stopped.
TEST(CorebenchLimits, AWorkerThreadThatCannotStartEndsTheRunWithOneLine) {
    if (!corebenchLauncher().empty()) {
        GTEST_SKIP() << "an emulator starts threads of its own, so the limit cannot be counted";
    }
    int threads = 0;
    summaryLength(runCorebench({"nosuch"}).output, &threads);
    const struct {
        const char* test;
        int failing, workers;
    } cases[] = {{"SingleSpeed", 0, 1}, {"All", 1, threads}};
    for (const auto& c : cases) {
        if (c.workers <= c.failing) {
            continue;  // a single-CPU machine runs all its workers within the limit
        }
        const std::string cgroup = pidsCgroup(c.failing + 1 + kRuntimeThreads);
        if (cgroup.empty()) {
            GTEST_SKIP() << "needs root and a cgroup pids controller to limit the threads";
        }
        // The shell joins the cgroup, then becomes corebench. LeakSanitizer would need a thread
        // of its own at exit, which the limit refuses; the unit tests check this failure for leaks.
        RunOptions options;
        options.prefix = {
            "/bin/sh", "-c",
            "echo $$ > \"$0\" && export ASAN_OPTIONS=\"$ASAN_OPTIONS:detect_leaks=0\" && "
            "exec \"$@\"",
            cgroup + "/cgroup.procs"};
        options.timeoutMs = 60000;
        const ProcessResult run = runCorebench({c.test, "exitCodeThreshold", "1"}, options);
        // The cgroup can be removed once its last task has been reaped, which the kernel may
        // finish a moment after waitpid returns.
        for (int i = 0; i < 100 && rmdir(cgroup.c_str()) != 0; ++i) {
            usleep(10000);
        }
        EXPECT_TRUE(run.exited && run.status == kRunFailedStatus) << c.test << run.status;
        EXPECT_EQ(run.errors, "corebench: worker thread " + std::to_string(c.failing) + " of " +
                                  std::to_string(c.workers) +
                                  " could not be started: " + strerror(EAGAIN) + "\n");
        EXPECT_GT(summaryLength(run.output), 0u) << run.output;
        EXPECT_EQ(run.output.find("PS_Result"), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("Returning exit code"), std::string::npos) << run.output;
    }
}

}  // namespace
