#include "log_parser.h"

#include <QRegularExpression>
#include <algorithm>

namespace {

// The report is at most 5000 characters, so it never spans more lines than this.
constexpr int kMaxReportLines = 2600;

const QString kCpuPsTest = QStringLiteral("CPU PS Test...");
const QString kRule = QString(30, QLatin1Char('-'));

QStringList splitLines(const QByteArray& output) {
    // Result texts are Latin-1, the verbose report is printed as it was gathered (UTF-8 where the
    // OS said so); logs that went through other tools may carry carriage returns.
    QString text = QString::fromUtf8(output);
    if (text.contains(QChar::ReplacementCharacter)) {
        text = QString::fromLatin1(output);
    }
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines) {
        if (line.endsWith(QLatin1Char('\r'))) {
            line.chop(1);
        }
    }
    return lines;
}

QRegularExpressionMatch matchWhole(const QString& pattern, const QString& line) {
    const QRegularExpression expression(QLatin1Char('^') + pattern + QLatin1Char('$'));
    return expression.match(line);
}

const QString kNumber = QStringLiteral("(-?\\d+(?:\\.\\d+)?)");

std::optional<qint64> integerAfter(const QString& prefix, const QString& line) {
    const QRegularExpressionMatch match =
        matchWhole(QRegularExpression::escape(prefix) + QStringLiteral("(-?\\d+)"), line);
    bool ok = false;
    const qint64 value = match.captured(1).toLongLong(&ok);
    return match.hasMatch() && ok ? std::optional<qint64>(value) : std::nullopt;
}

std::optional<qint64> knownMhz(const QString& prefix, const QString& line) {
    const std::optional<qint64> value = integerAfter(prefix, line);
    // corebench prints -1 for a clock it could not read.
    return value && *value >= 0 ? value : std::nullopt;
}

// The summary corebench prints before anything else, ending in "OperatingSystem: MAC"; filler
// follows it, so only the first such block counts. A job script may have printed lines before it.
void readSummary(const QStringList& lines, ParsedLog& log) {
    const int end = lines.indexOf(QStringLiteral("OperatingSystem: MAC"));
    for (int i = std::max(0, end - 4); i < end; ++i) {
        const QString& line = lines[i];
        if (line.startsWith(QLatin1String("SpecificOperSys: "))) {
            log.os = line.mid(17);
        } else if (const auto threads = integerAfter(QStringLiteral("NumberOfThreads: "), line)) {
            log.summaryThreads = static_cast<int>(*threads);
        } else if (const auto ram = integerAfter(QStringLiteral("RAM installed: "), line)) {
            log.ramGib = *ram;
        }
    }
}

// Reads the report that starts at its "CPU Description:" line, and the errors block right
// before it; false (with log.problem) when that block is not whole.
bool readReport(const QStringList& lines, int description, int end, ParsedLog& log) {
    log.cpuDescription = lines[description].mid(21);
    for (int i = description + 1; i < end; ++i) {
        const QString& line = lines[i];
        if (const auto value = integerAfter(QStringLiteral("CPU Core Count:      "), line)) {
            log.logicalCpus = static_cast<int>(*value);
        } else if (const auto hw = integerAfter(QStringLiteral("CPU Core Count (HW): "), line)) {
            log.physicalCpus = static_cast<int>(*hw);
        } else if (line == QLatin1String("CPU Hyperthreading:  Enabled")) {
            log.hyperthreading = true;
        } else if (line == QLatin1String("CPU Hyperthreading:  Disabled")) {
            log.hyperthreading = false;
        } else if (line.startsWith(QLatin1String("CPU MHz Max:      "))) {
            log.mhzMax = knownMhz(QStringLiteral("CPU MHz Max:      "), line);
        } else if (line.startsWith(QLatin1String("CPU MHz Current:  "))) {
            log.mhzCurrent = knownMhz(QStringLiteral("CPU MHz Current:  "), line);
        }
    }
    // "------", "ERRORS:", the error text, "------", a blank line, then the description.
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
                    log.errors << lines[j];
                }
            }
            log.problem.clear();
            return true;
        }
    }
    return false;
}

int findDescription(const QStringList& lines, int from, int to) {
    for (int i = to - 1; i > from; --i) {
        if (lines[i].startsWith(QLatin1String("CPU Description:     "))) {
            return i;
        }
    }
    return -1;
}

// The closing lines: [Returning exit code N] "" Time_Exec Core*Time. Returns false when they are
// not there, so a result block that the program never finished is not taken.
bool readClosing(const QStringList& lines, int psLine, ParsedLog& log) {
    int i = psLine + 1;
    if (i < lines.size()) {
        log.exitValue = integerAfter(QStringLiteral("Returning exit code "), lines[i]);
        if (log.exitValue) {
            ++i;
        }
    }
    if (i + 2 >= lines.size() || !lines[i].isEmpty()) {
        return false;
    }
    const QRegularExpressionMatch time =
        matchWhole(QStringLiteral("Time_Exec: (-?\\d+) sec"), lines[i + 1]);
    if (!time.hasMatch() || !integerAfter(QStringLiteral("Core*Time: "), lines[i + 2])) {
        return false;
    }
    log.timeExecS = time.captured(1).toLongLong();
    return true;
}

// Reads the result block that ends at psLine; false (with log.problem) when it is incomplete.
bool readResultBlock(const QStringList& lines, int psLine, ParsedLog& log) {
    static const QRegularExpression total(QStringLiteral("^=totalSpeed ") + kNumber +
                                          QStringLiteral(" PS \\(Average per core: ") + kNumber +
                                          QStringLiteral(" PS\\)$"));
    static const QRegularExpression adding(
        QStringLiteral("^adding thread (\\d+): ") + kNumber +
        QStringLiteral("PS \\((-?[\\d ]+) ms, (\\d+) loops\\)$"));
    if (psLine < 1 || !total.match(lines[psLine - 1]).hasMatch()) {
        log.problem = QStringLiteral("no \"=totalSpeed\" line before \"PS_Result\"");
        return false;
    }
    // "adding thread" lines run from the last worker back to worker 0.
    int first = psLine - 1;
    QVector<double> ps;
    QVector<qint64> ms;
    QVector<int> passes;
    int expected = -1;
    while (first - 1 >= 0) {
        const QRegularExpressionMatch match = adding.match(lines[first - 1]);
        if (!match.hasMatch()) {
            break;
        }
        const int index = match.captured(1).toInt();
        if (expected >= 0 && index != expected) {
            break;
        }
        ps.prepend(match.captured(2).toDouble());
        ms.prepend(match.captured(3).remove(QLatin1Char(' ')).toLongLong());
        passes.prepend(match.captured(4).toInt());
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
    // Quiet runs put the report between "Creating N threads" and the first "adding thread".
    int creating = -1;
    for (int i = first - 1; i >= 1 && i >= first - kMaxReportLines; --i) {
        if (lines[i - 1] == kCpuPsTest && lines[i].startsWith(QLatin1String("Creating "))) {
            creating = i;
            break;
        }
    }
    const QRegularExpressionMatch created =
        creating < 0 ? QRegularExpressionMatch()
                     : matchWhole(QStringLiteral("Creating (\\d+) threads"), lines[creating]);
    if (!created.hasMatch()) {
        log.problem = QStringLiteral("no \"CPU PS Test...\" and \"Creating N threads\" lines");
        return false;
    }
    log.createdThreads = created.captured(1).toInt();
    if (log.createdThreads != ps.size()) {
        log.problem = QStringLiteral("corebench created %1 threads but added %2")
                          .arg(log.createdThreads)
                          .arg(ps.size());
        return false;
    }
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
    int runEnd = creating - 2;
    int lastRunStart = -1;
    while (runEnd >= 0) {
        const QRegularExpressionMatch match = runResult.match(lines[runEnd]);
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
        log.verboseRunPs.prepend(match.captured(1).toDouble());
        if (lastRunStart < 0) {
            lastRunStart = start;
        }
        runEnd = start - 1;
    }
    if (lastRunStart >= 0) {
        const int description = findDescription(lines, lastRunStart, creating - 1);
        return description < 0 || readReport(lines, description, creating - 1, log);
    }
    return true;
}

}  // namespace

ParsedLog parseCorebenchLog(const QByteArray& output) {
    ParsedLog log;
    if (output.trimmed().isEmpty()) {
        log.problem = QStringLiteral("corebench printed nothing");
        return log;
    }
    const QStringList lines = splitLines(output);
    readSummary(lines, log);
    // The last complete result block is the test's: filler comes before the test.
    static const QRegularExpression psResult(QStringLiteral("^PS_Result: ") + kNumber +
                                             QLatin1Char('$'));
    for (int i = lines.size() - 1; i >= 0; --i) {
        const QRegularExpressionMatch match = psResult.match(lines[i]);
        if (!match.hasMatch()) {
            continue;
        }
        ParsedLog candidate = log;
        if (!readClosing(lines, i, candidate)) {
            // A result block that is not closed is the test's all the same: a look-alike block
            // in the filler before it must not stand in for it. A lone result line is not one.
            if (i >= 1 && lines[i - 1].startsWith(QLatin1String("=totalSpeed "))) {
                log.problem = QStringLiteral(
                    "the result is not followed by the \"Time_Exec\" and \"Core*Time\" lines");
                return log;
            }
            continue;
        }
        candidate.psResult = match.captured(1).toDouble();
        candidate.ok = readResultBlock(lines, i, candidate);
        return candidate;
    }
    log.problem =
        lines.contains(QStringLiteral("Usage: "))
            ? QStringLiteral("corebench printed its usage text: the test name is unknown")
            : QStringLiteral("no complete result (\"PS_Result\" followed by \"Time_Exec\")");
    return log;
}
