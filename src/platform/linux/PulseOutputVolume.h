#pragma once
// The default sink's volume, as followed by the sound-server connection (PulseConnection), so
// systemOutputVolume() answers at once from a cached value and never waits for the server. The value
// is the average over channels divided by the normal volume, clamped to 0...1; mute is not taken into
// account. Without a server, or when it goes away, the answer is 1.0 while the connection tries again
// quietly. The volume keeps the connection up for as long as it lives, and says when the server is
// there with a default sink again, so a capture that failed for lack of a server can be retried at once.

#include <atomic>
#include <functional>
#include <memory>

#include "core/Monitoring.h"
#include "platform/linux/PulseConnection.h"

namespace lorvane {

class PulseOutputVolume final : public OutputVolume {
public:
    // `serverDidAppear` is called on the connection's thread whenever the server is there with a default
    // sink again: after each (re)connection, and when a default sink appears on a server without one.
    explicit PulseOutputVolume(std::shared_ptr<PulseConnection> connection, std::function<void()> serverDidAppear = {});
    // Over a connection of its own that tries again every `reconnectSeconds`.
    explicit PulseOutputVolume(double reconnectSeconds = 1.0, std::function<void()> serverDidAppear = {});
    ~PulseOutputVolume() override;
    PulseOutputVolume(const PulseOutputVolume&) = delete;
    PulseOutputVolume& operator=(const PulseOutputVolume&) = delete;

    // Reads the cached value: no lock, no round trip.
    double systemOutputVolume() const override { return volume_.load(std::memory_order_relaxed); }

    // True while the connection to the server is up (for tests).
    bool connected() const { return connection_->connected(); }

private:
    // With the connection's lock held:
    void sinkDidChange(PulseConnection::SinkChange change);
    void readVolume();

    std::shared_ptr<PulseConnection> connection_;
    std::function<void()> serverDidAppear_;
    PulseConnection::ObserverId observer_ = 0;
    std::atomic<double> volume_{1.0};
};

}  // namespace lorvane
