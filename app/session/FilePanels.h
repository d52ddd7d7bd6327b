#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace marlowick {

// The file panels the session asks the person through: the window answers with Qt's dialogs, a test with
// a fake. Each call shows one panel modally and answers the chosen path, or nothing when the person
// cancelled. Thread: called on the session's thread only.
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
};

} // namespace marlowick
