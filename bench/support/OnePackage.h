#pragma once

// File panels for the application's benchmarks: every open answers one package, everything else is
// cancelled.

#include "session/FilePanels.h"

#include <filesystem>
#include <optional>
#include <string>

namespace marlowick::bench {

class OnePackage : public FilePanels {
public:
    explicit OnePackage(std::filesystem::path package)
        : m_package(std::move(package)) {}
    std::optional<std::filesystem::path> openPackage() override { return m_package; }
    std::optional<std::filesystem::path> savePackage(const std::string&) override { return std::nullopt; }
    std::optional<std::filesystem::path> chooseFile(FileKind) override { return std::nullopt; }
    SaveAnswer askToSave(const std::string&) override { return SaveAnswer::discard; }
    bool askToRecover(const std::string&) override { return false; }
    bool askToDeleteTake(const std::string&) override { return false; }
    std::optional<std::filesystem::path> saveFile(const std::string&, const FileType&) override {
        return std::nullopt;
    }

private:
    std::filesystem::path m_package;
};

} // namespace marlowick::bench
