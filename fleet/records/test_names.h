#pragma once

// corebench's tests as the driver's own table describes them: names, runs and how the scores of
// repeated runs make one.

#include <QString>
#include <QStringView>
#include <QVector>

struct ParsedLog;

// The canonical spelling of a test name, matched as corebench matches it (ignoring case, whole
// word); an empty name is All, corebench's default. Returns an empty string for an unknown name.
QString canonicalTestName(const QString& name);

// Whether a name is a test's canonical spelling (canonicalTestName(name) == name), without making
// a string: the name of every record file says its test.
bool isCanonicalTestName(QStringView name);

// How many times the test runs (5 or 10 for the repeated tests, else 1); 1 for unknown names.
int runsOfTest(const QString& canonicalName);

// The score corebench hands back for these runs' scores: the driver's own mean.
double meanOfRunScores(const QVector<double>& ps);

// The test that most likely printed a log whose command line is not known (imports). The quiet
// Single, Single5 and Single10 print the same lines and differ only in their duration.
QString inferTestName(const ParsedLog& log);
