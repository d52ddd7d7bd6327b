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

void EditHistory::replaceMedia(const Url& from, const Url& to) {
    for (Step& step : m_steps) {
        for (DocumentState* state : {&step.before, &step.after}) {
            if (state->project.source.mediaURL == from) {
                state->project.source.mediaURL = to;
            }
        }
    }
}

void EditHistory::forgetSteps(const Url& gone) {
    const auto names = [&](const Step& step) {
        return step.before.project.source.mediaURL == gone || step.after.project.source.mediaURL == gone;
    };
    // Undo stops after the last step done that names it; redo stops before the first undone one that does.
    std::size_t forgotten = 0;
    for (std::size_t i = 0; i < m_done; ++i) {
        if (names(m_steps[i])) {
            forgotten = i + 1;
        }
    }
    for (std::size_t i = m_done; i < m_steps.size(); ++i) {
        if (names(m_steps[i])) {
            m_steps.resize(i);
            break;
        }
    }
    m_steps.erase(m_steps.begin(), m_steps.begin() + static_cast<std::ptrdiff_t>(forgotten));
    m_done -= forgotten;
    if (m_saved) {
        m_saved = *m_saved >= forgotten && *m_saved - forgotten <= m_steps.size()
                      ? std::optional(*m_saved - forgotten)
                      : std::nullopt;
    }
}

void EditHistory::markSaved() {
    m_saved = m_done;
}

} // namespace marlowick
