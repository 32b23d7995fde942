#include "prom_export.h"

#include <QLocale>
#include <QRegularExpression>
#include <QStringList>
#include <algorithm>
#include <vector>

namespace {

struct Family {
    const char* name;
    const char* help;
};

// In the order they are written; every family of the file is one of these.
const Family kFamilies[] = {
    {"corebench_score_ps", "Score (PS) of the latest corebench run of the test."},
    {"corebench_thread_score_ps",
     "Score (PS) of each worker thread in the latest run of the test."},
    {"corebench_last_run_timestamp_seconds",
     "Start of the latest corebench run of the test, in seconds since the epoch."},
    {"corebench_run_duration_seconds", "Duration of the latest corebench run of the test."},
    {"corebench_run_disturbed",
     "1 when other work, steal or waiting for a CPU disturbed the latest corebench run of the "
     "test, 0 when it was clean; absent where unknown."},
    {"corebench_baseline_score_ps",
     "Median score (PS) of the node's last 20 earlier runs of the test in the same "
     "configuration; from 3 such runs on."},
    {"corebench_drift_ratio",
     "Level of the node's runs of the test since its current drift over the level before it, "
     "found in its own records as compare finds it; 1 when they show no current drop."},
    {"corebench_info", "The CPU and corebench binary of the latest run; always 1."},
};

struct Sample {
    QString family;
    QString test;
    int thread = -1;
    QString line;
};

// Backslash, double quote and line feed are escaped.
QString escapeLabelValue(const QString& value) {
    QString escaped;
    for (const QChar c : value) {
        if (c == QLatin1Char('\\')) {
            escaped += QStringLiteral("\\\\");
        } else if (c == QLatin1Char('"')) {
            escaped += QStringLiteral("\\\"");
        } else if (c == QLatin1Char('\n')) {
            escaped += QStringLiteral("\\n");
        } else {
            escaped += c;
        }
    }
    return escaped;
}

QString unescapeLabelValue(const QString& value) {
    QString result;
    for (int i = 0; i < value.size(); ++i) {
        if (value[i] == QLatin1Char('\\') && i + 1 < value.size()) {
            ++i;
            result += value[i] == QLatin1Char('n') ? QChar(QLatin1Char('\n')) : value[i];
        } else {
            result += value[i];
        }
    }
    return result;
}

// The series of the other tests, read back from the file as it was; lines that do not parse are
// dropped, so a damaged file heals with the next run.
std::vector<Sample> keptSamples(const QByteArray& existing, const QString& test) {
    static const QRegularExpression sampleLine(QStringLiteral(
        "^(corebench_[a-z_]+)\\{((?:[a-z_]+=\"(?:[^\"\\\\]|\\\\.)*\",?)*)\\} (\\S+)$"));
    static const QRegularExpression label(QStringLiteral("([a-z_]+)=\"((?:[^\"\\\\]|\\\\.)*)\""));
    std::vector<Sample> samples;
    for (const QString& line : QString::fromUtf8(existing).split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch match = sampleLine.match(line);
        if (!match.hasMatch() || match.captured(1) == QLatin1String("corebench_info")) {
            continue;
        }
        Sample sample;
        sample.family = match.captured(1);
        const bool known =
            std::any_of(std::begin(kFamilies), std::end(kFamilies),
                        [&](const Family& f) { return sample.family == QLatin1String(f.name); });
        if (!known) {
            continue;
        }
        auto labels = label.globalMatch(match.captured(2));
        bool hasTest = false;
        while (labels.hasNext()) {
            const QRegularExpressionMatch pair = labels.next();
            if (pair.captured(1) == QLatin1String("test")) {
                sample.test = unescapeLabelValue(pair.captured(2));
                hasTest = true;
            } else if (pair.captured(1) == QLatin1String("thread")) {
                sample.thread = pair.captured(2).toInt();
            }
        }
        if (hasTest && sample.test != test) {
            sample.line = line;
            samples.push_back(sample);
        }
    }
    return samples;
}

QString value(double number) {
    return QString::number(number, 'g', QLocale::FloatingPointShortest);
}

QString testLabel(const QString& test) {
    return QStringLiteral("test=\"%1\"").arg(escapeLabelValue(test));
}

}  // namespace

QByteArray promText(const Record& record, std::optional<double> baseline,
                    const QByteArray& existing, std::optional<double> driftRatio) {
    std::vector<Sample> samples = keptSamples(existing, record.test);
    const QString test = testLabel(record.test);
    auto add = [&](const char* family, int thread, const QString& labels, const QString& number) {
        samples.push_back({QLatin1String(family), record.test, thread,
                           QStringLiteral("%1{%2} %3").arg(QLatin1String(family), labels, number)});
    };
    if (record.psResult) {
        add("corebench_score_ps", -1, test, value(*record.psResult));
    }
    for (int i = 0; i < record.threadPs.size(); ++i) {
        add("corebench_thread_score_ps", i, test + QStringLiteral(",thread=\"%1\"").arg(i),
            value(record.threadPs[i]));
    }
    add("corebench_last_run_timestamp_seconds", -1, test,
        QString::number(record.startedAt.toSecsSinceEpoch()));
    if (record.durationS) {
        add("corebench_run_duration_seconds", -1, test, value(*record.durationS));
    }
    if (record.disturbed) {
        add("corebench_run_disturbed", -1, test,
            isDisturbed(record) ? QStringLiteral("1") : QStringLiteral("0"));
    }
    if (baseline) {
        add("corebench_baseline_score_ps", -1, test, value(*baseline));
    }
    if (driftRatio) {
        add("corebench_drift_ratio", -1, test, value(*driftRatio));
    }
    add("corebench_info", -1,
        QStringLiteral("cpu_model=\"%1\",corebench_sha256=\"%2\"")
            .arg(escapeLabelValue(record.cpuModel.value_or(QString())),
                 escapeLabelValue(record.corebenchSha256.value_or(QString()))),
        QStringLiteral("1"));
    std::stable_sort(samples.begin(), samples.end(), [](const Sample& a, const Sample& b) {
        return std::make_pair(a.test, a.thread) < std::make_pair(b.test, b.thread);
    });
    QString text;
    for (const Family& family : kFamilies) {
        text += QStringLiteral("# HELP %1 %2\n# TYPE %1 gauge\n")
                    .arg(QLatin1String(family.name), QLatin1String(family.help));
        for (const Sample& sample : samples) {
            if (sample.family == QLatin1String(family.name)) {
                text += sample.line + QLatin1Char('\n');
            }
        }
    }
    return text.toUtf8();
}
