// The parser on output captured from the built corebench, and on that output changed the way
// logs of the farm change: filler with look-alike lines, cut-off runs, other exit codes.

#include "log_parser.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "fleet_test_support.h"
#include "test_names.h"

namespace {

TEST(LogParser, ReadsCapturedRuns) {
    // File, thread PS, PS_Result, exit value, Time_Exec; only the AllVerbose run has two threads.
    const std::tuple<const char*, QVector<double>, double, std::optional<qint64>, qint64> cases[] =
        {
            {"singlespeed-plain.log", {10.753}, 21.505, std::nullopt, 6},
            {"singlespeed-divider1-filler.log", {12.244}, 24.488, 24, 6},
            {"singlespeed-divider-negative.log", {12.306}, 24.612, -24, 5},
            // A zero divider prints the minimum int; the shell sees status 0.
            {"allverbose-divider0-houdini.log", {2.725, 2.75}, 5.475, -2147483648LL, 239},
        };
    for (const auto& [file, threadPs, psResult, exitValue, timeExecS] : cases) {
        SCOPED_TRACE(file);
        const ParsedLog log = parseCorebenchLog(capturedLog(file));
        ASSERT_TRUE(log.ok) << log.problem.toStdString();
        EXPECT_EQ(log.threadPs, threadPs);
        EXPECT_DOUBLE_EQ(log.psResult, psResult);
        EXPECT_EQ(log.exitValue, exitValue);
        EXPECT_EQ(log.timeExecS, timeExecS);
        // The test as inferred from the log alone.
        const bool verbose = threadPs.size() == 2;
        EXPECT_EQ(log.verbose, verbose);
        EXPECT_EQ(inferTestName(log), verbose ? "AllVerbose" : "SingleSpeed");
        // The CPU report, the same block in every log, is pinned field by field in the record.
        EXPECT_EQ(log.cpuDescription, QStringLiteral("Intel(R) Xeon(R) Processor"));
        EXPECT_EQ(log.summaryThreads, 2);
    }
}

QByteArray replaced(QByteArray text, const QByteArray& before, const QByteArray& after) {
    EXPECT_TRUE(text.contains(before)) << before.constData();
    return text.replace(before, after);
}

TEST(LogParser, ReadsChangedCapturedOutput) {
    const QByteArray real = capturedLog("singlespeed-divider1.log");
    // Lines that look like corebench's, as a render log or a careless wrapper might print them,
    // planted where the filler stands (right after the summary) and around the output.
    const QByteArray lookAlikes =
        "CPU PS Test...\nCreating 1 threads\nCPU Description:     Fake CPU 9000\n"
        "CPU Core Count:      64\nadding thread 0: 999.000PS (1 000 ms, 10 loops)\n"
        "=totalSpeed 999.000 PS (Average per core: 999.000 PS)\nPS_Result: 999.000\n"
        "Returning exit code 99\n\nTime_Exec: 1 sec\nCore*Time: 2\nSpecificOperSys: fake\n";
    const std::pair<QByteArray, std::optional<qint64>> cases[] = {
        {"job 4711 on node17\nOperatingSystem: Linux\n" +
             replaced(real, "MAC\n", "MAC\n" + lookAlikes) + "job done\nPS_Result: 1.000\n",
         22},
        // The status is capped at 255; the record keeps what corebench printed.
        {replaced(real, "code 22\n", "code 300\n"), 300},
        {replaced(real, "code 22\n", "code -2147483648\n"), -2147483648LL},
        {replaced(real, "Returning exit code 22\n", ""), std::nullopt},
        {QByteArray(real).replace("\n", "\r\n"), 22},
        // No errors block where every query of the system succeeded.
        {replaced(real,
                  "------------------------------\nERRORS:\nNo such file or directory\n\n"
                  "------------------------------\n\n",
                  ""),
         22},
        // A NUL byte in the filler hides nothing after it.
        {replaced(real, "MAC\n", QByteArray("MAC\nfiller\0more\n", 16)), 22},
    };
    int row = 0;
    for (const auto& [text, exitValue] : cases) {
        SCOPED_TRACE(row++);
        const ParsedLog log = parseCorebenchLog(text);
        ASSERT_TRUE(log.ok) << log.problem.toStdString();
        EXPECT_EQ(log.threadPs, QVector<double>{11.222});
        EXPECT_DOUBLE_EQ(log.psResult, 22.444);
        EXPECT_EQ(log.exitValue, exitValue);
        EXPECT_EQ(log.cpuDescription, QStringLiteral("Intel(R) Xeon(R) Processor"));
        EXPECT_EQ(log.logicalCpus, 2);
        EXPECT_EQ(log.os, QStringLiteral("debian12"));
        EXPECT_EQ(log.ramGib, 24);
    }
}

TEST(LogParser, ReadsLatin1) {
    const QByteArray text = replaced(capturedLog("singlespeed-divider1.log"),
                                     "Intel(R) Xeon(R) Processor", "Proz\xe9ssor");
    EXPECT_EQ(parseCorebenchLog(text).cpuDescription, QString::fromUtf8("Proz\xc3\xa9ssor"));
}

TEST(LogParser, IncompleteOutputNamesWhatIsMissing) {
    const QByteArray real = capturedLog("singlespeed-divider1.log");
    // A run cut off before the test has no result, even with result-like lines above it.
    QByteArray cutOff = real.left(real.indexOf("CPU PS Test..."));
    cutOff.replace("OperatingSystem: MAC\n", "OperatingSystem: MAC\nPS_Result: 999.000\n");
    const std::pair<QByteArray, const char*> cases[] = {
        {QByteArray(), "printed nothing"},
        {"\n\n", "printed nothing"},
        {"12:00.00\nOperatingSystem: MAC\nUsage: \ncorebench [testName]\n", "usage text"},
        {real.left(real.indexOf("Time_Exec")), "Time_Exec"},
        {replaced(real, "Core*Time: 12424\n", ""), "Core*Time"},
        {replaced(real, "------------------------------\nERRORS:", "ERRORS:"), "ERRORS:"},
        {cutOff, ""},
        // An unreadable exit line breaks the closing lines.
        {replaced(real, "code 22\n", "code twelve\n"), ""},
        {replaced(real, "=totalSpeed", "=totalspeed"), "=totalSpeed"},
        {replaced(real, "adding thread 0:", "adding thread 1:"), "thread 0"},
        {replaced(real, "Creating 1 threads", "Creating 2 threads"),
         "created 2 threads but added 1"},
        {replaced(real, "CPU PS Test...", "CPU PS Test"), "CPU PS Test"},
        // A whole result block in the filler is not the run's, which was cut off.
        {replaced(real, "MAC\n", "MAC\n" + real.mid(real.indexOf("CPU PS Test...")))
             .left(real.size() + real.indexOf("CPU PS Test...") + 20),
         "no complete result"},
        // Numbers no machine prints.
        {replaced(real, "PS_Result: 22.444", "PS_Result: " + QByteArray(400, '9')), "PS_Result"},
        {replaced(real, "PS_Result: 22.444", "PS_Result: -22.444"), "PS_Result -22.444"},
        {replaced(real, "0: 11.222PS", "0: -11.222PS"), "adding thread -11.222"},
        {replaced(real, "Count:      2", "Count:      99999999999"), "CPU Core Count 99999999999"},
        {replaced(real, "thread 0:", "thread 4294967296:"), "adding thread 4294967296"},
        {replaced(real, "Time_Exec: 6", "Time_Exec: -99999999999"), "Time_Exec -99999999999"},
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
    EXPECT_EQ(runsOfTest(inferTestName(ten)), 10);
}

TEST(TestNames, MatchLikeCorebenchAndQuietSinglesGoByDuration) {
    // Any case, but nothing around the name (FleetRun.ImportsExistingLogs has the rest).
    EXPECT_EQ(canonicalTestName("single10verbose"), QStringLiteral("Single10Verbose"));
    EXPECT_EQ(canonicalTestName("Single5 "), QString());
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
