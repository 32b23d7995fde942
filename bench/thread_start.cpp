#include "thread_start.h"

#include <QByteArray>
#include <QString>
#include <atomic>
#include <cstdio>

#include "system_error.h"

namespace {

// QThread::start does not hand out pthread_create's error: it passes it to qErrnoWarning, which
// reports "QThread::start: Thread creation error (<the system's text>)". That message is caught
// while the thread starts, on the starting thread only; anything else goes on to the handler that
// was there before.
thread_local QString* startWarning = nullptr;
std::atomic<QtMessageHandler> otherHandler{nullptr};

void catchStartWarning(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (startWarning != nullptr && message.startsWith(QLatin1String("QThread::start"))) {
        *startWarning = message;
        return;
    }
    const QtMessageHandler next = otherHandler.load();
    if (next != nullptr) {
        next(type, context, message);
    } else {
        // Another thread's message in the moment before the first handler is known: written as
        // Qt's default handler would.
        fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
    }
}

// The error number whose text is the one in parentheses at the end of the warning, so that it
// reads as every system error of this program does; Qt's text itself where none matches.
FixedString<250> errorTextOf(const QString& warning) {
    const int open = warning.lastIndexOf(QLatin1String(" ("));
    const QByteArray text = open >= 0 && warning.endsWith(QLatin1Char(')'))
                                ? warning.mid(open + 2, warning.size() - open - 3).toLocal8Bit()
                                : QByteArray("unknown error");
    // Error numbers are small on every system we build for.
    for (uint32_t code = 1; code < 256; ++code) {
        const FixedString<250> candidate = systemErrorText(code);
        if (text == candidate.text) {
            return candidate;
        }
    }
    FixedString<250> fallback;
    fallback.assign(text.constData());
    return fallback;
}

}  // namespace

bool startWorkerThread(QThread& thread, FixedString<250>& error) {
    QString warning;
    startWarning = &warning;
    otherHandler = qInstallMessageHandler(catchStartWarning);
    thread.start(QThread::InheritPriority);
    qInstallMessageHandler(otherHandler.load());
    startWarning = nullptr;
    // A started thread is running, or already finished; a thread that could not be created is
    // neither.
    if (thread.isRunning() || thread.isFinished()) {
        return true;
    }
    error = errorTextOf(warning);
    return false;
}
