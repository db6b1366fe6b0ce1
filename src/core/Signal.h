#pragma once
// A minimal observer list: observers connect a callback and are called in connection order.
// Single-threaded by design (models and preferences live on the main thread).

#include <functional>
#include <utility>
#include <vector>

namespace lorvane {

template <typename... Args>
class Signal {
public:
    using Slot = std::function<void(Args...)>;
    using Id = int;

    Id connect(Slot slot) {
        slots_.emplace_back(++lastId_, std::move(slot));
        return lastId_;
    }
    void disconnect(Id id) {
        std::erase_if(slots_, [id](const auto& entry) { return entry.first == id; });
    }
    void operator()(Args... args) const {
        // Copy so that an observer may disconnect itself while being called.
        const auto current = slots_;
        for (const auto& entry : current) entry.second(args...);
    }
    std::size_t observerCount() const { return slots_.size(); }

private:
    std::vector<std::pair<Id, Slot>> slots_;
    Id lastId_ = 0;
};

}  // namespace lorvane
