// The .prom file as Prometheus' node exporter reads it: the real exporter, started on a free
// loopback port with only its textfile collector, scraped once, stopped by PID.

#include <gtest/gtest.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "fleet_test_support.h"

namespace {

// Starts the exporter on textfiles, scrapes /metrics once and stops it by its PID, every wait
// bounded; fails the test when it cannot.
QByteArray scrapeExporter(const QString& exporter, const QString& textfiles) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // On port 0 the exporter takes a free port and names it in its log: no race for the port.
    process.start(exporter,
                  {"--web.listen-address=127.0.0.1:0", "--collector.disable-defaults",
                   "--collector.textfile", "--collector.textfile.directory=" + textfiles});
    const QRegularExpression listening("Listening on\"? address=127\\.0\\.0\\.1:(\\d+)");
    QByteArray log;
    QRegularExpressionMatch port;
    QElapsedTimer waited;
    waited.start();
    while (!port.hasMatch() && waited.elapsed() < 15000 && process.waitForStarted(10000) &&
           process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        log += process.readAll();
        port = listening.match(QString::fromUtf8(log));
    }
    QByteArray response;
    if (port.hasMatch()) {
        // One HTTP request through bash's /dev/tcp, bounded like every program the tests run.
        response =
            runFleet({"-c", "exec 3<>/dev/tcp/127.0.0.1/" + port.captured(1) +
                                " && printf 'GET /metrics HTTP/1.0\\r\\n\\r\\n' >&3 && cat <&3"},
                     "/bin/bash", 10000)
                .out;
    }
    process.terminate();  // SIGTERM to its PID
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
    EXPECT_FALSE(response.isEmpty()) << "no answer from the exporter: " << log.toStdString();
    return response;
}

TEST(NodeExporter, ScrapesTheCorebenchSeries) {
    QString exporter = QStandardPaths::findExecutable("prometheus-node-exporter");
    if (exporter.isEmpty()) {
        exporter = QStandardPaths::findExecutable("node_exporter");
    }
    if (exporter.isEmpty()) {
        // The test stage that exists for the exporter sets COREBENCH_REQUIRE_EXPORTER: there a
        // missing exporter is a failure, elsewhere a skip.
        const char* message = "prometheus-node-exporter is not installed (scripts/setup --fleet)";
        ASSERT_FALSE(qEnvironmentVariableIsSet("COREBENCH_REQUIRE_EXPORTER")) << message;
        GTEST_SKIP() << message;
    }
    QTemporaryDir dir;
    const QString textfiles = dir.filePath("textfiles");
    // Two tests into one file; the newer of a CPU whose name needs escaping. An import dates a
    // run by its log's modification time, so the older log is made a day older.
    const QString older = dir.filePath("node1.singlespeed.log");
    writeFile(older, capturedLog("singlespeed-divider1.log"));
    QFile olderFile(older);
    ASSERT_TRUE(olderFile.open(QIODevice::ReadWrite));
    ASSERT_TRUE(olderFile.setFileTime(QDateTime::currentDateTimeUtc().addDays(-1),
                                      QFileDevice::FileModificationTime));
    olderFile.close();
    QByteArray log = capturedLog("allverbose-divider0-houdini.log");
    log.replace("Intel(R) Xeon(R) Processor", "Xeon \"Gold\" 6338 \\ rev");
    writeFile(dir.filePath("node1.log"), log);
    ASSERT_EQ(runFleet({"import", "--out", dir.filePath("out"), "--prom", textfiles, older,
                        dir.filePath("node1.log")})
                  .status,
              0);

    const QByteArray response = scrapeExporter(exporter, textfiles);
    EXPECT_TRUE(response.startsWith("HTTP/1.0 200") || response.startsWith("HTTP/1.1 200"));
    for (const char* series : {
             "\nnode_textfile_scrape_error 0\n",
             "\ncorebench_score_ps{test=\"SingleSpeed\"} 22.444\n",
             "\ncorebench_score_ps{test=\"AllVerbose\"} 5.475\n",
             "\ncorebench_thread_score_ps{test=\"AllVerbose\",thread=\"1\"} 2.75\n",
             "\ncorebench_run_duration_seconds{test=\"AllVerbose\"} 239\n",
             "\ncorebench_last_run_timestamp_seconds{test=\"SingleSpeed\"} ",
             "\n# TYPE corebench_info gauge\n",
             // The last record's CPU and (imported) no binary describe the node. The exporter
             // unescapes and escapes again: the same text comes back.
             "\ncorebench_info{corebench_sha256=\"\",cpu_model=\"Xeon \\\"Gold\\\" 6338 \\\\ "
             "rev\"} 1\n",
         }) {
        EXPECT_TRUE(response.contains(series)) << series << response.toStdString();
    }
}

}  // namespace
