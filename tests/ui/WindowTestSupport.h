#pragma once

// What the window's tests share: file panels that answer from queues, and waiting on the event loop.

#include "session/EditorSession.h"
#include "session/FilePanels.h"
#include "session/PlaybackEngine.h"

#include <QApplication>

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace marlowick::test {

// File panels that answer each question with the next path queued for it, or as cancelled when none is.
class QueuedPanels : public FilePanels {
public:
    std::deque<std::filesystem::path> packagesToOpen;
    std::deque<std::filesystem::path> packagesToSave;
    std::deque<std::filesystem::path> filesToChoose;
    std::deque<std::filesystem::path> filesToSave;
    // The answers to the questions, in order; none queued answers Cancel, and declines and keeps a take.
    std::deque<SaveAnswer> saveAnswers;
    std::deque<bool> recoverAnswers;
    std::deque<bool> deleteAnswers;
    int questionsAsked = 0;

    std::optional<std::filesystem::path> openPackage() override { return next(packagesToOpen); }
    std::optional<std::filesystem::path> savePackage(const std::string&) override {
        return next(packagesToSave);
    }
    std::optional<std::filesystem::path> chooseFile(FileKind) override { return next(filesToChoose); }
    std::optional<std::filesystem::path> saveFile(const std::string&, const FileType&) override {
        return next(filesToSave);
    }
    SaveAnswer askToSave(const std::string&) override { return answer(saveAnswers, SaveAnswer::cancel); }
    bool askToRecover(const std::string&) override { return answer(recoverAnswers, false); }
    bool askToDeleteTake(const std::string&) override { return answer(deleteAnswers, false); }

private:
    template <class Answer> Answer answer(std::deque<Answer>& queue, Answer otherwise) {
        ++questionsAsked;
        if (queue.empty()) {
            return otherwise;
        }
        Answer given = queue.front();
        queue.pop_front();
        return given;
    }
    static std::optional<std::filesystem::path> next(std::deque<std::filesystem::path>& queue) {
        if (queue.empty()) {
            return std::nullopt;
        }
        std::filesystem::path path = queue.front();
        queue.pop_front();
        return path;
    }
};

// Runs the event loop until `done` holds or `seconds` have passed; answers whether it holds.
inline bool within(double seconds, const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done() && std::chrono::steady_clock::now() < end) {
        QApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return done();
}

// Whether the package just opened in `session` plays as it will stay: the player loaded, and where the
// project processes its sound, loaded again with the mix once that is rendered. Until then a reload may
// come at any moment, and a seek asked while the player is being replaced is dropped.
inline bool openedPreviewSettled(const EditorSession& session) {
    if (!session.document() || session.playback()->videoOutput() == nullptr) {
        return false;
    }
    return session.document()->project.audio.isPassthrough() ||
           (session.audioPreviewUrl().has_value() && !session.isRenderingAudioPreview());
}

} // namespace marlowick::test
