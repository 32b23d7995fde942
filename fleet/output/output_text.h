#pragma once

// Text from records (which anyone who can write the records folder controls) as the formats write
// it: on a terminal it sends no control sequence (an OSC 52 sequence would set the clipboard), in
// a spreadsheet it is no formula.

#include <QString>

// One line of a terminal: line breaks become spaces; the other C0 controls but tab, DEL and the
// C1 controls are left out.
QString terminalText(QString text);

// A CSV field without those controls (line breaks stay, quoted). A field that a spreadsheet would
// take for a formula, one that starts with =, +, -, @, tab or CR and is not a plain number such
// as -3.2, starts with a ' inside quotes. Quoted, quotes doubled, when it holds a comma, a quote
// or a line break.
QString csvField(const QString& field);
