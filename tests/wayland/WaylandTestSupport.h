#pragma once
// Shared by the Wayland overlay tests: a recording for the wave demo and the demo's process.

#include <QProcess>
#include <QString>
#include <memory>

#include "support/WaylandUserSession.h"

namespace lorvane::test {

// Writes a short looping-friendly recording (a tone with kicks) the session's user can read.
QString writeDemoRecording(const WaylandUserSession& session);

// Waits (bounded) until the demo's standard error holds `text`; false when it exited or time ran out.
bool waitForLog(QProcess& demo, QByteArray& log, const QByteArray& text, int boundMilliseconds = 20000);

void stopProcess(QProcess& process);

}  // namespace lorvane::test
