#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace marlowick {

// The file panels and the questions the session asks the person through: the window answers with Qt's
// dialogs, a test with a fake. Each call shows one panel or question modally and answers the chosen path
// (or nothing when the person cancelled) or the answer. Thread: called on the session's thread only.
class FilePanels {
public:
    // What a file chooser offers.
    enum class FileKind {
        audio, // sound files: MP3, MPEG-4 audio, WAV, AIFF and the rest
        movie, // movie files
    };

    // The type of a file to write, as the panel's filter names it: "MPEG-4 movie" and "mp4".
    struct FileType {
        std::string description;
        std::string extension;
    };

    // What to do with unsaved changes before an action that would drop them.
    enum class SaveAnswer { save, discard, cancel };

    virtual ~FilePanels() = default;

    // A package folder to open; files can't be chosen.
    virtual std::optional<std::filesystem::path> openPackage() = 0;
    // Where to write a package, the name field holding `suggestedName`.
    virtual std::optional<std::filesystem::path> savePackage(const std::string& suggestedName) = 0;
    // One existing file of `kind`; folders can't be chosen.
    virtual std::optional<std::filesystem::path> chooseFile(FileKind kind) = 0;
    // Where to write a new file of `type`, the name field holding `suggestedName`.
    virtual std::optional<std::filesystem::path> saveFile(const std::string& suggestedName,
                                                          const FileType& type) = 0;
    // Whether to save the unsaved changes of the project `projectName` first: Save, Don't Save or Cancel,
    // Save the default.
    virtual SaveAnswer askToSave(const std::string& projectName) = 0;
    // Offers to recover a take left by a session that ended without saving it, `description` naming its
    // date and length; true to recover it.
    virtual bool askToRecover(const std::string& description) = 0;
    // Asked after a declined recovery, before anything is deleted: true deletes the take for good, false
    // keeps it for the next start.
    virtual bool askToDeleteTake(const std::string& description) = 0;
};

} // namespace marlowick
