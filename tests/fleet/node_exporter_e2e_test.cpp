// The .prom file as Prometheus' node exporter reads it: the real exporter, started on a free
// loopback port with only its textfile collector, scraped once, stopped by PID.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include "fleet_test_support.h"

namespace {

// A loopback port nothing listens on right now.
int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    close(fd);
    return port;
}

// Starts the exporter on textfiles, scrapes /metrics once (waiting at most 15 s for an answer)
// and stops it by its PID; fails the test when it cannot.
QByteArray scrapeExporter(const QString& exporter, const QString& textfiles) {
    const int port = freePort();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(exporter, {QStringLiteral("--web.listen-address=127.0.0.1:%1").arg(port),
                             "--collector.disable-defaults", "--collector.textfile",
                             "--collector.textfile.directory=" + textfiles});
    // One HTTP request through bash's /dev/tcp, bounded like every program the tests run.
    const QString get =
        QStringLiteral(
            "exec 3<>/dev/tcp/127.0.0.1/%1 && "
            "printf 'GET /metrics HTTP/1.0\\r\\nHost: 127.0.0.1\\r\\n\\r\\n' >&3 && "
            "cat <&3")
            .arg(port);
    QByteArray response;
    QElapsedTimer waited;
    waited.start();
    while (process.waitForStarted(10000) && process.state() == QProcess::Running &&
           response.isEmpty() && waited.elapsed() < 15000) {
        response = runFleet({"-c", get}, "/bin/bash", 10000).out;
        QThread::msleep(response.isEmpty() ? 100 : 0);
    }
    process.terminate();  // SIGTERM to its PID
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
    EXPECT_FALSE(response.isEmpty()) << exporter.toStdString() << " did not answer on port " << port
                                     << ": " << process.readAll().toStdString();
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
        const char* message =
            "prometheus-node-exporter is not installed (scripts/setup --fleet installs it)";
        if (qEnvironmentVariableIsSet("COREBENCH_REQUIRE_EXPORTER")) {
            FAIL() << message;
        }
        GTEST_SKIP() << message;
    }
    QTemporaryDir dir;
    const QString textfiles = dir.filePath("textfiles");
    // Two tests into one file: a run, then an import of a CPU whose name needs escaping.
    const QString corebench = fakeCorebench(
        dir.filePath("corebench"), "cat '" FLEET_TEST_DATA "/singlespeed-divider1.log'\nexit 22\n");
    ASSERT_EQ(runFleet({"run", "--corebench", corebench, "--out", dir.filePath("out"), "--prom",
                        textfiles, "--", "SingleSpeed"})
                  .status,
              0);
    QByteArray log = capturedLog("allverbose-divider0-houdini.log");
    log.replace("Intel(R) Xeon(R) Processor", "Xeon \"Gold\" 6338 \\ rev");
    writeFile(dir.filePath("node1.log"), log);
    ASSERT_EQ(runFleet({"import", "--out", dir.filePath("out"), "--prom", textfiles,
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
             // The import came last: its CPU and no binary describe the node now. The exporter
             // unescapes and escapes again: the same text comes back.
             "\ncorebench_info{corebench_sha256=\"\",cpu_model=\"Xeon \\\"Gold\\\" 6338 \\\\ "
             "rev\"} 1\n",
         }) {
        EXPECT_TRUE(response.contains(series)) << series << response.toStdString();
    }
}

}  // namespace
