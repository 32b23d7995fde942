#include "log_parser.h"

#include <QRegularExpression>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "record.h"

namespace {

// The report is at most 5000 characters, so it never spans more lines than this.
constexpr int kMaxReportLines = 2600;

const QLatin1String kCpuPsTest("CPU PS Test...");
const QLatin1String kRule("------------------------------");  // 30 dashes

// The lines of a log as views into its bytes: four bytes a line whatever the log holds, and no
// byte (a NUL included) ends the text early. Lines are compared as bytes; only the few kept in
// the record are decoded.
class Lines {
  public:
    explicit Lines(const QByteArray& text) : text_(text) {
        starts_.push_back(0);
        const char* data = text.constData();
        for (const char* at = data;
             (at = static_cast<const char*>(
                  memchr(at, '\n', static_cast<size_t>(text.size() - (at - data))))) != nullptr;
             ++at) {
            starts_.push_back(static_cast<int>(at - data) + 1);
        }
        starts_.push_back(text.size() + 1);
    }

    int size() const { return static_cast<int>(starts_.size()) - 1; }

    // Without its line feed, and without the carriage return that other tools may have added.
    QLatin1String operator[](int i) const {
        int length = starts_[i + 1] - 1 - starts_[i];
        const char* data = text_.constData() + starts_[i];
        if (length > 0 && data[length - 1] == '\r') {
            --length;
        }
        return QLatin1String(data, length);
    }

    int indexOf(QLatin1String line) const {
        for (int i = 0; i < size(); ++i) {
            if ((*this)[i] == line) {
                return i;
            }
        }
        return -1;
    }

  private:
    const QByteArray& text_;
    std::vector<int> starts_;
};

// Result texts are Latin-1, the verbose report is printed as it was gathered (UTF-8 where the
// OS said so).
QString decoded(QLatin1String bytes) {
    const QString text = QString::fromUtf8(bytes.data(), bytes.size());
    return text.contains(QChar::ReplacementCharacter) ? QString(bytes) : text;
}

QRegularExpressionMatch matchLine(const QRegularExpression& expression, QLatin1String line) {
    return expression.match(QString(line));
}

// A whole line of digits after prefix; one too long for 64 bits comes back as the largest
// value of its sign, so that the range checks refuse it.
std::optional<qint64> integerAfter(QLatin1String prefix, QLatin1String line) {
    static const QRegularExpression digits(QStringLiteral("^-?\\d+$"));
    if (!line.startsWith(prefix)) {
        return std::nullopt;
    }
    const QString rest = QString(line.mid(prefix.size()));
    if (!digits.match(rest).hasMatch()) {
        return std::nullopt;
    }
    bool ok = false;
    const qint64 value = rest.toLongLong(&ok);
    return ok                                  ? value
           : rest.startsWith(QLatin1Char('-')) ? std::numeric_limits<qint64>::min()
                                               : std::numeric_limits<qint64>::max();
}

// Sets problem (the first one only) when value is outside [min, max]; false then.
bool inRange(const char* what, qint64 value, qint64 min, qint64 max, ParsedLog& log) {
    if (value >= min && value <= max) {
        return true;
    }
    if (log.problem.isEmpty()) {
        log.problem = QStringLiteral("%1 %2 is out of range (%3 to %4)")
                          .arg(QLatin1String(what))
                          .arg(value)
                          .arg(min)
                          .arg(max);
    }
    return false;
}

// A score as printed: finite, not negative, and within what any machine can make.
std::optional<double> score(const char* what, const QString& text, ParsedLog& log) {
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (ok && std::isfinite(value) && value >= 0.0 && value <= kMaxScorePs) {
        return value;
    }
    if (log.problem.isEmpty()) {
        log.problem = QStringLiteral("%1 %2 is not a score from 0 to %3")
                          .arg(QLatin1String(what), text.left(40))
                          .arg(kMaxScorePs);
    }
    return std::nullopt;
}

const QString kNumber = QStringLiteral("(-?\\d+(?:\\.\\d+)?)");

// The summary corebench prints before anything else, ending in "OperatingSystem: MAC"; filler
// follows it, so only the first such block counts. A job script may have printed lines before it.
bool readSummary(const Lines& lines, ParsedLog& log) {
    const int end = lines.indexOf(QLatin1String("OperatingSystem: MAC"));
    bool ok = true;
    for (int i = std::max(0, end - 4); i < end; ++i) {
        const QLatin1String line = lines[i];
        if (line.startsWith(QLatin1String("SpecificOperSys: "))) {
            log.os = decoded(line.mid(17));
        } else if (const auto threads = integerAfter(QLatin1String("NumberOfThreads: "), line)) {
            ok = inRange("NumberOfThreads", *threads, 0, kMaxCpus, log) && ok;
            log.summaryThreads = static_cast<int>(std::clamp<qint64>(*threads, 0, kMaxCpus));
        } else if (const auto ram = integerAfter(QLatin1String("RAM installed: "), line)) {
            ok = inRange("RAM installed", *ram, 0, kMaxRamGib, log) && ok;
            log.ramGib = *ram;
        }
    }
    return ok;
}

// corebench prints -1 for a clock it could not read.
bool readMhz(const char* what, QLatin1String prefix, QLatin1String line, std::optional<qint64>* mhz,
             ParsedLog& log) {
    const std::optional<qint64> value = integerAfter(prefix, line);
    if (value && !inRange(what, *value, -1, kMaxMhz, log)) {
        return false;
    }
    *mhz = value && *value >= 0 ? value : std::nullopt;
    return true;
}

// Reads the report that starts at its "CPU Description:" line, and the errors block right
// before it; false (with log.problem) when that block is not whole or a value is out of range.
bool readReport(const Lines& lines, int description, int end, ParsedLog& log) {
    log.cpuDescription = decoded(lines[description].mid(21));
    bool ok = true;
    for (int i = description + 1; i < end; ++i) {
        const QLatin1String line = lines[i];
        if (const auto value = integerAfter(QLatin1String("CPU Core Count:      "), line)) {
            ok = inRange("CPU Core Count", *value, 0, kMaxCpus, log) && ok;
            log.logicalCpus = static_cast<int>(std::clamp<qint64>(*value, 0, kMaxCpus));
        } else if (const auto hw = integerAfter(QLatin1String("CPU Core Count (HW): "), line)) {
            ok = inRange("CPU Core Count (HW)", *hw, 0, kMaxCpus, log) && ok;
            log.physicalCpus = static_cast<int>(std::clamp<qint64>(*hw, 0, kMaxCpus));
        } else if (line == QLatin1String("CPU Hyperthreading:  Enabled")) {
            log.hyperthreading = true;
        } else if (line == QLatin1String("CPU Hyperthreading:  Disabled")) {
            log.hyperthreading = false;
        } else if (line.startsWith(QLatin1String("CPU MHz Max:      "))) {
            ok = readMhz("CPU MHz Max", QLatin1String("CPU MHz Max:      "), line, &log.mhzMax,
                         log) &&
                 ok;
        } else if (line.startsWith(QLatin1String("CPU MHz Current:  "))) {
            ok = readMhz("CPU MHz Current", QLatin1String("CPU MHz Current:  "), line,
                         &log.mhzCurrent, log) &&
                 ok;
        }
    }
    if (!ok) {
        return false;
    }
    // "------", "ERRORS:", the error text, "------", a blank line, then the description; none of
    // it where every query of the system succeeded (as on Windows).
    if (description >= 1 && !lines[description - 1].isEmpty() && lines[description - 1] != kRule) {
        return true;
    }
    log.problem = QStringLiteral("the CPU report's \"ERRORS:\" block is not whole");
    if (description < 2 || !lines[description - 1].isEmpty() || lines[description - 2] != kRule) {
        return false;
    }
    for (int i = description - 3; i >= 1 && i >= description - kMaxReportLines; --i) {
        if (lines[i] == QLatin1String("ERRORS:")) {
            if (lines[i - 1] != kRule) {
                return false;
            }
            for (int j = i + 1; j < description - 2; ++j) {
                if (!lines[j].isEmpty()) {
                    log.errors << decoded(lines[j]);
                }
            }
            log.problem.clear();
            return true;
        }
    }
    return false;
}

int findDescription(const Lines& lines, int from, int to) {
    for (int i = to - 1; i > from; --i) {
        if (lines[i].startsWith(QLatin1String("CPU Description:     "))) {
            return i;
        }
    }
    return -1;
}

// The closing lines: [Returning exit code N] "" Time_Exec Core*Time. Returns false when they are
// not there, so a result block that the program never finished is not taken.
bool readClosing(const Lines& lines, int psLine, ParsedLog& log) {
    int i = psLine + 1;
    if (i < lines.size()) {
        log.exitValue = integerAfter(QLatin1String("Returning exit code "), lines[i]);
        if (log.exitValue) {
            ++i;
        }
    }
    if (i + 2 >= lines.size() || !lines[i].isEmpty()) {
        return false;
    }
    static const QRegularExpression time(QStringLiteral("^Time_Exec: (-?\\d+) sec$"));
    const QRegularExpressionMatch match = matchLine(time, lines[i + 1]);
    if (!match.hasMatch() || !integerAfter(QLatin1String("Core*Time: "), lines[i + 2])) {
        return false;
    }
    bool ok = false;
    log.timeExecS = match.captured(1).toLongLong(&ok);
    if (!ok) {
        log.timeExecS = std::numeric_limits<qint64>::max();
    }
    return true;
}

// The closing values in range; false with log.problem otherwise.
bool closingInRange(ParsedLog& log) {
    return (!log.exitValue ||
            inRange("Returning exit code", *log.exitValue, kMinExitValue, kMaxExitValue, log)) &&
           inRange("Time_Exec", *log.timeExecS, 0, kMaxDurationS, log);
}

// Reads the result block that ends at psLine and follows the run's "CPU PS Test..." line at
// testLine; false (with log.problem) when it is incomplete.
bool readResultBlock(const Lines& lines, int testLine, int psLine, ParsedLog& log) {
    static const QRegularExpression total(QStringLiteral("^=totalSpeed ") + kNumber +
                                          QStringLiteral(" PS \\(Average per core: ") + kNumber +
                                          QStringLiteral(" PS\\)$"));
    static const QRegularExpression adding(
        QStringLiteral("^adding thread (\\d+): ") + kNumber +
        QStringLiteral("PS \\((-?[\\d ]+) ms, (\\d+) loops\\)$"));
    if (psLine - 1 <= testLine || !matchLine(total, lines[psLine - 1]).hasMatch()) {
        log.problem = QStringLiteral("no \"=totalSpeed\" line before \"PS_Result\"");
        return false;
    }
    // "adding thread" lines run from the last worker back to worker 0.
    int first = psLine - 1;
    QVector<double> ps;
    QVector<qint64> ms;
    QVector<int> passes;
    qint64 expected = -1;
    while (first - 1 > testLine) {
        const QRegularExpressionMatch match = matchLine(adding, lines[first - 1]);
        if (!match.hasMatch()) {
            break;
        }
        bool ok = false;
        qint64 index = match.captured(1).toLongLong(&ok);
        if (!inRange("adding thread", ok ? index : std::numeric_limits<qint64>::max(), 0,
                     kMaxCpus - 1, log)) {
            return false;
        }
        if (expected >= 0 && index != expected) {
            break;
        }
        const std::optional<double> threadPs = score("adding thread", match.captured(2), log);
        qint64 threadMs = match.captured(3).remove(QLatin1Char(' ')).toLongLong(&ok);
        if (!threadPs ||
            !inRange("adding thread ms", ok ? threadMs : -1, 0, kMaxDurationS * 1000, log)) {
            return false;
        }
        const int loops = match.captured(4).toInt(&ok);
        if (!inRange("adding thread loops", ok ? loops : -1, 0, std::numeric_limits<int>::max(),
                     log)) {
            return false;
        }
        ps.prepend(*threadPs);
        ms.prepend(threadMs);
        passes.prepend(loops);
        --first;
        if (index == 0) {
            expected = -2;
            break;
        }
        expected = index - 1;
    }
    if (ps.isEmpty() || expected != -2) {
        log.problem = QStringLiteral("the \"adding thread\" lines do not run down to thread 0");
        return false;
    }
    // The run's own "CPU PS Test..." and "Creating N threads" lines; quiet runs put the report
    // between them and the first "adding thread".
    static const QRegularExpression creatingLine(QStringLiteral("^Creating (\\d+) threads$"));
    const int creating = testLine + 1;
    const QRegularExpressionMatch created =
        creating < first ? matchLine(creatingLine, lines[creating]) : QRegularExpressionMatch();
    if (!created.hasMatch() || first - creating > kMaxReportLines) {
        log.problem = QStringLiteral("no \"CPU PS Test...\" and \"Creating N threads\" lines");
        return false;
    }
    bool ok = false;
    const qint64 createdThreads = created.captured(1).toLongLong(&ok);
    if (!ok || createdThreads != ps.size()) {
        log.problem = QStringLiteral("corebench created %1 threads but added %2")
                          .arg(created.captured(1).left(40))
                          .arg(ps.size());
        return false;
    }
    log.createdThreads = ps.size();
    log.threadPs = ps;
    log.threadMs = ms;
    log.threadPasses = passes;
    log.verbose = creating == first - 1;
    if (!log.verbose) {
        const int description = findDescription(lines, creating, first);
        return description < 0 || readReport(lines, description, first, log);
    }
    // Verbose runs print each run's own "CPU PS Test..." and end it with "psTest: PS_Result:";
    // the result text follows the last run directly, and each run the one before it.
    static const QRegularExpression runResult(QStringLiteral("^psTest: PS_Result: ") + kNumber +
                                              QLatin1Char('$'));
    int runEnd = testLine - 1;
    int lastRunStart = -1;
    while (runEnd >= 0) {
        const QRegularExpressionMatch match = matchLine(runResult, lines[runEnd]);
        if (!match.hasMatch()) {
            break;
        }
        int start = runEnd - 1;
        while (start >= 0 && lines[start] != kCpuPsTest) {
            --start;
        }
        if (start < 0) {
            break;
        }
        const std::optional<double> runPs = score("psTest: PS_Result", match.captured(1), log);
        if (!runPs) {
            return false;
        }
        log.verboseRunPs.prepend(*runPs);
        if (lastRunStart < 0) {
            lastRunStart = start;
        }
        runEnd = start - 1;
    }
    if (lastRunStart >= 0) {
        const int description = findDescription(lines, lastRunStart, testLine);
        return description < 0 || readReport(lines, description, testLine, log);
    }
    return true;
}

}  // namespace

ParsedLog parseCorebenchLog(const QByteArray& output) {
    ParsedLog log;
    if (std::all_of(output.begin(), output.end(),
                    [](char c) { return isspace(static_cast<unsigned char>(c)); })) {
        log.problem = QStringLiteral("corebench printed nothing");
        return log;
    }
    const Lines lines(output);
    if (!readSummary(lines, log)) {
        return log;
    }
    // The test's result follows the run's own "CPU PS Test...", the last one in the log: a
    // result block in the filler before it is not the test's, even when the run was cut off.
    int testLine = lines.size() - 1;
    while (testLine >= 0 && lines[testLine] != kCpuPsTest) {
        --testLine;
    }
    static const QRegularExpression psResult(QStringLiteral("^PS_Result: ") + kNumber +
                                             QLatin1Char('$'));
    for (int i = lines.size() - 1; testLine >= 0 && i > testLine; --i) {
        if (!lines[i].startsWith(QLatin1String("PS_Result: "))) {
            continue;
        }
        ParsedLog candidate = log;
        if (!readClosing(lines, i, candidate)) {
            // A result block that is not closed is the test's all the same: a look-alike block
            // before it must not stand in for it. A lone result line is not one.
            if (lines[i - 1].startsWith(QLatin1String("=totalSpeed "))) {
                log.problem = QStringLiteral(
                    "the result is not followed by the \"Time_Exec\" and \"Core*Time\" lines");
                return log;
            }
            continue;
        }
        const QRegularExpressionMatch match = matchLine(psResult, lines[i]);
        if (!match.hasMatch()) {
            candidate.problem = QStringLiteral("the \"PS_Result\" line holds no number");
            return candidate;
        }
        const std::optional<double> ps = score("PS_Result", match.captured(1), candidate);
        if (ps && closingInRange(candidate)) {
            candidate.psResult = *ps;
            candidate.ok = readResultBlock(lines, testLine, i, candidate);
        }
        return candidate;
    }
    if (testLine < 0) {
        log.problem =
            lines.indexOf(QLatin1String("Usage: ")) >= 0
                ? QStringLiteral("corebench printed its usage text: the test name is unknown")
                : QStringLiteral("no \"CPU PS Test...\" line: the test did not start");
    } else {
        log.problem =
            QStringLiteral("no complete result (\"PS_Result\" followed by \"Time_Exec\")");
    }
    return log;
}
