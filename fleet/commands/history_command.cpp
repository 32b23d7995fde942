#include <QCommandLineParser>
#include <cstdio>

#include "command_options.h"
#include "compare_drift.h"
#include "fleet_commands.h"
#include "history_format.h"
#include "record_files.h"
#include "test_names.h"

namespace {

const QStringList kFormats{QStringLiteral("table"), QStringLiteral("csv"), QStringLiteral("json")};

}  // namespace

int historyCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists one host's runs in time order with the segments of one "
                       "configuration and the change points in each.\n") +
        exitStatusHelp({kStatusOk, kStatusUsage, kStatusBadInput}));
    parser.addOptions({
        {QStringLiteral("test"), QStringLiteral("Only this test (default: every test)."),
         QStringLiteral("NAME")},
    });
    addFormatOption(parser, kFormats);
    parser.addPositionalArgument(QStringLiteral("HOST"), QStringLiteral("The host's name."));
    addRecordPaths(parser);
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    const QString format = chosenFormat(parser, kFormats);
    if (format.isEmpty()) {
        return kStatusUsage;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() < 2) {
        printMessage(QStringLiteral("history needs a HOST and at least one PATH"));
        return kStatusUsage;
    }
    const QString host = positional.front();
    const bool oneTest = parser.isSet(QStringLiteral("test"));
    const QString test = canonicalTestName(parser.value(QStringLiteral("test")));
    if (oneTest && test.isEmpty()) {
        printMessage(
            QStringLiteral("unknown test \"%1\"").arg(parser.value(QStringLiteral("test"))));
        return kStatusUsage;
    }
    const RecordLoad load = loadRecords(positional.mid(1));
    for (const QString& message : load.problems + load.notes) {
        printMessage(message);
    }
    std::vector<LoadedRecord> mine;
    for (const LoadedRecord& loaded : load.records) {
        if (loaded.record.host == host && (!oneTest || loaded.record.test == test)) {
            mine.push_back(loaded);
        }
    }
    if (mine.empty()) {
        printMessage(QStringLiteral("no records of host \"%1\"%2 in %3")
                         .arg(host,
                              oneTest ? QStringLiteral(" in test \"%1\"").arg(test) : QString(),
                              positional.mid(1).join(QLatin1Char(' '))));
        return kStatusBadInput;
    }
    const std::map<HistoryKey, HostHistory> histories = hostHistories(mine);
    const QByteArray bytes = format == QLatin1String("csv") ? formatHistoryCsv(mine, histories)
                             : format == QLatin1String("json")
                                 ? formatHistoryJson(host, mine, histories)
                                 : formatHistoryTable(host, mine, histories);
    fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    fflush(stdout);
    return load.problems.isEmpty() ? kStatusOk : kStatusBadInput;
}
