#include "ui/QtFilePanels.h"

#include <QFileDialog>

namespace marlowick {

namespace {

std::optional<std::filesystem::path> chosen(const QString& path) {
    if (path.isEmpty()) {
        return std::nullopt;
    }
    return std::filesystem::path(path.toStdString());
}

} // namespace

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
    return chosen(QFileDialog::getExistingDirectory(m_parent, QObject::tr("Open Project")));
}

std::optional<std::filesystem::path> QtFilePanels::savePackage(const std::string& suggestedName) {
    return chosen(QFileDialog::getSaveFileName(m_parent, QObject::tr("Save Project"),
                                               QString::fromStdString(suggestedName)));
}

std::optional<std::filesystem::path> QtFilePanels::chooseFile(FileKind kind) {
    const QString filter =
        kind == FileKind::audio
            ? QObject::tr("Sound (*.mp3 *.m4a *.aac *.wav *.aif *.aiff *.flac *.ogg *.opus)")
            : QObject::tr("Movies (*.mov *.mp4 *.m4v *.mkv *.webm)");
    return chosen(QFileDialog::getOpenFileName(m_parent, QObject::tr("Choose File"), QString(), filter));
}

std::optional<std::filesystem::path> QtFilePanels::saveFile(const std::string& suggestedName) {
    return chosen(
        QFileDialog::getSaveFileName(m_parent, QObject::tr("Export"), QString::fromStdString(suggestedName)));
}

} // namespace marlowick
