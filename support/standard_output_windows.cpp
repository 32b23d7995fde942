// The C runtime of Windows writes text files with CRLF line ends unless told otherwise; the
// program's output is the same bytes on every system, so both streams are switched to binary.

#include <fcntl.h>
#include <io.h>
#include <windows.h>

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

// The C runtime maps ERROR_NO_DATA ("the pipe is being closed"; Wine: ERROR_PIPE_NOT_CONNECTED)
// to EINVAL; the failed WriteFile's code is still the thread's last error.
int standardOutputWriteError(int error) {
    const DWORD cause = GetLastError();
    if (error == EINVAL && (cause == ERROR_NO_DATA || cause == ERROR_PIPE_NOT_CONNECTED ||
                            cause == ERROR_BROKEN_PIPE)) {
        return EPIPE;
    }
    return error;
}
