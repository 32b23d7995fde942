#pragma once

// A pseudo-terminal for corebench's standard output. corebench writes through stdio, which holds
// back output written into a pipe until 4 KB have gathered (the progress dots of a verbose run
// would come minutes late); to a terminal it writes every line as it is printed. One file per
// OS: pseudo_terminal_posix.cpp; pseudo_terminal_windows.cpp has none to give.

#include <QString>

class PseudoTerminal {
  public:
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    // False when the system has none to give; the caller then reads a pipe.
    bool isOpen() const { return master_ >= 0; }
    // The device the child opens as its standard output.
    QString childPath() const { return childPath_; }
    // To be called once the child has its own descriptor, so that the end of the child's output
    // reads as the end of the terminal's.
    void closeChildSide();
    // Waits up to timeoutMs for output; returns the bytes read (empty on a time-out), and sets
    // ended once the child side is closed and everything written has been read.
    QByteArray read(int timeoutMs, bool* ended);

  private:
    int master_ = -1;
    int child_ = -1;
    QString childPath_;
};
