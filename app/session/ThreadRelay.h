#pragma once

#include <QMetaObject>
#include <QPointer>

#include <functional>
#include <mutex>

namespace marlowick {

// Carries work from other threads (a player's, an exporter's) to the thread of a QObject that may go at
// any time. The mutex keeps the target alive for the length of one post: the target detaches the relay
// first thing in its destructor, and a post already queued is dropped by Qt with the target (and checked
// through a QPointer besides). Shared by the target and every callback that posts, so it outlives both.
template <class Target> class ThreadRelay {
public:
    explicit ThreadRelay(Target* target)
        : m_target(target) {}

    // Called on any thread: runs `apply` later on the target's thread, if the target is still there then.
    void post(std::function<void(Target&)> apply) {
        std::lock_guard lock(m_mutex);
        if (m_target == nullptr) {
            return;
        }
        QMetaObject::invokeMethod(
            m_target,
            [target = QPointer<Target>(m_target), apply = std::move(apply)] {
                if (target) {
                    apply(*target);
                }
            },
            Qt::QueuedConnection);
    }

    void detach() {
        std::lock_guard lock(m_mutex);
        m_target = nullptr;
    }

private:
    std::mutex m_mutex;
    Target* m_target; // guarded by m_mutex
};

} // namespace marlowick
