// Records: every key with nulls kept, the conditions of a run, reading back (schema 1 too), and
// every way a record is rejected.

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <tuple>

#include "fleet_test_support.h"
#include "log_parser.h"
#include "record_conditions.h"
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
    EXPECT_EQ(object.size(), 23);
    expectJsonHas(object, R"({
        "schema": 2, "conditions": null, "disturbed": null, "host": "node17", "test": "AllVerbose", "started_at": "2026-11-23T17:13:00Z",
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

// A run on a node with a generic cpufreq driver held at its lowest clock, thermal throttling
// during the run and a busy loop beside the benchmark.
RecordConditions plantedConditions() {
    RunConditions figures;
    figures.wallS = 21.03712;
    figures.processCpuS = 10.2;
    figures.workerThreads = 1;
    figures.allowedCpus = 2;
    figures.cpuShare = 0.48512;
    figures.otherShareOfWorkerCpus = 0.52;
    figures.stealShare = 0.004;
    PowerState before;
    before.cpus = {{0, "acpi-cpufreq", "powersave", 2000000, 3000000, std::nullopt, 3, 7},
                   {1, "acpi-cpufreq", "powersave", 1200000, 3000000, std::nullopt, 3, 7}};
    before.powerScheme = "381b4222-f694-41f0-9685-ff5bb260df2e";
    PowerState after = before;
    after.cpus[1].packageThrottles = 12;
    return recordConditions(figures, before, after);
}

TEST(Record, KeepsTheConditionsOfTheRunAndReadsSchemaOne) {
    const ParsedLog log = parseCorebenchLog(capturedLog("singlespeed-divider1.log"));
    QString warning;
    Record record = recordFromLog(log, importOrigin("SingleSpeed"), &warning);
    record.conditions = plantedConditions();
    record.disturbed = disturbedCauses(record.conditions->figures);
    const QByteArray bytes = recordToBytes(record);
    const QJsonObject object = QJsonDocument::fromJson(bytes).object();
    expectJsonHas(object, R"({"disturbed": ["other work used 0.52 of the worker's CPU"]})");
    expectJsonHas(object["conditions"].toObject(), R"j({
        "wall_s": 21.0371, "process_cpu_s": 10.2, "worker_threads": 1, "allowed_cpus": 2,
        "machine_cpus": null, "cpu_share": 0.4851, "other_share_of_worker_cpus": 0.52,
        "steal_share": 0.004, "likely_causes": [
            "governor powersave holds the clock at its lowest on CPUs 0-1",
            "scaling_max_freq caps the clock at 1200 of 3000 MHz on CPUs 0-1",
            "thermal throttling during the run on CPU 1 (5 throttle events)",
            "the power plan is Balanced"]})j");
    expectJsonHas(object["conditions"].toObject()["power"].toObject(), R"({
        "drivers": ["acpi-cpufreq"], "governors": ["powersave"], "energy_preferences": [],
        "scaling_max_mhz": 1200, "cpuinfo_max_mhz": 3000, "throttle_events": 5,
        "intel_no_turbo": null, "power_plan": "Balanced"})");
    QString error;
    const std::optional<Record> back = recordFromJson(bytes, &error);
    ASSERT_TRUE(back) << error.toStdString();
    EXPECT_EQ(recordToBytes(*back), bytes);
    EXPECT_TRUE(isDisturbed(*back));

    // What run wrote before the conditions were measured: read, its verdict unknown.
    const RecordLoad load = loadRecords({QStringLiteral(FLEET_TEST_DATA "/schema1-record.json")});
    ASSERT_EQ(load.records.size(), 1u) << load.problems.join(' ').toStdString();
    const Record& old = load.records.front().record;
    EXPECT_EQ(old.psResult, 6.313);
    EXPECT_FALSE(old.conditions);
    EXPECT_FALSE(old.disturbed);
    expectJsonHas(QJsonDocument::fromJson(recordToBytes(old)).object(),
                  R"({"schema": 2, "conditions": null, "disturbed": null, "ps_result": 6.313})");
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

// A valid record whose conditions have key (in power when inPower) set to value.
QByteArray editedConditions(const char* key, const QJsonValue& value, bool inPower = false) {
    QJsonObject conditions = conditionsToJson(plantedConditions()).toObject();
    QJsonObject power = conditions["power"].toObject();
    power.insert(QLatin1String(key), value);
    conditions.insert(inPower ? QStringLiteral("power") : QLatin1String(key),
                      inPower ? QJsonValue(power) : value);
    return edited("conditions", conditions);
}

TEST(Record, RejectsInvalidRecordsWithTheReason) {
    QJsonObject schemaTwo = QJsonDocument::fromJson(edited("schema", 2)).object();
    schemaTwo.remove("disturbed");
    const std::pair<QByteArray, const char*> cases[] = {
        // Not JSON, not an object and a missing key: FleetCompareProgram.BadInputIsNamed...
        {edited("schema", 3), "\"schema\" is not 1 or 2"},
        {QJsonDocument(schemaTwo).toJson(), "key \"disturbed\" is missing"},
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
        // The conditions of the run, and its verdict that compare and check go by.
        {edited("conditions", "clean"), "\"conditions\" is not an object or null"},
        {edited("disturbed", "no"), "\"disturbed\" is not null or an array of at most 32"},
        {edited("disturbed", QJsonArray{"steal\ndrain"}), "\"disturbed\" is not null or an"},
        {edited("disturbed", QJsonArray{""}), "\"disturbed\" is not null or an array"},
        {editedConditions("cpu_share", -0.5), "\"conditions\": \"cpu_share\" is not null or a"},
        {editedConditions("wall_s", QJsonValue()), "\"conditions\": \"wall_s\" is null"},
        {editedConditions("worker_threads", 1.5), "\"worker_threads\" is not a whole number"},
        {editedConditions("likely_causes", QJsonArray{QString(1001, 'x')}),
         "\"likely_causes\" is not an array of at most 32 lines of 1 to 1000 characters"},
        {editedConditions("power", 1), "\"conditions\": \"power\" is not an object"},
        {editedConditions("governors", "powersave", true),
         "\"conditions\": \"power\": \"governors\" is not an array"},
        {editedConditions("boost", 0, true), "\"boost\" is not true, false or null"},
        {editedConditions("max_processor_state_percent", 101, true),
         "\"max_processor_state_percent\" is not null or a number from 0 to 100"},
        {editedConditions("power_plan", "Balanced\r", true), "\"power_plan\" is not a line"},
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
