#include "takes/TakeStore.h"

#include "media/MediaInfo.h"
#include "model/ModelCoding.h"
#include "model/TelemetryFile.h"
#include "model/Uuid.h"
#include "trajectory/NewRecording.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view takePrefix = "take-";
constexpr std::string_view movieExtension = ".mov";
constexpr std::string_view recoveryExtension = ".recovery";
// Inside a recovery copy: the project as a package's Document.json holds it, and the telemetry as its
// events file does, each read and written by the package's own coders.
constexpr std::string_view copyDocument = "Document.json";
constexpr std::string_view copyEvents = "events.json";
constexpr std::string_view lockExtension = ".lock";
// A movie that states no frame rate is taken at the rate the capture records.
constexpr double assumedFrameRate = 60;

[[noreturn]] void fail(std::string_view what, const fs::path& path, int error = errno) {
    throw fs::filesystem_error(std::string(what), path, std::error_code(error, std::generic_category()));
}

// The hidden names a recovery copy of `copy` is made under, and that an interrupted write leaves:
// ".take-UUID.recovery-" and a UUID of its own.
fs::path scratchPrefix(const fs::path& copy) {
    return "." + copy.filename().string() + "-";
}

fs::path lockOf(const fs::path& movie) {
    fs::path lock = movie;
    return lock.replace_extension(lockExtension);
}

bool isTakeMovie(const fs::path& path) {
    const std::string name = path.filename().string();
    return name.starts_with(takePrefix) && path.extension() == movieExtension;
}

// Whether some process holds the take: its lock file is locked. A lock that can be taken, even for an
// instant, belongs to nobody; a missing lock file means the same.
bool isHeld(const fs::path& movie) {
    const fileops::UniqueFd fd(::open(lockOf(movie).c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        return false;
    }
    // A shared lock, so that two lookers at once don't take each other for holders.
    if (::flock(fd.get(), LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK;
    }
    ::flock(fd.get(), LOCK_UN);
    return false;
}

} // namespace

TakeStore::TakeStore(fs::path folder)
    : m_folder(std::move(folder)) {}

fs::path TakeStore::defaultFolder() {
    fs::path data;
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && fs::path(xdg).is_absolute()) {
        data = xdg;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        data = fs::path(home) / ".local" / "share";
    } else {
        data = fs::temp_directory_path(); // no home at all: the takes at least go somewhere
    }
    return data / "marlowick" / "takes";
}

void TakeStore::makeFolder() const {
    fs::create_directories(m_folder.parent_path());
    if (::mkdir(m_folder.c_str(), 0700) != 0) {
        if (errno != EEXIST) {
            fail("create", m_folder);
        }
        // Made by hand or by an older version with the usual permissions: closed now, before a take is put
        // in it.
        if (!fs::is_directory(m_folder)) {
            fail("create", m_folder, ENOTDIR);
        }
        fs::permissions(m_folder, fs::perms::owner_all, fs::perm_options::replace);
    }
}

TakeStore::Hold TakeStore::newTake() const {
    makeFolder();
    const fs::path movie =
        m_folder / (std::string(takePrefix) + Uuid::random().toString() + std::string(movieExtension));
    std::optional<Hold> held = hold(movie);
    if (!held) {
        fail("lock", lockOf(movie), EWOULDBLOCK); // a fresh name nobody else can know
    }
    return std::move(*held);
}

std::optional<TakeStore::Hold> TakeStore::hold(const fs::path& movie) const {
    const fs::path lock = lockOf(movie);
    // A holder that ends removes its lock file; one opened just before that removal locks a file nobody
    // else will find, so the lock counts only once the name still leads to the file locked.
    for (;;) {
        fileops::UniqueFd fd(::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (fd.get() < 0) {
            fail("open", lock);
        }
        if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK) {
                return std::nullopt;
            }
            fail("lock", lock);
        }
        struct stat opened {};
        struct stat named {};
        if (::fstat(fd.get(), &opened) == 0 && ::stat(lock.c_str(), &named) == 0 &&
            opened.st_dev == named.st_dev && opened.st_ino == named.st_ino) {
            return Hold(movie, std::move(fd));
        }
    }
}

std::vector<fs::path> TakeStore::abandonedTakes() const {
    std::vector<std::pair<fs::file_time_type, fs::path>> found;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_folder, error)) {
        std::error_code ignored;
        if (isTakeMovie(entry.path()) && entry.is_regular_file(ignored) && !isHeld(entry.path())) {
            found.emplace_back(entry.last_write_time(ignored), entry.path());
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw fs::filesystem_error("list", m_folder, error);
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<fs::path> movies;
    for (auto& [time, movie] : found) {
        movies.push_back(std::move(movie));
    }
    return movies;
}

fs::path TakeStore::recoveryCopyOf(const fs::path& movie) {
    fs::path copy = movie;
    return copy.replace_extension(recoveryExtension);
}

void TakeStore::writeRecoveryCopy(const fs::path& movie, const MarlowickDocument& document) {
    const fs::path target = recoveryCopyOf(movie);
    const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    // The new copy is made whole beside the last one, and the two are exchanged in one step; the last one
    // then goes with the scratch name.
    const fileops::RemovedOnExit scratch(folder / scratchPrefix(target).concat(Uuid::random().toString()));
    if (::mkdir(scratch.path().c_str(), 0700) != 0) {
        fail("create", scratch.path());
    }
    Project stored = document.project;
    stored.source.mediaURL = Url::fileUrl(fs::path("/") / movie.filename());
    const Json envelope = {{"formatVersion", MarlowickDocument::currentFormatVersion},
                           {"movie", movie.filename().string()},
                           {"project", toJson(stored)}};
    {
        fileops::FileWriter writer(scratch.path() / copyDocument, fileops::privatePermissions);
        writer.append(envelope.dump(2) + "\n");
        writer.finish();
    }
    writeTelemetryFile(scratch.path() / copyEvents, document.telemetry(), fileops::privatePermissions);
    fileops::syncDirectory(scratch.path());
    if (fs::exists(fs::symlink_status(target))) {
        fileops::exchange(scratch.path(), target);
    } else {
        fileops::renameNoReplace(scratch.path(), target);
    }
    fileops::syncDirectory(folder);
}

TakeSummary TakeStore::summarise(const fs::path& movie) {
    TakeSummary summary;
    summary.movie = movie;
    const fs::file_time_type written = fs::last_write_time(movie);
    summary.started = std::chrono::file_clock::to_sys(written);
    try {
        summary.duration = MediaInfo::of(movie).duration;
        summary.started -= std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::duration<double>(*summary.duration));
    } catch (const std::exception&) {
        summary.duration.reset(); // killed before its first fragment: nothing reads back
    }
    std::error_code ignored;
    summary.hasEdits = fs::exists(recoveryCopyOf(movie) / copyDocument, ignored);
    return summary;
}

MarlowickDocument TakeStore::documentOf(const fs::path& movie) {
    const fs::path copy = recoveryCopyOf(movie);
    std::error_code missing;
    if (!fs::exists(copy / copyDocument, missing)) {
        return documentOfMovie(movie);
    }
    std::int64_t formatVersion = 0;
    Project project;
    try {
        const Json json = parseJson(fileops::readFile(copy / copyDocument), copyDocument);
        const JsonReader envelope(json);
        formatVersion = envelope.decode<std::int64_t>("formatVersion");
        project = envelope.decode<Project>("project");
    } catch (const CodingError& error) {
        throw TakeError(TakeError::Kind::recoveryCopyDamaged, error.what());
    }
    if (formatVersion > MarlowickDocument::currentFormatVersion) {
        throw DocumentError(DocumentError::Kind::unsupportedFormatVersion, std::to_string(formatVersion));
    }
    std::optional<std::vector<InputEvent>> telemetry;
    if (fs::exists(copy / copyEvents, missing)) {
        telemetry = readTelemetryFile(copy / copyEvents);
    }
    if (!telemetry) {
        throw TakeError(TakeError::Kind::recoveryCopyDamaged,
                        std::string(copyEvents) + " doesn't hold the take's events");
    }
    // The stored place is never read back: the movie is the one beside the copy.
    project.source.mediaURL = Url::fileUrl(fs::absolute(movie));
    project.source.inputEvents.clear();
    return MarlowickDocument(std::move(project), std::move(*telemetry));
}

MarlowickDocument TakeStore::documentOfMovie(const fs::path& movie) {
    const MediaInfo info = MediaInfo::of(movie);
    if (info.videoTracks == 0 || info.width <= 0 || info.height <= 0) {
        throw TakeError(TakeError::Kind::noPicture, movie.string());
    }
    Recording recording;
    recording.mediaURL = Url::fileUrl(fs::absolute(movie));
    recording.size = {static_cast<double>(info.width), static_cast<double>(info.height)};
    recording.frameRate = info.frameRate > 0 ? info.frameRate : assumedFrameRate;
    recording.duration = info.duration;
    // The capture writes the system's sound first and the microphone second; a single track is taken for
    // the system's sound, which is recorded unless someone turned it off.
    recording.capturedSystemAudio = info.audioTracks >= 1;
    recording.capturedMicrophone = info.audioTracks >= 2;
    return documentForNewRecording(recording, std::string(recoveredName));
}

TakeStore::Hold& TakeStore::Hold::operator=(Hold&& other) noexcept {
    if (this != &other) {
        release();
        m_movie = std::move(other.m_movie);
        m_lock = std::move(other.m_lock);
    }
    return *this;
}

TakeStore::Hold::~Hold() {
    release();
}

void TakeStore::Hold::discard() {
    if (m_lock.get() < 0) {
        return;
    }
    std::error_code ignored;
    const fs::path copy = recoveryCopyOf(m_movie);
    fs::remove_all(copy, ignored);
    // What an interrupted write of the copy left.
    const std::string scratch = scratchPrefix(copy).string();
    for (const fs::directory_entry& entry : fs::directory_iterator(copy.parent_path(), ignored)) {
        if (entry.path().filename().string().starts_with(scratch)) {
            fs::remove_all(entry.path(), ignored);
        }
    }
    fs::remove(m_movie, ignored);
    release();
}

void TakeStore::Hold::release() {
    if (m_lock.get() < 0) {
        return;
    }
    // The file goes before the lock, so that nobody finds it locked by a holder that has ended.
    std::error_code ignored;
    fs::remove(lockOf(m_movie), ignored);
    m_lock.reset();
}

} // namespace marlowick
