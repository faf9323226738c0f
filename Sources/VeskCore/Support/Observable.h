// Values and events that the interface watches.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace vesk {

/// Dropping it ends the subscription; it may outlive what it was subscribed to.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> end) : end_(std::move(end)) {}
    Subscription(Subscription&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            cancel();
            end_ = std::exchange(other.end_, nullptr);
        }
        return *this;
    }
    ~Subscription() { cancel(); }
    void cancel() {
        if (auto end = std::exchange(end_, nullptr)) end();
    }

private:
    std::function<void()> end_;
};

/// Events of one kind for any number of subscribers, in the order they subscribed. One thread. A subscriber
/// may subscribe, unsubscribe, send or destroy the stream from inside its handler; once the stream is gone
/// nobody hears more.
template <class... Values>
class EventStream {
public:
    using Handler = std::function<void(const Values&...)>;

    EventStream() = default;
    ~EventStream() { auto dropped = std::exchange(handlers_->list, {}); }
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    [[nodiscard]] Subscription subscribe(Handler handler) {
        auto id = handlers_->nextID++;
        handlers_->list.push_back({id, std::make_shared<Handler>(std::move(handler))});
        return Subscription([weak = std::weak_ptr<Handlers>(handlers_), id] {
            auto handlers = weak.lock();
            if (!handlers) return;
            auto entry = std::find_if(handlers->list.begin(), handlers->list.end(),
                                      [id](const auto& candidate) { return candidate.id == id; });
            if (entry == handlers->list.end()) return;
            // Goes when the list is whole again: what the handler owns may change the list too.
            auto dropped = std::move(entry->handler);
            handlers->list.erase(entry);
        });
    }

    void send(const Values&... values) {
        auto handlers = handlers_;  // the stream may go away while a handler runs
        auto current = handlers->list;
        for (const auto& entry : current) {
            bool still = std::any_of(handlers->list.begin(), handlers->list.end(),
                                     [&](const auto& other) { return other.id == entry.id; });
            if (still) (*entry.handler)(values...);
        }
    }

private:
    struct Entry {
        std::uint64_t id;
        std::shared_ptr<Handler> handler;
    };
    struct Handlers {
        std::vector<Entry> list;
        std::uint64_t nextID = 1;
    };
    std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();
};

/// A value that tells its subscribers of every assignment. One thread.
template <class T>
class Observable {
public:
    Observable() = default;
    explicit Observable(T value) : value_(std::move(value)) {}
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    const T& get() const { return value_; }
    operator const T&() const { return value_; }
    const T* operator->() const { return &value_; }

    /// Assigns and notifies, also when the value is the same.
    void set(T value) {
        value_ = std::move(value);
        changes_.send(value_);
    }
    /// Assigns and notifies only if the value differs.
    void setIfChanged(T value) {
        if (!(value_ == value)) set(std::move(value));
    }
    /// Changes the value in place and notifies.
    template <class Change>
    void modify(Change&& change) {
        change(value_);
        changes_.send(value_);
    }
    /// Calls the handler after each assignment, not now.
    [[nodiscard]] Subscription subscribe(std::function<void(const T&)> handler) {
        return changes_.subscribe(std::move(handler));
    }

private:
    T value_{};
    EventStream<T> changes_;
};

}  // namespace vesk
