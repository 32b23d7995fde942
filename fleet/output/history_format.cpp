#include "history_format.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <set>

#include "output_text.h"
#include "statistics.h"

namespace {

// One run of the host as a line of the history.
struct HistoryLine {
    const LoadedRecord* loaded = nullptr;
    int segment = 0;                              // 1-based; 0 for a run without a score
    const DriftSegment* startsSegment = nullptr;  // set on a segment's first run
    const ChangePoint* change = nullptr;          // set on the first run after a change point
};

bool scored(const Record& record) {
    return record.psResult && isUsableScore(*record.psResult);
}

// A run of the series that drift detection looks at: scored, and not disturbed.
bool inSeries(const Record& record) {
    return scored(record) && !isDisturbed(record);
}

// "no" for a clean run, the causes for a disturbed one, "" where it is unknown.
QString disturbedText(const Record& record) {
    return !record.disturbed             ? QString()
           : record.disturbed->isEmpty() ? QStringLiteral("no")
                                         : record.disturbed->join(QStringLiteral("; "));
}

// The host's runs of one test in start order, each with its segment and change point. The runs
// are ordered as hostHistories orders them, so that the n-th run of the series is its n-th run.
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
        if (inSeries(loaded->record) && segment < history.segments.size()) {
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

QString tableText(const QString& test, const HostHistory& history,
                  const std::vector<HistoryLine>& lines) {
    const auto disturbed = std::count_if(lines.begin(), lines.end(), [](const HistoryLine& line) {
        return isDisturbed(line.loaded->record);
    });
    QString text =
        QStringLiteral("%1: %2 runs, %3 with a score%5, %4 segment(s)\n")
            .arg(terminalText(test), QString::number(lines.size()),
                 QString::number(history.runs.size()), QString::number(history.segments.size()),
                 disturbed > 0 ? QStringLiteral(", %1 disturbed (left out)").arg(disturbed)
                               : QString());
    text += QStringLiteral("  started_at              ps_result  segment  source  note\n");
    for (const HistoryLine& line : lines) {
        const Record& record = line.loaded->record;
        QString note;
        if (line.startsSegment) {
            note = QStringLiteral("segment %1: %2")
                       .arg(line.segment)
                       .arg(terminalText(configurationText(*line.startsSegment)));
        }
        if (line.change) {
            note += (note.isEmpty() ? QString() : QStringLiteral("; ")) +
                    QStringLiteral("change: ") + changeText(*line.change);
        }
        if (!scored(record)) {
            note = QStringLiteral("no score");
        } else if (isDisturbed(record)) {
            note = QStringLiteral("disturbed: ") + terminalText(disturbedText(record));
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
    "change_ratio,change_p,cpu_model,logical_cpus,corebench_sha256,source,file,disturbed\n";

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
                           line.loaded->file,
                           disturbedText(record)};
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
            {QStringLiteral("file"), line.loaded->file},
            {QStringLiteral("disturbed"),
             record.disturbed ? QJsonValue(QJsonArray::fromStringList(*record.disturbed))
                              : QJsonValue()}});
    }
    return QJsonObject{{QStringLiteral("test"), test},
                       {QStringLiteral("segments"), segments},
                       {QStringLiteral("runs"), runs}};
}

// A test's runs with their history, as the formats print them.
struct TestLines {
    QString test;
    const HostHistory* history = nullptr;
    std::vector<HistoryLine> lines;
};

// The tests of records in name order, each with its runs.
std::vector<TestLines> testLines(const std::vector<LoadedRecord>& records,
                                 const std::map<HistoryKey, HostHistory>& histories) {
    std::set<QString> tests;
    for (const LoadedRecord& loaded : records) {
        tests.insert(loaded.record.test);
    }
    static const HostHistory kNone;
    std::vector<TestLines> result;
    for (const QString& test : tests) {
        std::vector<const LoadedRecord*> runs;
        for (const LoadedRecord& loaded : records) {
            if (loaded.record.test == test) {
                runs.push_back(&loaded);
            }
        }
        const auto found = histories.find({runs.front()->record.host, test});
        const HostHistory& history = found == histories.end() ? kNone : found->second;
        result.push_back({test, &history, historyLines(runs, history)});
    }
    return result;
}

}  // namespace

QByteArray formatHistoryTable(const QString& host, const std::vector<LoadedRecord>& records,
                              const std::map<HistoryKey, HostHistory>& histories) {
    QString text = QStringLiteral("host %1\n").arg(terminalText(host));
    for (const TestLines& test : testLines(records, histories)) {
        text += tableText(test.test, *test.history, test.lines);
    }
    return text.toUtf8();
}

QByteArray formatHistoryCsv(const std::vector<LoadedRecord>& records,
                            const std::map<HistoryKey, HostHistory>& histories) {
    QString text = QLatin1String(kCsvColumns);
    for (const TestLines& test : testLines(records, histories)) {
        text += csvLines(test.lines);
    }
    return text.toUtf8();
}

QByteArray formatHistoryJson(const QString& host, const std::vector<LoadedRecord>& records,
                             const std::map<HistoryKey, HostHistory>& histories) {
    QJsonArray tests;
    for (const TestLines& test : testLines(records, histories)) {
        tests.append(jsonTest(test.test, *test.history, test.lines));
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("schema"), 1},
                                     {QStringLiteral("host"), host},
                                     {QStringLiteral("tests"), tests}})
        .toJson(QJsonDocument::Indented);
}
