#include "platform/linux/PulseOutputVolume.h"

#include <algorithm>
#include <utility>

namespace lorvane {

PulseOutputVolume::PulseOutputVolume(double reconnectSeconds, std::function<void()> serverDidAppear)
    : PulseOutputVolume(std::make_shared<PulseConnection>(reconnectSeconds), std::move(serverDidAppear)) {}

PulseOutputVolume::PulseOutputVolume(std::shared_ptr<PulseConnection> connection, std::function<void()> serverDidAppear)
    : connection_(std::move(connection)), serverDidAppear_(std::move(serverDidAppear)) {
    PulseConnection::Observer observer;
    observer.didDisconnect = [this](PulseConnection::Ending) { volume_.store(1.0, std::memory_order_relaxed); };
    observer.defaultSinkDidChange = [this](PulseConnection::SinkChange change) { sinkDidChange(change); };
    PulseConnection::Lock lock(*connection_);
    observer_ = connection_->addObserver(std::move(observer));
    // The connection may already know the sink (another user brought it up).
    readVolume();
    connection_->setNeeded(observer_, true);
}

PulseOutputVolume::~PulseOutputVolume() { connection_->removeObserver(observer_); }

void PulseOutputVolume::sinkDidChange(PulseConnection::SinkChange change) {
    if (change.volume) readVolume();
    if (change.appeared && serverDidAppear_) serverDidAppear_();
}

void PulseOutputVolume::readVolume() {
    double value = 1.0;
    if (connection_->sinkKnowledge() == PulseConnection::SinkKnowledge::known) {
        value = std::clamp(connection_->defaultSink().volume, 0.0, 1.0);
    }
    volume_.store(value, std::memory_order_relaxed);
}

}  // namespace lorvane
