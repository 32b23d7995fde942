#pragma once

// Text from records (which anyone who can write the records folder controls) as the formats write
// it: one line of a terminal table, one CSV field.

#include <QString>

// One line, whatever the text holds: line breaks become spaces.
QString terminalText(QString text);

// A CSV field, quoted (quotes doubled) when it holds a comma, a quote or a line break.
QString csvField(const QString& field);
