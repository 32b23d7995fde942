#include "standard_output.h"

#include <cerrno>
#include <cstdio>

namespace {

// Far more than the program prints between two flushes (the filler, about 33 KB, and the result
// text of 550 workers, about 40 KB, are the largest), so stdio never writes on its own in between,
// where the error number of a failed write would be overwritten before anyone read it.
char buffer[1 << 20];

int firstError = 0;

void keepError(int error) {
    if (firstError == 0) {
        firstError = error != 0 ? error : EIO;
    }
}

}  // namespace

bool prepareStandardOutput() {
    const int error = openStandardOutput();
    if (error != 0) {
        keepError(error);
        return false;
    }
    setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    return true;
}

bool flushStandardOutput() {
    if (fflush(stdout) != 0) {
        keepError(standardOutputWriteError(errno));
    } else if (ferror(stdout)) {
        // A write failed where stdio wrote on its own; its error number is gone by now.
        keepError(EIO);
    }
    return firstError == 0;
}

int standardOutputError() {
    return firstError;
}
