#pragma once
// Presents live frames on an even 1/30 s beat. The analysis publishes one frame per 1/30 s slot, but
// each on the first sound block of its slot, so they arrive up to a block late (20 ms blocks arrive
// 40, 40, 20 ms apart). Presenting each at the later of its arrival and one interval after the
// previous presentation locks onto the latest arrivals: every frame is drawn exactly once, evenly.
// The beat slides back slowly toward earlier arrivals, so the added delay stays under one block.

namespace lorvane {

class FramePacer {
public:
    static constexpr double interval = 1.0 / 30;
    static constexpr double slide = 0.00025;
    // After a gap this long the beat starts afresh from the next arrival.
    static constexpr double gap = 4 * interval;

    // A frame arrived at `now` (steady seconds): when to present it.
    double schedule(double now) {
        const bool onBeat = started_ && now - last_ < gap;
        last_ = onBeat ? (now > last_ + interval - slide ? now : last_ + interval - slide) : now;
        started_ = true;
        return last_;
    }
    void reset() { started_ = false; }

private:
    double last_ = 0;
    bool started_ = false;
};

}  // namespace lorvane
