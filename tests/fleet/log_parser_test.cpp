// The parser on output captured from the built corebench, and on that output changed the way
// logs of the farm change: filler with look-alike lines, cut-off runs, other exit codes.

#include "log_parser.h"

#include <gtest/gtest.h>

#include <optional>

#include "fleet_test_support.h"
#include "test_names.h"

namespace {

TEST(LogParser, ReadsCapturedRuns) {
    struct Expected {
        const char* file;
        QVector<double> threadPs;
        double psResult;
        std::optional<qint64> exitValue;
        qint64 timeExecS;
        const char* test;  // as inferred from the log alone
    };
    const Expected cases[] = {
        {"singlespeed-divider1.log", {11.222}, 22.444, 22, 6, "SingleSpeed"},
        {"singlespeed-plain.log", {10.753}, 21.505, std::nullopt, 6, "SingleSpeed"},
        {"singlespeed-divider1-filler.log", {12.244}, 24.488, 24, 6, "SingleSpeed"},
        {"singlespeed-divider-negative.log", {12.306}, 24.612, -24, 5, "SingleSpeed"},
        // A zero divider prints the minimum int; the shell sees status 0.
        {"allverbose-divider0-houdini.log",
         {2.725, 2.750},
         5.475,
         -2147483648LL,
         239,
         "AllVerbose"},
    };
    for (const Expected& expected : cases) {
        SCOPED_TRACE(expected.file);
        const ParsedLog log = parseCorebenchLog(capturedLog(expected.file));
        ASSERT_TRUE(log.ok) << log.problem.toStdString();
        EXPECT_EQ(log.threadPs, expected.threadPs);
        EXPECT_DOUBLE_EQ(log.psResult, expected.psResult);
        EXPECT_EQ(log.exitValue, expected.exitValue);
        EXPECT_EQ(log.verbose, expected.threadPs.size() == 2);
        EXPECT_EQ(log.timeExecS, expected.timeExecS);
        // The CPU report, the same block in every log, is pinned field by field in the record.
        EXPECT_EQ(log.cpuDescription, QStringLiteral("Intel(R) Xeon(R) Processor"));
        EXPECT_EQ(log.summaryThreads, 2);
        EXPECT_EQ(inferTestName(log), QLatin1String(expected.test));
    }
}

QByteArray replaced(QByteArray text, const char* before, const char* after) {
    EXPECT_TRUE(text.contains(before)) << before;
    return text.replace(before, after);
}

TEST(LogParser, FillerAndJobScriptLookAlikesAreNeverResults) {
    // Lines that look like corebench's, as a render log or a careless wrapper might print them,
    // planted where the filler stands (right after the summary) and around the output.
    const QByteArray lookAlikes =
        "CPU PS Test...\nCreating 1 threads\nCPU Description:     Fake CPU 9000\n"
        "CPU Core Count:      64\nadding thread 0: 999.000PS (1 000 ms, 10 loops)\n"
        "=totalSpeed 999.000 PS (Average per core: 999.000 PS)\nPS_Result: 999.000\n"
        "Returning exit code 99\n\nTime_Exec: 1 sec\nCore*Time: 2\n";
    const QByteArray real = capturedLog("singlespeed-divider1-filler.log");
    const QByteArray planted =
        "job 4711 on node17\nOperatingSystem: Linux\n" +
        replaced(real, "OperatingSystem: MAC\n",
                 ("OperatingSystem: MAC\n" + lookAlikes + "SpecificOperSys: fake\n").constData()) +
        "job done\nPS_Result: 1.000\n";
    const ParsedLog log = parseCorebenchLog(planted);
    ASSERT_TRUE(log.ok) << log.problem.toStdString();
    EXPECT_EQ(log.threadPs, QVector<double>{12.244});
    EXPECT_DOUBLE_EQ(log.psResult, 24.488);
    EXPECT_EQ(log.exitValue, 24);
    EXPECT_EQ(log.cpuDescription, QStringLiteral("Intel(R) Xeon(R) Processor"));
    EXPECT_EQ(log.logicalCpus, 2);
    EXPECT_EQ(log.os, QStringLiteral("debian12"));
    EXPECT_EQ(log.ramGib, 24);

    // A run cut off after the filler has no result, even with result-like lines above it.
    QByteArray cutOff = real.left(real.indexOf("CPU PS Test..."));
    cutOff.replace("OperatingSystem: MAC\n", "OperatingSystem: MAC\nPS_Result: 999.000\n");
    EXPECT_FALSE(parseCorebenchLog(cutOff).ok);
}

TEST(LogParser, ExitCodeEdgeCases) {
    struct Case {
        const char* line;
        bool ok;  // an unreadable exit line breaks the closing lines: the run is not complete
        std::optional<qint64> value;
    };
    const Case cases[] = {
        // The status is capped at 255; the record keeps what corebench printed.
        {"Returning exit code 300\n", true, 300},
        {"Returning exit code -2147483648\n", true, -2147483648LL},
        {"", true, std::nullopt},
        {"Returning exit code twelve\n", false, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        const ParsedLog log = parseCorebenchLog(
            replaced(capturedLog("singlespeed-divider1.log"), "Returning exit code 22\n", c.line));
        ASSERT_EQ(log.ok, c.ok) << log.problem.toStdString();
        if (c.ok) {
            EXPECT_EQ(log.exitValue, c.value);
            EXPECT_DOUBLE_EQ(log.psResult, 22.444);
        }
    }
}

TEST(LogParser, CarriageReturnsAndLatin1AreRead) {
    QByteArray text = capturedLog("singlespeed-divider1.log");
    text.replace("\n", "\r\n");
    text.replace("Intel(R) Xeon(R) Processor", "Proz\xe9ssor");  // Latin-1, not UTF-8
    const ParsedLog log = parseCorebenchLog(text);
    ASSERT_TRUE(log.ok) << log.problem.toStdString();
    EXPECT_EQ(log.cpuDescription, QString::fromUtf8("Proz\xc3\xa9ssor"));
    EXPECT_EQ(log.exitValue, 22);
}

TEST(LogParser, IncompleteOutputNamesWhatIsMissing) {
    const QByteArray real = capturedLog("singlespeed-divider1.log");
    const std::pair<QByteArray, const char*> cases[] = {
        {QByteArray(), "printed nothing"},
        {"\n\n", "printed nothing"},
        {"12:00.00\nOperatingSystem: MAC\nUsage: \ncorebench [testName]\n", "usage text"},
        {real.left(real.indexOf("Time_Exec")), "no complete result"},
        {replaced(real, "=totalSpeed", "=totalspeed"), "=totalSpeed"},
        {replaced(real, "adding thread 0:", "adding thread 1:"), "thread 0"},
        {replaced(real, "Creating 1 threads", "Creating 2 threads"),
         "created 2 threads but added 1"},
        {replaced(real, "CPU PS Test...", "CPU PS Test"), "CPU PS Test"},
    };
    for (const auto& [text, problem] : cases) {
        const ParsedLog log = parseCorebenchLog(text);
        EXPECT_FALSE(log.ok) << problem;
        EXPECT_TRUE(log.problem.contains(QLatin1String(problem))) << log.problem.toStdString();
    }
}

// A verbose repeated test, put together from the lines of the captured verbose run: each run
// prints its own block and its "psTest: PS_Result:", then the driver prints the last result text.
QByteArray verboseRuns(const QVector<double>& runs) {
    const QByteArray real = capturedLog("allverbose-divider0-houdini.log");
    const int start = real.indexOf("CPU PS Test...");
    const QByteArray runBody = real.mid(start, real.indexOf("psTest: PS_Result:") - start);
    QByteArray text = real.left(start);
    for (const double ps : runs) {
        text += runBody + "psTest: PS_Result: " + QByteArray::number(ps, 'f', 3) + "\n";
    }
    return text +
           "CPU PS Test...\nCreating 1 threads\nadding thread 0: 2.725PS (219 439 ms, 130 loops)\n"
           "=totalSpeed 2.725 PS (Average per core: 2.725 PS)\nPS_Result: " +
           QByteArray::number(runs.last(), 'f', 3) +
           "\n\nTime_Exec: 1200 sec\nCore*Time: 2400000\n12:00.00\n";
}

TEST(LogParser, VerboseRepeatedRunsEachCount) {
    const ParsedLog five = parseCorebenchLog(verboseRuns({5.1, 5.2, 5.3, 5.4, 5.25}));
    ASSERT_TRUE(five.ok) << five.problem.toStdString();
    EXPECT_EQ(five.verboseRunPs, (QVector<double>{5.1, 5.2, 5.3, 5.4, 5.25}));
    EXPECT_EQ(five.threadPs, QVector<double>{2.725});
    EXPECT_EQ(five.cpuDescription, QStringLiteral("Intel(R) Xeon(R) Processor"));
    EXPECT_EQ(inferTestName(five), QStringLiteral("Single5Verbose"));
    const ParsedLog ten = parseCorebenchLog(verboseRuns(QVector<double>(10, 4.0)));
    EXPECT_EQ(ten.verboseRunPs.size(), 10);
    EXPECT_EQ(inferTestName(ten), QStringLiteral("Single10Verbose"));
}

TEST(TestNames, MatchLikeCorebench) {
    // Any case, nothing around the name, and the filler texts are not tests.
    EXPECT_EQ(canonicalTestName("single10verbose"), QStringLiteral("Single10Verbose"));
    EXPECT_EQ(runsOfTest(QStringLiteral("Single10Verbose")), 10);
    EXPECT_EQ(canonicalTestName(QString()), QStringLiteral("All"));
    EXPECT_EQ(canonicalTestName("Single5 "), QString());
    EXPECT_EQ(canonicalTestName("LoremIpsum"), QString());
}

TEST(TestNames, QuietSingleTestsAreToldApartByDuration) {
    // A quiet Single, Single5 and Single10 print the same lines; Time_Exec covers every run.
    ParsedLog log = parseCorebenchLog(capturedLog("singlespeed-divider1.log"));
    ASSERT_TRUE(log.ok);
    log.threadPasses = {130};
    log.threadMs = {46800};
    for (const auto& [timeExecS, test] :
         {std::pair<qint64, const char*>{64, "Single"}, {320, "Single5"}, {640, "Single10"}}) {
        log.timeExecS = timeExecS;
        EXPECT_EQ(inferTestName(log), QLatin1String(test)) << timeExecS;
    }
    log.threadPs = {12.0, 12.1};
    EXPECT_EQ(inferTestName(log), QStringLiteral("All"));
}

}  // namespace
