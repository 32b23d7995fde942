#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "whole_file.h"

bool readWholeFile(const std::string& path, std::string* text) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    text->clear();
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof(buffer))) != 0) {
        if (n > 0) {
            text->append(buffer, static_cast<size_t>(n));
        } else if (errno != EINTR) {
            break;
        }
    }
    const int error = errno;
    close(fd);
    errno = error;
    return n == 0;
}
