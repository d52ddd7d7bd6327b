#pragma once

#include "model/Uuid.h"
#include "takes/TakeStore.h"

#include <QThreadPool>
#include <QTimer>

#include <chrono>
#include <filesystem>
#include <vector>

namespace marlowick {

// What the session holds of the takes folder: the take being captured, and the takes of the open project
// that were never saved into a package, each held so that no other window offers to recover it. The
// recovery copy of the open project is written beside its take once the edits have paused for
// `recoveryDelay`, on a thread of its own, one write after the other.
//
// Thread: the session's. Owned by the session (EditorSession, TakeRecovery.cpp), which alone uses it.
struct SessionTakes {
    static constexpr std::chrono::milliseconds recoveryDelay{2000};

    explicit SessionTakes(TakeStore takes)
        : store(std::move(takes)) {
        recoveryTimer.setSingleShot(true);
        recoveryTimer.setInterval(recoveryDelay);
        writer.setMaxThreadCount(1);
    }

    // Whether `movie` is one of the open project's takes.
    bool holdsProjectTake(const std::filesystem::path& movie) const {
        for (const TakeStore::Hold& take : project) {
            if (take.movie() == movie) {
                return true;
            }
        }
        return false;
    }

    TakeStore store;
    // The takes of the captures asked for and not yet ended: one while a take runs.
    std::vector<TakeStore::Hold> recording;
    // The open project's takes in the folder: the one it plays and those a retake replaced, which its
    // history may still name. Kept on disk when the project is closed; deleted when it is saved or
    // discarded.
    std::vector<TakeStore::Hold> project;
    // The project those takes belong to; a document of another project closes them.
    Uuid projectId;
    // Runs out `recoveryDelay` after the last edit.
    QTimer recoveryTimer;
    // The recovery copies are written here, one at a time, so that a save or a discard that waits for it
    // finds no copy still coming.
    QThreadPool writer;
};

} // namespace marlowick
