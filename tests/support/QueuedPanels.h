#pragma once

// File panels and questions for the session's and the window's tests: each answers with the next answer
// queued for it, and notes what it was asked.

#include "session/FilePanels.h"

#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace marlowick::test {

// A panel with nothing queued is cancelled; an unqueued save question gets `unqueuedSave`, and an
// unqueued recovery declines and keeps the take.
class QueuedPanels : public FilePanels {
public:
    std::deque<std::filesystem::path> packagesToOpen;
    std::deque<std::filesystem::path> packagesToSave;
    std::deque<std::filesystem::path> filesToChoose;
    std::deque<std::filesystem::path> filesToSave;
    std::deque<SaveAnswer> saveAnswers;
    std::deque<bool> recoverAnswers;
    std::deque<bool> deleteAnswers;
    SaveAnswer unqueuedSave = SaveAnswer::cancel;

    std::vector<std::string> proposedNames; // the names the save panels proposed
    std::vector<std::string> askedToRecover;
    std::vector<std::string> askedToDelete;
    int shown = 0;          // panels shown
    int savesAsked = 0;     // questions about unsaved changes
    int questionsAsked = 0; // questions of every kind

    std::optional<std::filesystem::path> openPackage() override { return next(packagesToOpen); }
    std::optional<std::filesystem::path> savePackage(const std::string& name) override {
        proposedNames.push_back(name);
        return next(packagesToSave);
    }
    std::optional<std::filesystem::path> chooseFile(FileKind) override { return next(filesToChoose); }
    std::optional<std::filesystem::path> saveFile(const std::string& name, const FileType&) override {
        proposedNames.push_back(name);
        return next(filesToSave);
    }
    SaveAnswer askToSave(const std::string&) override {
        ++savesAsked;
        return answer(saveAnswers, unqueuedSave);
    }
    bool askToRecover(const std::string& description) override {
        askedToRecover.push_back(description);
        return answer(recoverAnswers, false);
    }
    bool askToDeleteTake(const std::string& description) override {
        askedToDelete.push_back(description);
        return answer(deleteAnswers, false);
    }

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
    std::optional<std::filesystem::path> next(std::deque<std::filesystem::path>& queue) {
        ++shown;
        if (queue.empty()) {
            return std::nullopt;
        }
        std::filesystem::path path = queue.front();
        queue.pop_front();
        return path;
    }
};

} // namespace marlowick::test
