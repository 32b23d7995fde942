#include "corebench_process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>

extern char** environ;

ProcessResult runCorebench(const std::vector<std::string>& arguments) {
    ProcessResult result;
    std::vector<char*> argv = {const_cast<char*>(COREBENCH_BINARY)};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    int fds[2];
    if (pipe(fds) != 0) {
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn_file_actions_addclose(&actions, fds[1]);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (spawned != 0) {
        close(fds[0]);
        return result;
    }
    char buffer[65536];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof(buffer))) != 0;) {
        if (n > 0) {
            result.output.append(buffer, static_cast<size_t>(n));
        } else if (errno != EINTR) {
            break;
        }
    }
    close(fds[0]);
    int waitStatus = 0;
    while (waitpid(pid, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.exited = WIFEXITED(waitStatus);
    result.status = result.exited ? WEXITSTATUS(waitStatus) : -1;
    return result;
}

const std::string kUsageText =
    "Usage: \n"
    "corebench [testName] [exitCodeThreshold <divider>]  [LoremIpsum] [BlenderLog] "
    "[HoudiniLog]\n\n"
    "[LoremIpsum] [BlenderLog] [HoudiniLog]:\n\tThese print some text to increase the size of the "
    "printed output\n\n"
    "[exitCodeThreshold <divider>]: Return measured PS. <divider> divides the PS before returning "
    "it.\n"
    "             The divider might be required on Linux as the exit code must be smaller than "
    "255.\n\n"
    "[testName]: Available tests are:\n"
    "\t All: (default) Test all cores for ~1 minute \n"
    "\t AllVerbose: Same, but with verbose log\n"
    "\t Single: Test 1 core only for ~1-2 minutes\n"
    "\t Single5: 5 times the Single test in a row\n"
    "\t Single5Verbose: 5 times the Single test in a row, with verbose log\n"
    "\t Single10: 10 times the Single test in a row\n"
    "\t Single10Verbose: 10 times the Single test in a row, with verbose log\n"
    "\t SingleSpeed: Test 1 core only for ~8 seconds\n";

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    if (start < text.size()) {
        lines.push_back(text.substr(start));
    }
    return lines;
}

namespace {

bool isDigit(const std::string& s, size_t i) {
    return i < s.size() && isdigit(static_cast<unsigned char>(s[i])) != 0;
}

size_t skipDigits(const std::string& s, size_t i) {
    while (isDigit(s, i)) {
        ++i;
    }
    return i;
}

}  // namespace

bool matchLine(const std::string& line, const char* pattern, std::vector<double>* numbers) {
    size_t i = 0;
    for (const char* p = pattern; *p != '\0'; ++p) {
        if (*p != '#' && *p != '~' && *p != '@') {
            if (!(*p == '?' ? isDigit(line, i) : i < line.size() && line[i] == *p)) {
                return false;
            }
            ++i;
            continue;
        }
        if (*p == '~') {
            i = std::min(line.find_first_not_of(' ', i), line.size());
        }
        const size_t start = i;
        if (*p == '#' && i < line.size() && line[i] == '-') {
            ++i;
        }
        const size_t digits = i;
        i = skipDigits(line, i);
        if (i == digits) {
            return false;
        }
        if (*p == '~') {
            if (i >= line.size() || line[i] != '.' || skipDigits(line, i + 1) != i + 4) {
                return false;
            }
            i += 4;
        }
        while (*p == '@' && line.compare(i, 1, " ") == 0 && isDigit(line, i + 1)) {
            i = skipDigits(line, i + 1);
        }
        std::string number = line.substr(start, i - start);
        number.erase(std::remove(number.begin(), number.end(), ' '), number.end());
        numbers->push_back(std::stod(number));
    }
    return i == line.size();
}

Summary readSummary(const std::string& output) {
    const std::vector<std::string> lines = splitLines(output);
    std::vector<double> n;
    Summary summary;
    size_t at = 0;
    size_t length = 0;
    const auto next = [&](bool matches) {
        if (matches) {
            length += lines[at++].size() + 1;
        }
        return matches;
    };
    // Product type and version are joined without a blank ("debian12").
    const char* const os = "SpecificOperSys: ";
    if (lines.size() < 4 || !next(matchLine(lines[0], "??:??.??", &n)) ||
        !next(lines[1].rfind(os, 0) == 0 && lines[1].find(' ', strlen(os)) == std::string::npos &&
              lines[1].size() > strlen(os)) ||
        !next(matchLine(lines[2], "NumberOfThreads: #", &n)) || n.back() < 1) {
        return summary;
    }
    next(matchLine(lines[3], "RAM installed: #", &n));
    if (at < lines.size() && next(lines[at] == "OperatingSystem: MAC")) {
        summary.length = length;
        summary.threads = static_cast<int>(n[0]);  // the stamp reads no number
    }
    return summary;
}
