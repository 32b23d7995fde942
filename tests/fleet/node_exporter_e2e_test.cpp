// The .prom file as Prometheus' node exporter reads it: the real exporter, started on a free
// loopback port with only its textfile collector, scraped once, stopped by PID.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include "fleet_test_support.h"

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

// A loopback port nothing listens on right now.
int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    close(fd);
    return port;
}

// One HTTP GET of /metrics, every socket wait bounded; empty when nothing answers.
QByteArray scrape(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    timeval timeout{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    const sockaddr_in address = loopback(port);
    const QByteArray request = "GET /metrics HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
    QByteArray response;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.constData(), static_cast<size_t>(request.size()), 0) == request.size()) {
        char buffer[65536];
        for (ssize_t n; (n = recv(fd, buffer, sizeof buffer, 0)) > 0;) {
            response.append(buffer, static_cast<int>(n));
        }
    }
    close(fd);
    return response;
}

// Stops the exporter by its PID whatever way the test leaves.
struct ExporterGuard {
    QProcess& process;
    ~ExporterGuard() {
        const auto pid = static_cast<pid_t>(process.processId());
        if (pid > 0 && process.state() != QProcess::NotRunning) {
            kill(pid, SIGTERM);
            if (!process.waitForFinished(5000)) {
                kill(pid, SIGKILL);
                process.waitForFinished(5000);
            }
        }
    }
};

// Starts the exporter on textfiles, scrapes it once (waiting at most 15 s for it to answer) and
// stops it; fails the test when it cannot.
QByteArray scrapeExporter(const QString& exporter, const QString& textfiles) {
    const int port = freePort();
    EXPECT_GT(port, 0);
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(exporter, {QStringLiteral("--web.listen-address=127.0.0.1:%1").arg(port),
                             "--collector.disable-defaults", "--collector.textfile",
                             "--collector.textfile.directory=" + textfiles});
    ExporterGuard guard{process};
    if (!process.waitForStarted(10000)) {
        ADD_FAILURE() << "cannot start " << exporter.toStdString();
        return QByteArray();
    }
    QByteArray response;
    QElapsedTimer waited;
    waited.start();
    while (response.isEmpty() && waited.elapsed() < 15000 && process.state() == QProcess::Running) {
        response = scrape(port);
        if (response.isEmpty()) {
            QThread::msleep(100);
        }
    }
    EXPECT_FALSE(response.isEmpty()) << "no answer: " << process.readAll().toStdString();
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
    ASSERT_TRUE(dir.isValid());
    const QString textfiles = dir.filePath("textfiles");
    // Two tests into one file: a run, then an import of a CPU whose name needs escaping.
    const QString corebench = fakeCorebench(
        dir.filePath("corebench"), "cat '" FLEET_TEST_DATA "/singlespeed-divider1.log'\nexit 22\n");
    const FleetResult run = runFleet({"run", "--corebench", corebench, "--out", dir.filePath("out"),
                                      "--prom", textfiles, "--", "SingleSpeed"});
    ASSERT_EQ(run.status, 0) << run.err.toStdString();
    QByteArray log = capturedLog("allverbose-divider0-houdini.log");
    log.replace("Intel(R) Xeon(R) Processor", "Xeon \"Gold\" 6338 \\ rev");
    writeFile(dir.filePath("node1.log"), log);
    const FleetResult import = runFleet(
        {"import", "--out", dir.filePath("out"), "--prom", textfiles, dir.filePath("node1.log")});
    ASSERT_EQ(import.status, 0) << import.err.toStdString();

    const QByteArray response = scrapeExporter(exporter, textfiles);
    EXPECT_TRUE(response.startsWith("HTTP/1.0 200") || response.startsWith("HTTP/1.1 200"));
    EXPECT_TRUE(response.contains("\nnode_textfile_scrape_error 0\n")) << response.toStdString();
    for (const char* series : {
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
