// Records: the schema-1 keys with nulls kept, reading back, and every way a record is rejected.

#include "record.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "fleet_test_data.h"
#include "log_parser.h"

namespace {

const QStringList kSchemaKeys = {"schema",        "host",
                                 "test",          "started_at",
                                 "duration_s",    "threads",
                                 "thread_ps",     "ps_result",
                                 "exit_value",    "status",
                                 "cpu_model",     "logical_cpus",
                                 "physical_cpus", "hyperthreading",
                                 "mhz_current",   "mhz_max",
                                 "ram_gib",       "os",
                                 "errors",        "corebench_sha256",
                                 "source"};

RecordOrigin importOrigin(const char* test) {
    RecordOrigin origin;
    origin.host = QStringLiteral("node17");
    origin.test = QLatin1String(test);
    origin.startedAt = QDateTime(QDate(2026, 11, 23), QTime(17, 13, 0), Qt::UTC);
    origin.durationS = 6.0;
    origin.source = QStringLiteral("import");
    return origin;
}

TEST(Record, HasEveryKeyWithNullsForMissingValues) {
    const ParsedLog log = parseCorebenchLog(capturedLog("allverbose-divider0-houdini.log"));
    ASSERT_TRUE(log.ok);
    QString warning;
    const Record record = recordFromLog(log, importOrigin("AllVerbose"), &warning);
    EXPECT_TRUE(warning.isEmpty());
    const QByteArray bytes = recordToBytes(record);
    EXPECT_TRUE(bytes.endsWith("}\n"));
    const QJsonObject object = QJsonDocument::fromJson(bytes).object();
    QStringList keys = object.keys();
    QStringList expected = kSchemaKeys;
    keys.sort();
    expected.sort();
    EXPECT_EQ(keys, expected);
    EXPECT_EQ(object.value("schema").toInt(), 1);
    EXPECT_EQ(object.value("started_at").toString(), QStringLiteral("2026-11-23T17:13:00Z"));
    EXPECT_EQ(object.value("threads").toInt(), 2);
    EXPECT_EQ(object.value("ps_result").toDouble(), 5.475);
    EXPECT_EQ(object.value("exit_value").toDouble(), -2147483648.0);
    EXPECT_TRUE(object.value("status").isNull());
    EXPECT_TRUE(object.value("corebench_sha256").isNull());
    EXPECT_TRUE(object.value("mhz_max").isNull());
    EXPECT_EQ(object.value("hyperthreading"), QJsonValue(false));
    EXPECT_EQ(object.value("source").toString(), QStringLiteral("import"));

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
    Record quiet = recordFromLog(log, importOrigin("Single5"), &warning);
    EXPECT_FALSE(quiet.psResult);
    EXPECT_TRUE(warning.contains(QLatin1String("only its last run"))) << warning.toStdString();
    EXPECT_TRUE(recordToJson(quiet).value("ps_result").isNull());

    // The verbose form prints every run; the mean is the driver's, in single precision.
    log.verboseRunPs = {5.1, 5.2, 5.3, 5.4, 5.25};
    Record verbose = recordFromLog(log, importOrigin("Single5Verbose"), &warning);
    EXPECT_TRUE(warning.isEmpty());
    ASSERT_TRUE(verbose.psResult);
    EXPECT_DOUBLE_EQ(*verbose.psResult, 5.25);
    log.verboseRunPs = {5.1, 5.2};  // runs missing from the log
    EXPECT_FALSE(recordFromLog(log, importOrigin("Single5Verbose"), &warning).psResult);
}

QByteArray validRecord() {
    const ParsedLog log = parseCorebenchLog(capturedLog("singlespeed-divider1.log"));
    QString warning;
    return recordToBytes(recordFromLog(log, importOrigin("SingleSpeed"), &warning));
}

QByteArray withValue(const char* key, const QJsonValue& value) {
    QJsonObject object = QJsonDocument::fromJson(validRecord()).object();
    object.insert(QLatin1String(key), value);
    return QJsonDocument(object).toJson();
}

QByteArray without(const char* key) {
    QJsonObject object = QJsonDocument::fromJson(validRecord()).object();
    object.remove(QLatin1String(key));
    return QJsonDocument(object).toJson();
}

TEST(Record, RejectsInvalidRecordsWithTheReason) {
    struct Case {
        QByteArray bytes;
        const char* reason;
    };
    const Case cases[] = {
        {QByteArray("{\"schema\": 1,"), "not JSON"},
        {QByteArray(), "not JSON"},
        {QByteArray("[1, 2]"), "not a JSON object"},
        {without("ps_result"), "\"ps_result\" is missing"},
        {without("corebench_sha256"), "\"corebench_sha256\" is missing"},
        {withValue("schema", 2), "\"schema\" is not 1"},
        {withValue("host", ""), "\"host\" is not a non-empty string"},
        {withValue("ps_result", "22.4"), "\"ps_result\" is not a number"},
        {withValue("threads", 1.5), "\"threads\" is not an integer"},
        {withValue("thread_ps", QJsonArray{1.0, "x"}), "\"thread_ps\" is not an array of numbers"},
        {withValue("threads", 2), "\"threads\" does not match"},
        {withValue("hyperthreading", 1), "\"hyperthreading\" is not true, false or null"},
        {withValue("errors", QJsonArray{1}), "\"errors\" is not an array of strings"},
        {withValue("started_at", "yesterday"), "not an ISO 8601 time"},
        {withValue("source", "guess"), "\"source\" is neither"},
    };
    for (const Case& c : cases) {
        QString error;
        EXPECT_FALSE(recordFromJson(c.bytes, &error)) << c.reason;
        EXPECT_TRUE(error.contains(QLatin1String(c.reason)))
            << c.reason << " / " << error.toStdString();
    }
    QString error;
    EXPECT_TRUE(recordFromJson(validRecord(), &error)) << error.toStdString();
}

TEST(Record, FileNamesAndHostNames) {
    const QDateTime time(QDate(2026, 11, 23), QTime(17, 13, 0), Qt::UTC);
    EXPECT_EQ(recordBaseName("node17", "All", time), QStringLiteral("node17-All-20261123T171300Z"));
    // A time in another zone is named in UTC.
    EXPECT_EQ(recordBaseName("n", "All", time.toOffsetFromUtc(3600)),
              QStringLiteral("n-All-20261123T171300Z"));
    // Nothing can leave the folder or break the name.
    EXPECT_EQ(recordBaseName("../x y", "a/b", time), QStringLiteral(".._x_y-a_b-20261123T171300Z"));
    EXPECT_EQ(shortHostName("node17.farm.example"), QStringLiteral("node17"));
    EXPECT_EQ(shortHostName("node17"), QStringLiteral("node17"));
    EXPECT_EQ(shortHostName("node17-All-20261123T171300Z.log"),
              QStringLiteral("node17-All-20261123T171300Z"));
}

}  // namespace
