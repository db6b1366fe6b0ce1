#include "app/UnixSignalQuit.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>

namespace lorvane {

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int) {
    // Only async-signal-safe work here: the event loop picks the byte up.
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(signalPipe[0], &byte, 1);
}

}  // namespace

UnixSignalQuit::UnixSignalQuit(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
    notifier_ = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, [] {
        char byte = 0;
        [[maybe_unused]] const auto read = ::read(signalPipe[1], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);
}

UnixSignalQuit::~UnixSignalQuit() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);
    delete notifier_;
    notifier_ = nullptr;
    for (int& fd : signalPipe) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
}

}  // namespace lorvane
