#pragma once

// Standard output goes through one large stdio buffer that the program hands to the system at
// points of its own choosing: after each phase of a run, and while a run waits for its workers.
// A run stopped from outside (a job's time limit) so keeps every line up to the last such point,
// and a failed write (a full disk, a closed descriptor, a reader gone) is seen right where it
// happens, with its own error number.

// Call before anything is printed. False when standard output is not open: a closed descriptor
// would be taken by the next file the program opens.
bool prepareStandardOutput();

// 0 when standard output is open, else the error number; on Windows it also switches standard
// output and error to binary mode. One implementation per system.
int openStandardOutput();
// The error number to report for a failed write that set errno to error. One implementation per
// system: Windows reports a pipe whose reader has gone as EINVAL, and it is EPIPE here as
// elsewhere.
int standardOutputWriteError(int error);

// Writes out what is buffered. False when this or an earlier write failed.
bool flushStandardOutput();

// The error number of the first write that failed, 0 while none did.
int standardOutputError();
