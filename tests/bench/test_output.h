#pragma once

// Helpers for checking what the benchmark prints.

#include <unistd.h>

#include <QRegularExpression>
#include <QString>
#include <cstdio>
#include <string>

// True when the whole text matches the pattern (PCRE syntax).
inline bool matchesFully(const std::string& text, const QString& pattern) {
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern))
        .match(QString::fromStdString(text))
        .hasMatch();
}

// Everything written to standard output (printf and puts alike) from construction to text().
class CaptureStdout {
  public:
    CaptureStdout() : file_(tmpfile()), saved_(dup(STDOUT_FILENO)) {
        fflush(stdout);
        dup2(fileno(file_), STDOUT_FILENO);
    }
    ~CaptureStdout() { text(); }

    std::string text() {
        if (file_ != nullptr) {
            fflush(stdout);
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
            rewind(file_);
            for (int c; (c = fgetc(file_)) != EOF;) {
                captured_ += static_cast<char>(c);
            }
            fclose(file_);
            file_ = nullptr;
        }
        return captured_;
    }

  private:
    FILE* file_;
    int saved_;
    std::string captured_;
};
