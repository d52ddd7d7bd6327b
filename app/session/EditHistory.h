#pragma once

#include "model/InputEvent.h"
#include "model/Project.h"
#include "model/Url.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace marlowick {

// A state of the open document that an edit can go back to: the project, and the telemetry it goes with.
// The telemetry is shared between states, since only a new take changes it.
struct DocumentState {
    Project project;
    std::shared_ptr<const std::vector<InputEvent>> telemetry;
};

// The undo history of one open document: named steps, each with the states before and after it, and where
// the document was last saved. The steps of one gesture (a slider's moves, a drag's) merge into one: a step
// whose gesture matches the last one's, within `gestureGap` of it and with nothing undone or saved between,
// extends that step instead of adding one. A value; no Qt.
class EditHistory {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds gestureGap{1500};

    struct Step {
        std::string name;    // what the menu says: Undo "name"
        std::string gesture; // empty: never merged
        DocumentState before;
        DocumentState after;
        Clock::time_point at; // when the step (its last merged part) was made
    };

    // A fresh history of a document as read or recorded; `saved` says whether that state is on disk.
    explicit EditHistory(bool saved = false);

    // Adds a step after the steps done, dropping those undone.
    void record(Step step);
    // The step to undo, whose `before` becomes the document, or none; then it is the next to redo.
    const Step* undo();
    // The step to redo, whose `after` becomes the document, or none.
    const Step* redo();

    std::optional<std::string> undoName() const;
    std::optional<std::string> redoName() const;

    // Every state that plays the movie at `from` plays the one at `to` instead: a take saved into its
    // package is the same movie there.
    void replaceMedia(const Url& from, const Url& to);
    // Forgets every step up to the last whose states play the movie at `gone`, since the movie was removed:
    // no undo reaches a state without its take.
    void forgetSteps(const Url& gone);

    // The present state is the one on disk.
    void markSaved();
    bool isAtSaved() const { return m_saved && *m_saved == m_done; }

private:
    std::vector<Step> m_steps;
    std::size_t m_done = 0; // steps done; those after it were undone
    // How many steps were done when the document was last saved; none once that state can't come back.
    std::optional<std::size_t> m_saved;
};

} // namespace marlowick
