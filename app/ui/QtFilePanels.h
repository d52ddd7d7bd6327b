#pragma once

#include "session/FilePanels.h"

#include <QPointer>
#include <QWidget>

#include <deque>

namespace marlowick {

// The session's file panels as Qt's standard dialogs, modal over `parent`. A package is a folder, so it is
// opened with a folder chooser. Each panel opens where the last one was answered (remembered between
// launches), the first in the person's Videos folder.
//
// Thread: the main thread only. The parent is not owned and may be set after construction.
class QtFilePanels : public FilePanels {
public:
    explicit QtFilePanels(QWidget* parent = nullptr);
    void setParent(QWidget* parent) { m_parent = parent; }

    // The next openPackage answers `package` without showing a panel: a package named on the command line
    // opens through the session's ordinary open.
    void answerNextOpen(std::filesystem::path package);

    std::optional<std::filesystem::path> openPackage() override;
    std::optional<std::filesystem::path> savePackage(const std::string& suggestedName) override;
    std::optional<std::filesystem::path> chooseFile(FileKind kind) override;
    std::optional<std::filesystem::path> saveFile(const std::string& suggestedName,
                                                  const FileType& type) override;
    SaveAnswer askToSave(const std::string& projectName) override;
    bool askToRecover(const std::string& description) override;
    bool askToDeleteTake(const std::string& description) override;

    // Where a panel opens: the folder last chosen in one, or else the person's Videos folder.
    static QString startingFolder();

private:
    QPointer<QWidget> m_parent;
    std::deque<std::filesystem::path> m_answers;
};

} // namespace marlowick
