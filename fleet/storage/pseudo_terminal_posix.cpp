#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <QByteArray>

#include "pseudo_terminal.h"

PseudoTerminal::PseudoTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0) {
        return;
    }
    const char* name = grantpt(master) == 0 && unlockpt(master) == 0 ? ptsname(master) : nullptr;
    const int child = name != nullptr ? open(name, O_RDWR | O_NOCTTY) : -1;
    termios settings{};
    if (child < 0 || tcgetattr(child, &settings) != 0) {
        close(master);
        if (child >= 0) {
            close(child);
        }
        return;
    }
    // Bytes go through as written: no "\n" to "\r\n", no echo, no line editing.
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG | IEXTEN);
    if (tcsetattr(child, TCSANOW, &settings) != 0) {
        close(master);
        close(child);
        return;
    }
    master_ = master;
    // Held open until the child has the device, so that the terminal does not hang up before.
    child_ = child;
    childPath_ = QString::fromLocal8Bit(name);
}

PseudoTerminal::~PseudoTerminal() {
    closeChildSide();
    if (master_ >= 0) {
        close(master_);
    }
}

void PseudoTerminal::closeChildSide() {
    if (child_ >= 0) {
        close(child_);
        child_ = -1;
    }
}

QByteArray PseudoTerminal::read(int timeoutMs, bool* ended) {
    *ended = false;
    pollfd request{master_, POLLIN, 0};
    const int ready = poll(&request, 1, timeoutMs);
    if (ready == 0 || (ready < 0 && errno == EINTR)) {
        return QByteArray();
    }
    char buffer[65536];
    const ssize_t count = ready > 0 ? ::read(master_, buffer, sizeof buffer) : -1;
    if (count > 0) {
        return QByteArray(buffer, static_cast<int>(count));
    }
    if (count < 0 && errno == EINTR) {
        return QByteArray();
    }
    // Linux reports the closed child side as EIO, other systems as the end of the file.
    *ended = true;
    return QByteArray();
}
