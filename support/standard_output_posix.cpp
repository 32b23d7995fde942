#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "standard_output.h"

int openStandardOutput() {
    return fcntl(STDOUT_FILENO, F_GETFD) == -1 ? errno : 0;
}

int standardOutputWriteError(int error) {
    return error;
}
