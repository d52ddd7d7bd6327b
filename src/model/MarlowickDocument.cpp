#include "model/MarlowickDocument.h"

#include "model/ModelCoding.h"
#include "model/TelemetryFile.h"

namespace marlowick {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view documentFile = "Document.json";
constexpr std::string_view eventsFile = "Telemetry/events.json";

// A path that names a movie inside the package: relative, and never climbing out with "..".
bool staysInside(const fs::path& relative) {
    if (relative.empty() || relative.is_absolute() || relative.has_root_name()) {
        return false;
    }
    for (const fs::path& part : relative) {
        if (part == "..") {
            return false;
        }
    }
    return true;
}

fs::path normalisedTarget(const fs::path& target) {
    fs::path path = fs::absolute(target).lexically_normal();
    if (path.filename().empty()) {
        path = path.parent_path(); // "x.marlowick/" names the directory itself
    }
    return path;
}

// The movie's place in the package: "Media/" and the movie's own file name.
fs::path mediaRelativePath(const Project& project) {
    const fs::path name = project.source.mediaURL.path().filename();
    if (name.empty()) {
        throw DocumentError(DocumentError::Kind::mediaMissing, project.source.mediaURL.absoluteString);
    }
    return fs::path("Media") / name;
}

// The stored URL is never read back; it is written as the package-relative path under the root so that
// the file doesn't depend on where it was saved from.
Json storedProject(const Project& project, const fs::path& relative) {
    Project stored = project;
    stored.source.mediaURL = Url::fileUrl(fs::path("/") / relative);
    return toJson(stored);
}

} // namespace

MarlowickDocument::MarlowickDocument(Project project_, std::vector<InputEvent> telemetry)
    : project(std::move(project_))
    , m_telemetry(std::move(telemetry)) {}

void MarlowickDocument::setTelemetry(std::vector<InputEvent> telemetry) {
    m_telemetry = std::move(telemetry);
    m_telemetryChanged = true;
}

std::vector<InputEvent>& MarlowickDocument::mutableTelemetry() {
    m_telemetryChanged = true;
    return m_telemetry;
}

MarlowickDocument MarlowickDocument::read(const fs::path& package) {
    const fs::path documentPath = package / documentFile;
    if (!fs::exists(documentPath)) {
        throw DocumentError(DocumentError::Kind::notAPackage, package.string());
    }

    const std::string bytes = fileops::readFile(documentPath);
    const Json json = parseJson(bytes, documentFile);
    const JsonReader envelope(json);
    const std::int64_t formatVersion = envelope.decode<std::int64_t>("formatVersion");
    const std::string relative = envelope.decode<std::string>("mediaRelativePath");
    Project project = envelope.decode<Project>("project");
    // The version is judged only once the whole envelope has been read: a newer file that doesn't decode
    // at all reports what broke.
    if (formatVersion > currentFormatVersion) {
        throw DocumentError(DocumentError::Kind::unsupportedFormatVersion, std::to_string(formatVersion));
    }

    const fs::path mediaPath = package / relative;
    // The path comes from the file: one the system can't even look up (a name too long, a loop of links)
    // is a missing movie like any other.
    std::error_code lookup;
    if (!staysInside(fs::path(relative)) || !fs::is_regular_file(mediaPath, lookup) ||
        !fileops::isInside(mediaPath, package)) {
        throw DocumentError(DocumentError::Kind::mediaMissing, relative);
    }
    // The URL stored in the file is never used: the movie is where the package says.
    project.source.mediaURL = Url::fileUrl(mediaPath);

    MarlowickDocument document;
    document.project = std::move(project);
    document.m_telemetryChanged = false;
    const fs::path eventsPath = package / eventsFile;
    if (fileops::isInside(eventsPath, package)) {
        // The identity is kept even for a damaged file, so that an unchanged save keeps its bytes.
        document.m_telemetrySource = fileops::identityOf(eventsPath);
        // A damaged file is an error, not an empty list: the next edit made from no events (the zooms
        // directed again, say) would quietly throw away everything the take recorded. One that can't be
        // read at all isn't damaged: the system's reason (a permission, a folder in its place) goes out.
        std::error_code error;
        if (fs::exists(eventsPath, error)) {
            auto events = readTelemetryFile(eventsPath);
            if (!events) {
                throw DocumentError(DocumentError::Kind::telemetryDamaged, std::string(eventsFile));
            }
            document.m_telemetry = std::move(*events);
        }
    }
    return document;
}

std::string MarlowickDocument::storedProjectJson() const {
    return storedProject(project, mediaRelativePath(project)).dump(2);
}

void MarlowickDocument::write(const fs::path& requestedTarget) const {
    const fs::path target = normalisedTarget(requestedTarget);
    const bool replacing = fs::exists(fs::symlink_status(target));
    if (replacing && !(fs::is_directory(target) && fs::exists(target / documentFile))) {
        // Whatever is there isn't a package; swapping it out would destroy it.
        throw DocumentError(DocumentError::Kind::notAPackage, target.string());
    }

    // The scratch directory sits beside the target, on its file system, so that the movie and the events
    // come in by hard link and the swap is a rename.
    const fs::path parent = target.parent_path();
    fs::create_directories(parent);
    // The scratch directory goes when the save ends, however it ends.
    const fileops::RemovedOnExit scratch(parent / (".marlowick-save-" + Uuid::random().toString()));
    fs::create_directory(scratch.path());
    for (const char* sub : {"Media", "Telemetry", "Cache"}) {
        fs::create_directory(scratch.path() / sub);
    }
    fileops::markExcludedFromBackup(scratch.path() / "Cache");

    const fs::path mediaPath = project.source.mediaURL.path();
    const fs::path relative = mediaRelativePath(project);
    if (fs::is_regular_file(mediaPath)) {
        fileops::placeFile(mediaPath, scratch.path() / relative);
    } else if (fs::is_regular_file(target / relative)) {
        fileops::placeFile(target / relative, scratch.path() / relative); // the movie of the previous save
    } else {
        throw DocumentError(DocumentError::Kind::mediaMissing, mediaPath.string());
    }

    const Json envelope = {{"formatVersion", currentFormatVersion},
                           {"mediaRelativePath", relative.string()},
                           {"project", storedProject(project, relative)}};
    fileops::writeNewFile(scratch.path() / documentFile, envelope.dump(2) + "\n");

    const fs::path oldEvents = target / eventsFile;
    const bool reuseEvents = !m_telemetryChanged && m_telemetrySource.has_value() &&
                             fileops::identityOf(oldEvents) == m_telemetrySource;
    if (reuseEvents) {
        fileops::placeFile(oldEvents, scratch.path() / eventsFile);
    } else {
        writeTelemetryFile(scratch.path() / eventsFile, m_telemetry);
    }

    for (const char* sub : {"Media", "Telemetry"}) {
        fileops::syncDirectory(scratch.path() / sub);
    }
    fileops::syncDirectory(scratch.path());
    if (replacing) {
        // After the exchange the scratch name holds the previous package, which the guard removes.
        fileops::exchange(scratch.path(), target);
    } else {
        fileops::renameNoReplace(scratch.path(), target);
    }
    fileops::syncDirectory(parent);
}

std::optional<fs::path> MarlowickDocument::packageHolding(const fs::path& path) {
    std::error_code error;
    fs::path folder = fs::weakly_canonical(fs::absolute(path, error), error);
    if (error) {
        return std::nullopt;
    }
    for (folder = folder.parent_path();; folder = folder.parent_path()) {
        const bool named = folder.extension() == "." + std::string(fileExtension);
        if ((named && fs::is_directory(folder, error)) ||
            (fs::is_regular_file(folder / "Document.json", error) &&
             fs::is_directory(folder / "Media", error))) {
            return folder;
        }
        if (folder == folder.parent_path()) {
            return std::nullopt;
        }
    }
}

} // namespace marlowick
