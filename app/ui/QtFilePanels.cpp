#include "ui/QtFilePanels.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>

namespace marlowick {

namespace {

constexpr const char* lastFolderKey = "panels/lastFolder";

// The chosen path, its folder remembered for the next panel.
std::optional<std::filesystem::path> chosen(const QString& path) {
    if (path.isEmpty()) {
        return std::nullopt;
    }
    QSettings().setValue(lastFolderKey, QFileInfo(path).absolutePath());
    return std::filesystem::path(path.toStdString());
}

QString inStartingFolder(const std::string& name) {
    return QDir(QtFilePanels::startingFolder()).filePath(QString::fromStdString(name));
}

} // namespace

QString QtFilePanels::startingFolder() {
    const QString last = QSettings().value(lastFolderKey).toString();
    if (!last.isEmpty() && QFileInfo(last).isDir()) {
        return last;
    }
    const QString videos = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    if (!videos.isEmpty() && QFileInfo(videos).isDir()) {
        return videos;
    }
    return QDir::homePath();
}

QtFilePanels::QtFilePanels(QWidget* parent)
    : m_parent(parent) {}

void QtFilePanels::answerNextOpen(std::filesystem::path package) {
    m_answers.push_back(std::move(package));
}

std::optional<std::filesystem::path> QtFilePanels::openPackage() {
    if (!m_answers.empty()) {
        auto answer = std::move(m_answers.front());
        m_answers.pop_front();
        return answer;
    }
    return chosen(QFileDialog::getExistingDirectory(m_parent, QObject::tr("Open Project"), startingFolder()));
}

std::optional<std::filesystem::path> QtFilePanels::savePackage(const std::string& suggestedName) {
    return chosen(QFileDialog::getSaveFileName(m_parent, QObject::tr("Save Project"),
                                               inStartingFolder(suggestedName)));
}

std::optional<std::filesystem::path> QtFilePanels::chooseFile(FileKind kind) {
    const QString filter =
        kind == FileKind::audio
            ? QObject::tr("Sound (*.mp3 *.m4a *.aac *.wav *.aif *.aiff *.flac *.ogg *.opus)")
            : QObject::tr("Movies (*.mov *.mp4 *.m4v *.mkv *.webm)");
    return chosen(QFileDialog::getOpenFileName(m_parent, QObject::tr("Choose File"), startingFolder(), filter));
}

std::optional<std::filesystem::path> QtFilePanels::saveFile(const std::string& suggestedName,
                                                            const FileType& type) {
    const QString filter = QString::fromStdString(type.description + " (*." + type.extension + ")");
    return chosen(
        QFileDialog::getSaveFileName(m_parent, QObject::tr("Export"), inStartingFolder(suggestedName), filter));
}

FilePanels::SaveAnswer QtFilePanels::askToSave(const std::string& projectName) {
    QMessageBox box(QMessageBox::Warning, QObject::tr("Marlowick"),
                    QObject::tr("Save the changes to “%1”?").arg(QString::fromStdString(projectName)),
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, m_parent);
    box.setInformativeText(QObject::tr("Your changes are lost if you don't save them."));
    box.setDefaultButton(QMessageBox::Save);
    switch (box.exec()) {
    case QMessageBox::Save:
        return SaveAnswer::save;
    case QMessageBox::Discard:
        return SaveAnswer::discard;
    default:
        return SaveAnswer::cancel;
    }
}

bool QtFilePanels::askToRecover(const std::string& description) {
    QMessageBox box(QMessageBox::Question, QObject::tr("Marlowick"),
                    QObject::tr("Recover %1?").arg(QString::fromStdString(description)), QMessageBox::NoButton,
                    m_parent);
    box.setInformativeText(QObject::tr("Marlowick ended before this take was saved."));
    QPushButton* recover = box.addButton(QObject::tr("Recover"), QMessageBox::AcceptRole);
    box.addButton(QObject::tr("Don't Recover"), QMessageBox::RejectRole);
    box.setDefaultButton(recover);
    box.exec();
    return box.clickedButton() == recover;
}

bool QtFilePanels::askToDeleteTake(const std::string& description) {
    QMessageBox box(QMessageBox::Warning, QObject::tr("Marlowick"),
                    QObject::tr("Delete %1?").arg(QString::fromStdString(description)), QMessageBox::NoButton,
                    m_parent);
    box.setInformativeText(QObject::tr("A deleted take can't be recovered. Kept, it is offered again at the "
                                       "next start."));
    QPushButton* remove = box.addButton(QObject::tr("Delete"), QMessageBox::DestructiveRole);
    QPushButton* keep = box.addButton(QObject::tr("Keep"), QMessageBox::RejectRole);
    box.setDefaultButton(keep);
    box.exec();
    return box.clickedButton() == remove;
}

} // namespace marlowick
