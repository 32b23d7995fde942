#include "output_text.h"

#include <QRegularExpression>

namespace {

// C0 but tab, CR and LF; DEL; C1.
QString withoutControls(QString text) {
    static const QRegularExpression kControls(
        QStringLiteral("[\\x{0}-\\x{8}\\x{b}\\x{c}\\x{e}-\\x{1f}\\x{7f}-\\x{9f}]"));
    return text.remove(kControls);
}

}  // namespace

QString terminalText(QString text) {
    return withoutControls(text.replace(QLatin1Char('\n'), QLatin1Char(' '))
                               .replace(QLatin1Char('\r'), QLatin1Char(' ')));
}

QString csvField(const QString& field) {
    static const QRegularExpression kQuoted(QStringLiteral("[\",\r\n]"));
    static const QRegularExpression kFormula(QStringLiteral("^[-=+@\t\r]"));
    // The whole field: "$" would let a number end before a line break.
    static const QRegularExpression kNumber(QRegularExpression::anchoredPattern(
        QStringLiteral("[-+]?([0-9]+(\\.[0-9]*)?|\\.[0-9]+)([eE][-+]?[0-9]+)?")));
    QString text = withoutControls(field);
    const bool formula = text.contains(kFormula) && !text.contains(kNumber);
    if (!formula && !text.contains(kQuoted)) {
        return text;
    }
    text.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return (formula ? QStringLiteral("\"'") : QStringLiteral("\"")) + text + QLatin1Char('"');
}
