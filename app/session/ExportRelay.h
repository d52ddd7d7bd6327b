#pragma once

#include "session/EditorSession.h"

#include <QMetaObject>

#include <cstdint>
#include <mutex>

namespace marlowick {

// Carries an export's progress from the exporter's thread to the session's. The mutex keeps the session
// alive for the length of one post: the session detaches itself first thing in its destructor, and once
// a post has been queued, Qt drops it with the session.
class EditorSession::ExportRelay {
public:
    explicit ExportRelay(EditorSession* session)
        : m_session(session) {}

    // Called on any thread: sets the phase to `progress` later on the session's thread, if the export
    // numbered `exportNumber` is still running then.
    void post(std::uint64_t exportNumber, double progress) {
        std::lock_guard lock(m_mutex);
        if (m_session == nullptr) {
            return;
        }
        EditorSession* session = m_session;
        QMetaObject::invokeMethod(
            session,
            [session, exportNumber, progress] {
                if (session->m_exportNumber == exportNumber &&
                    session->m_phase.kind() == SessionPhase::Kind::exporting) {
                    session->setPhase(SessionPhase::exporting(progress));
                }
            },
            Qt::QueuedConnection);
    }

    void detach() {
        std::lock_guard lock(m_mutex);
        m_session = nullptr;
    }

private:
    std::mutex m_mutex;
    EditorSession* m_session; // guarded by m_mutex
};

} // namespace marlowick
