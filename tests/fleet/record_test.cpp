// Records: the schema-1 keys with nulls kept, reading back, and every way a record is rejected.

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <tuple>

#include "fleet_test_support.h"
#include "log_parser.h"
#include "record_files.h"
#include "record_from_log.h"
#include "record_json.h"
#include "record_names.h"

namespace {

RecordOrigin importOrigin(const char* test) {
    return {"node17", test,         QDateTime(QDate(2026, 11, 23), QTime(17, 13, 0), Qt::UTC),
            6.0,      std::nullopt, std::nullopt,
            "import"};
}

TEST(Record, HasEveryKeyWithNullsForMissingValues) {
    const ParsedLog log = parseCorebenchLog(capturedLog("allverbose-divider0-houdini.log"));
    ASSERT_TRUE(log.ok);
    QString warning;
    const QByteArray bytes =
        recordToBytes(recordFromLog(log, importOrigin("AllVerbose"), &warning));
    EXPECT_TRUE(warning.isEmpty());
    EXPECT_TRUE(bytes.endsWith("}\n"));
    const QJsonObject object = QJsonDocument::fromJson(bytes).object();
    EXPECT_EQ(object.size(), 21);
    expectJsonHas(object, R"({
        "schema": 1, "host": "node17", "test": "AllVerbose", "started_at": "2026-11-23T17:13:00Z",
        "duration_s": 6, "threads": 2, "thread_ps": [2.725, 2.75], "ps_result": 5.475,
        "exit_value": -2147483648, "status": null, "cpu_model": "Intel(R) Xeon(R) Processor",
        "logical_cpus": 2, "physical_cpus": 2, "hyperthreading": false, "mhz_current": 2600,
        "mhz_max": null, "ram_gib": 24, "os": "debian12", "errors": ["No such file or directory"],
        "corebench_sha256": null, "source": "import"})");
    QString error;
    const std::optional<Record> back = recordFromJson(bytes, &error);
    ASSERT_TRUE(back) << error.toStdString();
    EXPECT_EQ(recordToBytes(*back), bytes);
}

TEST(Record, RepeatedTestsHoldTheMeanOfTheirRuns) {
    ParsedLog log = parseCorebenchLog(capturedLog("singlespeed-divider1.log"));
    ASSERT_TRUE(log.ok);
    QString warning;
    // The quiet form prints only the last run: no mean can be had, and no wrong one is made up.
    const Record quiet = recordFromLog(log, importOrigin("Single5"), &warning);
    EXPECT_FALSE(quiet.psResult);
    EXPECT_TRUE(warning.contains(QLatin1String("only its last run"))) << warning.toStdString();

    // The verbose form prints every run; the mean is the driver's, in single precision and run
    // order: past 2^24 each 1 added is lost, where a double sum would give 3355444.
    log.verboseRunPs = {16777216.0, 1.0, 1.0, 1.0, 1.0};
    const Record verbose = recordFromLog(log, importOrigin("Single5Verbose"), &warning);
    EXPECT_TRUE(warning.isEmpty());
    ASSERT_TRUE(verbose.psResult);
    EXPECT_EQ(*verbose.psResult, 3355443.25);
    log.verboseRunPs = {5.1, 5.2};  // runs missing from the log
    EXPECT_FALSE(recordFromLog(log, importOrigin("Single5Verbose"), &warning).psResult);
}

// A valid record with key set to value.
QByteArray edited(const char* key, const QJsonValue& value) {
    const ParsedLog log = parseCorebenchLog(capturedLog("singlespeed-divider1.log"));
    QString warning;
    QJsonObject object = QJsonDocument::fromJson(recordToBytes(recordFromLog(
                                                     log, importOrigin("SingleSpeed"), &warning)))
                             .object();
    object.insert(QLatin1String(key), value);
    return QJsonDocument(object).toJson();
}

TEST(Record, RejectsInvalidRecordsWithTheReason) {
    const std::pair<QByteArray, const char*> cases[] = {
        // Not JSON, not an object and a missing key: FleetCompareProgram.BadInputIsNamed...
        {edited("schema", 2), "\"schema\" is not 1"},
        {edited("host", ""), "\"host\" is not a non-empty string"},
        {edited("ps_result", "22.4"), "\"ps_result\" is not a number"},
        {edited("threads", 1.5), "\"threads\" is not an integer"},
        {edited("thread_ps", QJsonArray{1.0, "x"}), "\"thread_ps\" is not an array of numbers"},
        {edited("threads", 2), "\"threads\" does not match"},
        {edited("hyperthreading", 1), "\"hyperthreading\" is not true, false or null"},
        {edited("errors", QJsonArray{1}), "\"errors\" is not an array of strings"},
        // One form of a time: another zone, none at all (read in the reader's zone), fractions.
        {edited("started_at", "yesterday"), "\"started_at\" is not a UTC time"},
        {edited("started_at", "2026-11-23T17:13:00"), "\"started_at\" is not a UTC time"},
        {edited("started_at", "2026-11-23T19:13:00+02:00"), "\"started_at\" is not a UTC time"},
        {edited("started_at", "2026-11-23T17:13:00.5Z"), "\"started_at\" is not a UTC time"},
        {edited("started_at", "2026-02-30T17:13:00Z"), "\"started_at\" is not a UTC time"},
        {edited("started_at", "2026-11-23T17:13:00Z\n"), "\"started_at\" is not a UTC time"},
        {edited("test", "Quick"), "\"test\" is not one of corebench's tests"},
        {edited("source", "guess"), "\"source\" is neither"},
        // Planted values: names that break CSV rows, scores that make a median infinite.
        {edited("host", "n1\nn2,drain"), "\"host\" is not a valid name"},
        {edited("test", "../All"), "\"test\" is not a valid name"},
        {edited("ps_result", 1e308), "\"ps_result\" is not a number or null from 0 to 1e+12"},
        {edited("thread_ps", QJsonArray{-1.0}), "\"thread_ps\" is not an array of numbers"},
        {edited("logical_cpus", 99999999999.0), "\"logical_cpus\" is not an integer"},
        {edited("status", 256), "\"status\" is not an integer or null from 0 to 255"},
    };
    for (const auto& [bytes, reason] : cases) {
        QString error;
        EXPECT_FALSE(recordFromJson(bytes, &error)) << reason;
        EXPECT_TRUE(error.contains(QLatin1String(reason)))
            << reason << " / " << error.toStdString();
    }
    QString error;
    EXPECT_TRUE(recordFromJson(edited("schema", 1), &error)) << error.toStdString();
    // A test is spelt as the test table spells it, whatever the record says.
    const std::optional<Record> lower = recordFromJson(edited("test", "singlespeed"), &error);
    ASSERT_TRUE(lower) << error.toStdString();
    EXPECT_EQ(lower->test, QStringLiteral("SingleSpeed"));
}

TEST(RecordNames, ValidNamesAndFileNames) {
    for (const auto& [name, valid] :
         std::initializer_list<std::pair<QString, bool>>{{"n1", true},
                                                         {"node-01.farm_x", true},
                                                         {QString(63, 'a'), true},
                                                         {QString(64, 'a'), false},
                                                         {"", false},
                                                         {"-rf", false},
                                                         {".hidden", false},
                                                         {"a/b", false},
                                                         {"a,b", false},
                                                         {"n1\nn2", false},
                                                         {"n1\n", false},
                                                         {"n\xc3\xa4", false}}) {
        EXPECT_EQ(isValidName(name), valid) << name.toStdString();
    }
    // A record's file name, as run and import give it; the summary and a log are none.
    for (const auto& [name, record] : std::initializer_list<std::pair<QString, bool>>{
             {"n1-All-20261123T171300Z.json", true},
             {"node-01.farm-my-SingleSpeed-20261123T171300Z-12.json", true},
             // Only a test of the table, as it spells it.
             {"node-01.farm-my-test-20261123T171300Z.json", false},
             {"n1-all-20261123T171300Z.json", false},
             {"n1-All-20261123T171300Z-1.json", false},
             {"n1-All-20261123T171300Z.json\n", false},
             {"n1-20261123T171300Z.json", false},
             {"n1-All-20261123T171300Z.log", false},
             {"-All-20261123T171300Z.json", false},
             {"corebench-summary.json", false}}) {
        EXPECT_EQ(isRecordFileName(name), record) << name.toStdString();
    }
    // A time in another zone is named in UTC.
    const QDateTime time(QDate(2026, 11, 23), QTime(17, 13, 0), Qt::UTC);
    EXPECT_EQ(recordBaseName("n", "All", time.toOffsetFromUtc(3600)),
              QStringLiteral("n-All-20261123T171300Z"));
    // What a file name says: host, test as the table spells it, start, and the number a second
    // run of the same second took.
    const std::tuple<const char*, const char*, int> names[] = {
        {"n1-a-All-20261123T171300Z.json", "n1-a", 1},
        {"n1-SingleSpeed-20261123T171300Z-2.json", "n1", 2},
        {"n1-All-20261123T171300Z-10.json", "n1", 10},
        {"n1-all-20261123T171300Z.json", nullptr, 1},    // not the table's spelling
        {"n1-Bogus-20261123T171300Z.json", nullptr, 1},  // not a test
        {"n1-All-20261131T171300Z.json", nullptr, 1},    // no such day
        {"n1-All-20261123T171300Z-1.json", nullptr, 1},  // never numbered so
        {"n1-All-20261123T171300Z.json\n", nullptr, 1},  // a line feed after it
        {"-All-20261123T171300Z.json", nullptr, 1},
    };
    for (const auto& [file, host, copy] : names) {
        const std::optional<RecordFileName> name = parseRecordFileName(file);
        EXPECT_EQ(name.has_value(), host != nullptr) << file;
        EXPECT_EQ(copyNumberOf(file), copy) << file;
        if (name && host != nullptr) {
            EXPECT_EQ(name->host, QLatin1String(host)) << file;
            EXPECT_EQ(name->startedAt, time) << file;
        }
    }
}

TEST(RecordNames, HostRecordPathsListOnlyThatHost) {
    QTemporaryDir dir;
    QDir().mkpath(dir.filePath("n1"));
    QDir().mkpath(dir.filePath("n1-a"));
    for (const char* file :
         {"n1/n1-All-20261123T171300Z.json", "n1/n1-All-20261123T171300Z.log",
          "n1-All-20251123T171300Z-2.json", "n1-a-All-20251123T171300Z.json",
          "n1-a/n1-a-All-20261123T171300Z.json", "n10-All-20251123T171300Z.json",
          "n1-Bogus-20251123T171300Z.json", "n1/corebench-summary.json", "n1/n1-All-copy.json"}) {
        writeFile(dir.filePath(file), "{}");
    }
    QStringList problems;
    EXPECT_EQ(hostRecordPaths(dir.path(), "n1", &problems),
              (QStringList{dir.filePath("n1-All-20251123T171300Z-2.json"),
                           dir.filePath("n1/n1-All-20261123T171300Z.json")}));
    EXPECT_TRUE(problems.isEmpty());
    EXPECT_EQ(hostRecordPaths(dir.path(), "n2", &problems), QStringList());
    EXPECT_TRUE(problems.isEmpty()) << "a host without records is no problem";
}

}  // namespace
