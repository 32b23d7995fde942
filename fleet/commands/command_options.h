#pragma once

// What every command of corebench-fleet shares: its messages and the reading of its options.

#include <QString>
#include <QStringList>

class QCommandLineParser;

// Messages of corebench-fleet itself go to standard error, standard output being corebench's
// (run) or the comparison's (compare).
void printMessage(const QString& message);

// Parses a command's arguments (the command name first) with --help added. False when the
// command is to stop at once: with status kStatusUsage after printing the error, or kStatusOk
// after printing the help.
bool parseOptions(QCommandLineParser& parser, const QStringList& arguments, int* status);

// The --format option of a command that prints in any of formats, the first its default.
void addFormatOption(QCommandLineParser& parser, const QStringList& formats);

// The format asked for; empty, after naming the known ones, when it is none of them.
QString chosenFormat(const QCommandLineParser& parser, const QStringList& formats);

// The folder an option names (its default when not given); false, after saying so, when it was
// given empty, as an unset setting on a service's command line gives it.
bool folderOption(const QCommandLineParser& parser, const QString& name, QString* folder);

// The PATH... argument of the commands that read records.
void addRecordPaths(QCommandLineParser& parser);

// Why name is refused as a host name.
QString invalidHostMessage(const QString& name);
