#pragma once

namespace marlowick {

// Where the application is: the record screen, a running capture, the editor, or an export with its
// progress. A value; only `exporting` carries a payload.
class SessionPhase {
public:
    enum class Kind { idle, recording, editing, exporting };

    SessionPhase() = default;
    static SessionPhase idle() { return SessionPhase(Kind::idle, 0); }
    static SessionPhase recording() { return SessionPhase(Kind::recording, 0); }
    static SessionPhase editing() { return SessionPhase(Kind::editing, 0); }
    // `progress` runs from 0 to 1.
    static SessionPhase exporting(double progress) { return SessionPhase(Kind::exporting, progress); }

    Kind kind() const { return m_kind; }
    // The export's progress; 0 in every other phase.
    double progress() const { return m_progress; }
    // Editing and exporting work on an open project.
    bool needsDocument() const { return m_kind == Kind::editing || m_kind == Kind::exporting; }

    friend bool operator==(const SessionPhase&, const SessionPhase&) = default;

private:
    SessionPhase(Kind kind, double progress)
        : m_kind(kind)
        , m_progress(progress) {}

    Kind m_kind = Kind::idle;
    double m_progress = 0;
};

} // namespace marlowick
