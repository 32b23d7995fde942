#pragma once

// Checking what the benchmark prints; testing::internal::CaptureStdout collects it.

#include <QRegularExpression>
#include <string>

// True when the whole text matches the pattern (PCRE syntax).
inline bool matchesFully(const std::string& text, const QString& pattern) {
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern))
        .match(QString::fromStdString(text))
        .hasMatch();
}
