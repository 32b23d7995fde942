#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

#include "command_options.h"
#include "compare_drift.h"
#include "fleet_commands.h"
#include "record_files.h"
#include "test_names.h"

namespace {

// One run of the host as a line of the history.
struct HistoryLine {
    const LoadedRecord* loaded = nullptr;
    int segment = 0;                              // 1-based; 0 for a run without a score
    const DriftSegment* startsSegment = nullptr;  // set on a segment's first run
    const ChangePoint* change = nullptr;          // set on the first run after a change point
};

bool scored(const Record& record) {
    return record.psResult && std::isfinite(*record.psResult) && *record.psResult > 0;
}

// The host's runs of one test in start order, each with its segment and change point. The runs
// are ordered as hostHistories orders them, so that the n-th scored run is its n-th run.
std::vector<HistoryLine> historyLines(std::vector<const LoadedRecord*> runs,
                                      const HostHistory& history) {
    std::stable_sort(runs.begin(), runs.end(), [](const LoadedRecord* a, const LoadedRecord* b) {
        return a->record.startedAt < b->record.startedAt;
    });
    std::vector<HistoryLine> lines;
    int index = 0;  // among the scored runs
    size_t segment = 0;
    for (const LoadedRecord* loaded : runs) {
        HistoryLine line;
        line.loaded = loaded;
        if (scored(loaded->record) && segment < history.segments.size()) {
            while (index >= history.segments[segment].firstRun + history.segments[segment].runs) {
                ++segment;
            }
            const DriftSegment& current = history.segments[segment];
            line.segment = static_cast<int>(segment) + 1;
            line.startsSegment = index == current.firstRun ? &current : nullptr;
            for (const ChangePoint& change : current.changePoints) {
                if (current.firstRun + change.index == index) {
                    line.change = &change;
                }
            }
            ++index;
        }
        lines.push_back(line);
    }
    return lines;
}

QString timeText(const QDateTime& time) {
    return time.toUTC().toString(Qt::ISODate);
}

QString changeText(const ChangePoint& change) {
    return QStringLiteral("%1% from %2 to %3 (%4)")
        .arg(QString::number(100 * (change.ratio - 1), 'f', 1),
             QString::number(change.medianBefore, 'f', 3),
             QString::number(change.medianAfter, 'f', 3), pValueText(change.pValue));
}

QString configurationText(const DriftSegment& segment) {
    return QStringLiteral("%1, %2 logical CPUs, build %3")
        .arg(segment.cpuModel.value_or(QStringLiteral("unknown CPU")),
             segment.logicalCpus ? QString::number(*segment.logicalCpus) : QStringLiteral("?"),
             segment.corebenchSha256 ? segment.corebenchSha256->left(12)
                                     : QStringLiteral("unknown"));
}

QString scoreText(const Record& record) {
    return record.psResult ? QString::number(*record.psResult, 'f', 3) : QString();
}

// Names and records come from untrusted files: one line each, whatever they hold.
QString oneLine(QString text) {
    return text.replace(QLatin1Char('\n'), QLatin1Char(' '))
        .replace(QLatin1Char('\r'), QLatin1Char(' '));
}

QString csvField(const QString& field) {
    if (!field.contains(QRegularExpression(QStringLiteral("[\",\r\n]")))) {
        return field;
    }
    return QLatin1Char('"') + QString(field).replace(QLatin1Char('"'), QStringLiteral("\"\"")) +
           QLatin1Char('"');
}

QString tableText(const QString& test, const HostHistory& history,
                  const std::vector<HistoryLine>& lines) {
    QString text =
        QStringLiteral("%1: %2 runs, %3 with a score, %4 segment(s)\n")
            .arg(oneLine(test), QString::number(lines.size()), QString::number(history.runs.size()),
                 QString::number(history.segments.size()));
    text += QStringLiteral("  started_at              ps_result  segment  source  note\n");
    for (const HistoryLine& line : lines) {
        const Record& record = line.loaded->record;
        QString note;
        if (line.startsSegment) {
            note = QStringLiteral("segment %1: %2")
                       .arg(line.segment)
                       .arg(oneLine(configurationText(*line.startsSegment)));
        }
        if (line.change) {
            note += (note.isEmpty() ? QString() : QStringLiteral("; ")) +
                    QStringLiteral("change: ") + changeText(*line.change);
        }
        if (!scored(record)) {
            note = QStringLiteral("no score");
        }
        text += QStringLiteral("  %1  %2  %3  %4  %5")
                    .arg(timeText(record.startedAt).leftJustified(20),
                         scoreText(record).rightJustified(10),
                         (line.segment ? QString::number(line.segment) : QStringLiteral("-"))
                             .rightJustified(7),
                         record.source.leftJustified(6), note)
                    .trimmed()
                    .prepend(QStringLiteral("  ")) +
                QLatin1Char('\n');
    }
    return text;
}

const char kCsvColumns[] =
    "host,test,started_at,ps_result,segment,change_median_before,change_median_after,"
    "change_ratio,change_p,cpu_model,logical_cpus,corebench_sha256,source,file\n";

QString csvLines(const std::vector<HistoryLine>& lines) {
    QString text;
    for (const HistoryLine& line : lines) {
        const Record& record = line.loaded->record;
        const ChangePoint* change = line.change;
        QStringList fields{record.host,
                           record.test,
                           timeText(record.startedAt),
                           scoreText(record),
                           line.segment ? QString::number(line.segment) : QString(),
                           change ? QString::number(change->medianBefore, 'f', 3) : QString(),
                           change ? QString::number(change->medianAfter, 'f', 3) : QString(),
                           change ? QString::number(change->ratio, 'f', 4) : QString(),
                           change ? QString::number(change->pValue, 'g', 3) : QString(),
                           record.cpuModel.value_or(QString()),
                           record.logicalCpus ? QString::number(*record.logicalCpus) : QString(),
                           record.corebenchSha256.value_or(QString()),
                           record.source,
                           line.loaded->file};
        for (QString& field : fields) {
            field = csvField(field);
        }
        text += fields.join(QLatin1Char(',')) + QLatin1Char('\n');
    }
    return text;
}

QJsonValue optionalText(const std::optional<QString>& text) {
    return text ? QJsonValue(*text) : QJsonValue();
}

QJsonObject jsonTest(const QString& test, const HostHistory& history,
                     const std::vector<HistoryLine>& lines) {
    QJsonArray segments;
    for (const DriftSegment& segment : history.segments) {
        QJsonArray changes;
        for (const ChangePoint& change : segment.changePoints) {
            changes.append(
                QJsonObject{{QStringLiteral("at"), timeText(change.at)},
                            {QStringLiteral("median_before"), change.medianBefore},
                            {QStringLiteral("median_after"), change.medianAfter},
                            {QStringLiteral("ratio"), change.ratio},
                            {QStringLiteral("p"), change.pValue},
                            {QStringLiteral("direction"), change.direction == DriftDirection::Down
                                                              ? QStringLiteral("down")
                                                              : QStringLiteral("up")}});
        }
        segments.append(
            QJsonObject{{QStringLiteral("first_started_at"), timeText(segment.firstStartedAt)},
                        {QStringLiteral("last_started_at"), timeText(segment.lastStartedAt)},
                        {QStringLiteral("runs"), segment.runs},
                        {QStringLiteral("cpu_model"), optionalText(segment.cpuModel)},
                        {QStringLiteral("logical_cpus"),
                         segment.logicalCpus ? QJsonValue(*segment.logicalCpus) : QJsonValue()},
                        {QStringLiteral("corebench_sha256"), optionalText(segment.corebenchSha256)},
                        {QStringLiteral("change_points"), changes}});
    }
    QJsonArray runs;
    for (const HistoryLine& line : lines) {
        const Record& record = line.loaded->record;
        runs.append(QJsonObject{
            {QStringLiteral("started_at"), timeText(record.startedAt)},
            {QStringLiteral("ps_result"),
             record.psResult ? QJsonValue(*record.psResult) : QJsonValue()},
            {QStringLiteral("segment"), line.segment ? QJsonValue(line.segment) : QJsonValue()},
            {QStringLiteral("change"), line.change != nullptr},
            {QStringLiteral("source"), record.source},
            {QStringLiteral("file"), line.loaded->file}});
    }
    return QJsonObject{{QStringLiteral("test"), test},
                       {QStringLiteral("segments"), segments},
                       {QStringLiteral("runs"), runs}};
}

}  // namespace

int historyCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lists one host's runs in time order with the segments of one configuration and the "
        "change points in each. Exit status 0, or 2 on bad input."));
    parser.addOptions({
        {QStringLiteral("test"), QStringLiteral("Only this test (default: every test)."),
         QStringLiteral("NAME")},
        {QStringLiteral("format"), QStringLiteral("table (default), csv or json."),
         QStringLiteral("FORMAT"), QStringLiteral("table")},
    });
    parser.addPositionalArgument(QStringLiteral("HOST"), QStringLiteral("The host's name."));
    parser.addPositionalArgument(QStringLiteral("PATH"),
                                 QStringLiteral("Records, or folders of them."),
                                 QStringLiteral("PATH..."));
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    const QString format = parser.value(QStringLiteral("format"));
    if (format != QLatin1String("table") && format != QLatin1String("csv") &&
        format != QLatin1String("json")) {
        printMessage(QStringLiteral("--format must be table, csv or json, not \"%1\"").arg(format));
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
    for (const QString& problem : load.problems) {
        printMessage(problem);
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
        return kStatusUsage;
    }
    const std::map<HistoryKey, HostHistory> histories = hostHistories(mine);
    std::set<QString> tests;
    for (const LoadedRecord& loaded : mine) {
        tests.insert(loaded.record.test);
    }
    QString text = format == QLatin1String("csv") ? QLatin1String(kCsvColumns) : QString();
    if (format == QLatin1String("table")) {
        text = QStringLiteral("host %1\n").arg(oneLine(host));
    }
    QJsonArray jsonTests;
    for (const QString& name : tests) {
        std::vector<const LoadedRecord*> runs;
        for (const LoadedRecord& loaded : mine) {
            if (loaded.record.test == name) {
                runs.push_back(&loaded);
            }
        }
        static const HostHistory kNone;
        const auto found = histories.find({host, name});
        const HostHistory& history = found == histories.end() ? kNone : found->second;
        const std::vector<HistoryLine> lines = historyLines(runs, history);
        if (format == QLatin1String("csv")) {
            text += csvLines(lines);
        } else if (format == QLatin1String("json")) {
            jsonTests.append(jsonTest(name, history, lines));
        } else {
            text += tableText(name, history, lines);
        }
    }
    QByteArray bytes = text.toUtf8();
    if (format == QLatin1String("json")) {
        bytes = QJsonDocument(QJsonObject{{QStringLiteral("schema"), 1},
                                          {QStringLiteral("host"), host},
                                          {QStringLiteral("tests"), jsonTests}})
                    .toJson(QJsonDocument::Indented);
    }
    fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    fflush(stdout);
    return load.problems.isEmpty() ? kStatusOk : kStatusUsage;
}
