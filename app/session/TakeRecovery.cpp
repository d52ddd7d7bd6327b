// Takes and their recovery: each capture recorded into the takes folder and held there, the recovery copy
// of an unsaved project beside its take, the takes moved out by a save or deleted by a discard, and the
// takes a session left behind offered again at the next start.

#include "session/EditorSession.h"

#include "messages/Describe.h"
#include "session/SessionTakes.h"

#include <QCoroFuture>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>

namespace marlowick {

namespace fs = std::filesystem;

const fs::path& EditorSession::takesFolder() const {
    return m_takes->store.folder();
}

std::optional<fs::path> EditorSession::holdNewTake() {
    try {
        TakeStore::Hold take = m_takes->store.newTake();
        fs::path movie = take.movie();
        m_takes->recording.push_back(std::move(take));
        return movie;
    } catch (const fs::filesystem_error& error) {
        setLastError("Can't record: the takes folder " + m_takes->store.folder().string() +
                     " can't be written (" + error.code().message() + ")");
        return std::nullopt;
    }
}

void EditorSession::takeNotStarted(const fs::path& movie) {
    std::vector<TakeStore::Hold>& recording = m_takes->recording;
    const auto take = std::find_if(recording.begin(), recording.end(),
                                   [&](const TakeStore::Hold& held) { return held.movie() == movie; });
    if (take != recording.end()) {
        // Nothing was recorded: a writer that got as far as the movie's header leaves no take.
        take->discard();
        recording.erase(take);
    }
}

void EditorSession::takeStopped(const std::optional<Recording>& recording) {
    std::vector<TakeStore::Hold> ended = std::exchange(m_takes->recording, {});
    for (TakeStore::Hold& take : ended) {
        const bool playing = recording && m_document && recording->mediaURL.path() == take.movie() &&
                             m_document->project.source.mediaURL.path() == take.movie();
        if (playing) {
            m_takes->projectId = m_document->project.id;
            m_takes->project.push_back(std::move(take));
            // The telemetry lives only in memory until the first copy is written.
            m_takes->recoveryTimer.start();
        }
        // Any other take's hold ends here: what it recorded stays in the folder for the next start.
    }
}

void EditorSession::projectTakesClosing() {
    if (m_takes->recoveryTimer.isActive()) {
        writeRecoveryCopy();
    }
    m_takes->project.clear();
}

void EditorSession::takesDocumentChanged() {
    if (m_takes->project.empty()) {
        return;
    }
    if (!m_document || m_document->project.id != m_takes->projectId) {
        // Replaced by another project without a word to the takes: its edits of the last moments are gone
        // with it, and its takes stay in the folder as they are.
        m_takes->recoveryTimer.stop();
        m_takes->project.clear();
        return;
    }
    if (m_takes->holdsProjectTake(m_document->project.source.mediaURL.path())) {
        m_takes->recoveryTimer.start();
    }
}

void EditorSession::writeRecoveryCopy() {
    m_takes->recoveryTimer.stop();
    if (!m_document) {
        return;
    }
    const fs::path movie = m_document->project.source.mediaURL.path();
    if (m_takes->holdsProjectTake(movie)) {
        keep(runRecoveryCopy(*m_document, movie));
    }
}

QCoro::Task<> EditorSession::runRecoveryCopy(MarlowickDocument document, fs::path movie) {
    const Alive self(this);
    // Encoding the telemetry and flushing the file to the disk take longer than a frame: off this thread.
    QFuture<std::optional<std::string>> writing = QtConcurrent::run(
        &m_takes->writer, [document = std::move(document), movie]() -> std::optional<std::string> {
            try {
                TakeStore::writeRecoveryCopy(movie, document);
                return std::nullopt;
            } catch (const std::exception& error) {
                return marlowick::describe(error, PackageAccess::saving);
            }
        });
    const std::optional<std::string> error = co_await writing;
    if (self && error) {
        setLastError("Could not keep a recovery copy of the take: " + *error);
    }
}

void EditorSession::stopRecoveryCopies() {
    m_takes->recoveryTimer.stop();
    m_takes->writer.waitForDone();
}

void EditorSession::takeSaved(const fs::path& package) {
    if (m_takes->project.empty()) {
        return;
    }
    stopRecoveryCopies();
    if (m_document && m_takes->holdsProjectTake(m_document->project.source.mediaURL.path())) {
        // The project plays its movie in the package from now on, as if it had been opened from there. A
        // package without it (it can't be, after a save that succeeded) keeps the takes where they are.
        const fs::path movie = m_document->project.source.mediaURL.path();
        fs::path saved = fs::absolute(package).lexically_normal();
        if (saved.filename().empty()) {
            saved = saved.parent_path();
        }
        saved = saved / "Media" / movie.filename();
        std::error_code error;
        if (!fs::is_regular_file(saved, error)) {
            return;
        }
        const Url savedUrl = Url::fileUrl(saved);
        if (m_loadedMovie == m_document->project.source.mediaURL) {
            m_loadedMovie = savedUrl;
        }
        // The history's states play it there too.
        m_history.replaceMedia(m_document->project.source.mediaURL, savedUrl);
        m_document->project.source.mediaURL = savedUrl;
        // A preview still waiting to start would look for the take where it was.
        if (m_previewDebounce) {
            reloadPlayback(true);
        }
    }
    // The takes a retake replaced go too: the package holds the project now, and no undo reaches a state
    // that played one of them.
    for (TakeStore::Hold& take : m_takes->project) {
        if (!m_document || take.movie() != m_document->project.source.mediaURL.path()) {
            m_history.forgetSteps(Url::fileUrl(take.movie()));
        }
        take.discard();
    }
    m_takes->project.clear();
    emit historyChanged();
}

void EditorSession::discardTake() {
    stopRecoveryCopies();
    for (TakeStore::Hold& take : m_takes->project) {
        take.discard();
    }
    m_takes->project.clear();
}

void EditorSession::recoverAbandonedTakes() {
    if (m_document || !canOpen()) {
        return;
    }
    std::vector<fs::path> abandoned;
    try {
        abandoned = m_takes->store.abandonedTakes();
    } catch (const std::exception& error) {
        setLastError("Could not look for takes to recover: " + marlowick::describe(error));
        return;
    }
    for (const fs::path& movie : abandoned) {
        std::optional<TakeStore::Hold> take;
        try {
            take = m_takes->store.hold(movie);
        } catch (const std::exception&) {
            // A lock that can't be taken: the take is left for a later start.
        }
        if (!take) {
            continue; // another window offers it
        }
        std::string description;
        try {
            description = TakeStore::summarise(movie).description();
        } catch (const std::exception&) {
            continue; // gone meanwhile
        }
        if (m_panels->askToRecover(description)) {
            if (openRecoveredTake(std::move(*take), description)) {
                return;
            }
        } else if (m_panels->askToDeleteTake(description)) {
            take->discard();
        }
    }
}

bool EditorSession::openRecoveredTake(TakeStore::Hold take, const std::string& description) {
    std::optional<MarlowickDocument> document;
    std::optional<std::string> warning;
    try {
        try {
            document = TakeStore::documentOf(take.movie());
        } catch (const TakeError& error) {
            if (error.kind() != TakeErrorKind::recoveryCopyDamaged) {
                throw;
            }
            // The take is still worth having without its edits.
            document = TakeStore::documentOfMovie(take.movie());
            warning = "Recovered " + description + " without its edits: " + marlowick::describe(error);
        }
    } catch (const std::exception& error) {
        setLastError("Could not recover " + description + ": " + marlowick::describe(error));
        return false;
    }
    projectTakesClosing();
    setDocument(std::move(document));
    setPackageUrl(std::nullopt);
    m_takes->projectId = m_document->project.id;
    m_takes->project.push_back(std::move(take));
    refreshDerivedState();
    setPhase(SessionPhase::editing());
    if (warning) {
        setLastError(warning);
    }
    return true;
}

} // namespace marlowick
