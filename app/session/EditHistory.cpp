#include "session/EditHistory.h"

namespace marlowick {

EditHistory::EditHistory(bool saved) {
    if (saved) {
        m_saved = 0;
    }
}

void EditHistory::record(Step step) {
    // A saved state among the undone steps can't come back once they are dropped.
    if (m_saved && *m_saved > m_done) {
        m_saved.reset();
    }
    const bool undoneBetween = m_steps.size() > m_done;
    m_steps.resize(m_done);
    const bool mergeable = !undoneBetween && !m_steps.empty() && !step.gesture.empty() && m_steps.back().gesture == step.gesture &&
                           step.at - m_steps.back().at < gestureGap && !(m_saved && *m_saved == m_done);
    if (mergeable) {
        Step& last = m_steps.back();
        last.after = std::move(step.after);
        last.at = step.at;
        return;
    }
    m_steps.push_back(std::move(step));
    m_done = m_steps.size();
}

const EditHistory::Step* EditHistory::undo() {
    if (m_done == 0) {
        return nullptr;
    }
    --m_done;
    return &m_steps[m_done];
}

const EditHistory::Step* EditHistory::redo() {
    if (m_done == m_steps.size()) {
        return nullptr;
    }
    ++m_done;
    return &m_steps[m_done - 1];
}

std::optional<std::string> EditHistory::undoName() const {
    if (m_done == 0) {
        return std::nullopt;
    }
    return m_steps[m_done - 1].name;
}

std::optional<std::string> EditHistory::redoName() const {
    if (m_done == m_steps.size()) {
        return std::nullopt;
    }
    return m_steps[m_done].name;
}

void EditHistory::markSaved() {
    m_saved = m_done;
}

} // namespace marlowick
