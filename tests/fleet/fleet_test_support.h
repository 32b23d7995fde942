#pragma once

// Captured corebench output (see data/README.md), files, and the built corebench-fleet run as a
// separate process with every wait bounded.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The folder run and import wrote a host's newest records in, its newest month's; the host's own
// folder when it has none (records planted there, as older versions wrote them).
inline QString newestMonthFolder(const QString& hostFolder) {
    const QStringList months =
        QDir(hostFolder)
            .entryList({"\?\?\?\?-\?\?"}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    return months.isEmpty() ? hostFolder : hostFolder + "/" + months.last();
}

inline QByteArray capturedLog(const char* name) {
    return readFile(QStringLiteral(FLEET_TEST_DATA "/") + QLatin1String(name));
}

// Each key of expected, a JSON object's text, holds the same value in actual (compared as JSON
// text, so that a failure reads well and 6 equals 6.0).
inline void expectJsonHas(const QJsonObject& actual, const char* expected) {
    const auto text = [](const QJsonValue& value) {
        return value.isUndefined()
                   ? std::string("missing")
                   : QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).toStdString();
    };
    const QJsonObject want = QJsonDocument::fromJson(expected).object();
    EXPECT_FALSE(want.isEmpty()) << expected;
    for (auto it = want.begin(); it != want.end(); ++it) {
        EXPECT_EQ(text(actual.value(it.key())), text(it.value())) << it.key().toStdString();
    }
}

inline void writeFile(const QString& path, const QByteArray& bytes,
                      QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner) {
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(bytes);
        file.close();
        file.setPermissions(permissions);
    }
}

struct FleetResult {
    QByteArray out;
    QByteArray err;
    int status;  // -1 when it did not finish normally in time
};

// COREBENCH_TEST_FLEET runs these tests against another build's corebench-fleet, which is started
// through COREBENCH_TEST_LAUNCHER when set (one program: the Windows build's under Wine); other
// programs start as they are.
inline QString fleetProgram() {
    const QString other = qEnvironmentVariable("COREBENCH_TEST_FLEET");
    return other.isEmpty() ? QStringLiteral(COREBENCH_FLEET) : other;
}

inline void startProgram(QProcess& process, const QString& program, const QStringList& arguments) {
    const QString launcher = qEnvironmentVariable("COREBENCH_TEST_LAUNCHER");
    if (launcher.isEmpty() || program != fleetProgram()) {
        process.start(program, arguments);
    } else {
        process.start(launcher, QStringList{program} + arguments);
    }
}

inline FleetResult runFleet(const QStringList& arguments, const QString& program = fleetProgram(),
                            int timeoutMs = 120000) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    startProgram(process, program, arguments);
    const bool finished = process.waitForFinished(timeoutMs);
    if (!finished) {
        process.kill();  // and QProcess's destructor waits for it, bounded
    }
    return {process.readAllStandardOutput(), process.readAllStandardError(),
            finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1};
}
