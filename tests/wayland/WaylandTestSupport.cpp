#include "WaylandTestSupport.h"

#include <sndfile.h>

#include <cmath>
#include <vector>

#include "support/EventLoopWait.h"

namespace lorvane::test {

QString writeDemoRecording(const WaylandUserSession& session) {
    const QString path = session.runtimeDirectory() + "/music.wav";
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.toLocal8Bit().constData(), SFM_WRITE, &info);
    if (!file) return {};
    const long frames = 3 * info.samplerate;
    std::vector<float> data(static_cast<std::size_t>(frames) * 2);
    for (long i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / info.samplerate;
        const double sinceKick = std::fmod(t, 0.5);
        const double value =
            0.3 * std::sin(2 * M_PI * 110 * t) + 0.6 * std::exp(-sinceKick * 30) * std::sin(2 * M_PI * 55 * t);
        data[static_cast<std::size_t>(2 * i)] = data[static_cast<std::size_t>(2 * i + 1)] = static_cast<float>(value);
    }
    const bool ok = sf_writef_float(file, data.data(), frames) == frames;
    sf_close(file);
    if (!ok) return {};
    session.handOver(path);
    return path;
}

bool waitForLog(QProcess& demo, QByteArray& log, const QByteArray& text, int boundMilliseconds) {
    waitUntil(
        [&] {
            log += demo.readAllStandardError();
            return log.contains(text) || demo.state() == QProcess::NotRunning;
        },
        std::chrono::milliseconds(boundMilliseconds), std::chrono::milliseconds(20));
    log += demo.readAllStandardError();
    return log.contains(text);
}

void stopProcess(QProcess& process) {
    if (process.state() == QProcess::NotRunning) return;
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
}

}  // namespace lorvane::test
