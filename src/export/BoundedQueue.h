#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

namespace marlowick {

// A first-in first-out hand-over between two threads that holds at most `capacity` items, so a fast
// producer waits for a slow consumer instead of filling memory. Closing it wakes both sides: a closed
// queue takes nothing more, and hands out what it still holds only when `drain` is asked for.
template <typename T> class BoundedQueue {
public:
    explicit BoundedQueue(std::size_t capacity)
        : m_capacity(capacity) {}

    // Waits for room; false when the queue was closed.
    bool push(T item) {
        std::unique_lock lock(m_mutex);
        m_notFull.wait(lock, [&] { return m_closed || m_items.size() < m_capacity; });
        if (m_closed) {
            return false;
        }
        m_items.push_back(std::move(item));
        m_notEmpty.notify_one();
        return true;
    }

    // Waits for an item; none once the queue is closed and, when the producer closed it as finished,
    // emptied.
    std::optional<T> pop() {
        std::unique_lock lock(m_mutex);
        m_notEmpty.wait(lock, [&] { return m_closed || !m_items.empty(); });
        if (m_items.empty() || (m_closed && !m_drain)) {
            return std::nullopt;
        }
        T item = std::move(m_items.front());
        m_items.pop_front();
        m_notFull.notify_one();
        return item;
    }

    // The producer is done: the consumer still gets what is queued.
    void finish() { close(true); }
    // Everything stops: both sides get nothing more.
    void abandon() { close(false); }

private:
    void close(bool drain) {
        std::lock_guard lock(m_mutex);
        if (!m_closed) {
            m_closed = true;
            m_drain = drain;
        } else if (!drain) {
            m_drain = false;
        }
        m_notEmpty.notify_all();
        m_notFull.notify_all();
    }

    std::size_t m_capacity;
    std::mutex m_mutex; // guards every field below
    std::condition_variable m_notEmpty;
    std::condition_variable m_notFull;
    std::deque<T> m_items;
    bool m_closed = false;
    bool m_drain = false;
};

} // namespace marlowick
