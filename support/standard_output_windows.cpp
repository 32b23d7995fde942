// The C runtime of Windows writes text files with CRLF line ends unless told otherwise; the
// program's output is the same bytes on every system, so both streams are switched to binary.

#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <cstdio>

#include "standard_output.h"

int openStandardOutput() {
    if (_get_osfhandle(_fileno(stdout)) == -1) {
        return EBADF;
    }
    if (_setmode(_fileno(stdout), _O_BINARY) == -1) {
        return errno;
    }
    // Standard error may be closed; its text mode would only change its line ends.
    _setmode(_fileno(stderr), _O_BINARY);
    return 0;
}
