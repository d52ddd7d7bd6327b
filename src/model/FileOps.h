#pragma once

// The few file-system steps a package save needs that std::filesystem doesn't offer: durable writes,
// hard links that follow symbolic links, and the atomic exchange of two directories. Failures are thrown
// as std::filesystem::filesystem_error carrying the path and the system's reason.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace marlowick::fileops {

namespace fs = std::filesystem;

// One open file descriptor, closed when it goes.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd)
        : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept
        : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(std::exchange(other.m_fd, -1));
        return *this;
    }

    int get() const { return m_fd; }
    // Closes the descriptor held, if any, and returns what close said (0 when there was none).
    int reset(int fd = -1);

private:
    int m_fd = -1;
};

// Reads a whole file.
std::string readFile(const fs::path& path);

// The permissions of a file that holds a picture of someone's screen, their voice, or their work on them
// outside a package they chose to save: readable and writable by its owner alone.
inline constexpr fs::perms privatePermissions = fs::perms::owner_read | fs::perms::owner_write;

// Creates a new empty file (it must not exist yet) with `permissions`, less what the process's umask takes
// away, and returns it open for writing. The file never exists with wider permissions, not even for an
// instant, so nobody else can open it before its mode is right. Throws filesystem_error.
UniqueFd createNewFile(const fs::path& path, fs::perms permissions);

// createNewFile with privatePermissions: the one way a private file is made.
UniqueFd createPrivateFile(const fs::path& path);

// A whole file mapped read-only into memory, for reading large files without copying them.
class MappedFile {
public:
    // Throws filesystem_error when the file can't be opened or mapped. An empty file maps to no bytes.
    explicit MappedFile(const fs::path& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::string_view bytes() const { return {m_data, m_size}; }

private:
    const char* m_data = nullptr;
    std::size_t m_size = 0;
};

// Writes a new file through a buffer, for output too large to build in memory first. The file must not
// exist yet; it is created as createNewFile creates it. Nothing is durable until `finish`, which flushes
// the bytes to the disk.
class FileWriter {
public:
    explicit FileWriter(const fs::path& path, fs::perms permissions = defaultPermissions);

    static constexpr fs::perms defaultPermissions =
        fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read;

    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    void append(std::string_view bytes);
    void finish();

private:
    void flush();

    fs::path m_path;
    UniqueFd m_fd;
    std::string m_buffer;
};

// Creates the file (it must not exist yet), writes the bytes and flushes them to the disk.
void writeNewFile(const fs::path& path, std::string_view bytes);

// Brings `from` to `to` by a hard link, or where linking fails (another file system, no permission) by a
// copy that is flushed to the disk. Returns true when it linked.
bool placeFile(const fs::path& from, const fs::path& to);

// Flushes a directory's entries, so that files created or renamed in it survive a power loss.
void syncDirectory(const fs::path& path);

// Renames `from` to `to`, failing if `to` exists. Where the file system can't refuse atomically, a plain
// rename is used after checking that `to` is absent.
void renameNoReplace(const fs::path& from, const fs::path& to);

// Swaps two existing entries in one step, so that a crash at any instant leaves each name holding one of
// the two. Where the file system has no atomic exchange, `a` is moved aside first and put back if the
// second rename fails; a crash between the two renames then leaves `b` under a hidden name beside it.
void exchange(const fs::path& a, const fs::path& b);

// Marks a directory as not worth backing up, for the backup tools that honour the freedesktop attribute.
// Best effort: returns false where the file system has no user attributes.
bool markExcludedFromBackup(const fs::path& directory);

// Enough of a file's identity to tell that a later look finds the very same file, unchanged.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

std::optional<FileIdentity> identityOf(const fs::path& path);

// A file or directory that is removed, with everything in it, when this goes out of scope, however the
// scope ends: scratch space, temporary files, and output that is unfinished until `release`. A failure to
// remove is ignored, since the outcome of the work that made the path is what a caller needs to hear.
class RemovedOnExit {
public:
    explicit RemovedOnExit(fs::path path)
        : m_path(std::move(path)) {}
    ~RemovedOnExit() {
        if (!m_path.empty()) {
            std::error_code ignored;
            fs::remove_all(m_path, ignored);
        }
    }
    RemovedOnExit(const RemovedOnExit&) = delete;
    RemovedOnExit& operator=(const RemovedOnExit&) = delete;

    // The path, or nothing once released.
    const fs::path& path() const { return m_path; }
    // Keeps the path after all: the work that made it is done.
    void release() { m_path.clear(); }

private:
    fs::path m_path;
};

// Where a write to `path` lands: `path` itself, or where its chain of symbolic links ends (a file that
// need not exist yet). Throws filesystem_error for a chain that loops.
fs::path writtenThrough(const fs::path& path);

// Output that takes the place of its target only once it is whole. The work writes `staging()`, a hidden
// name beside the target with the target's extension, and `commit` renames it over the target; until then
// whatever the target held is untouched, and the staging file is removed however the scope ends. A target
// that is a symbolic link stays one: the output takes the place of the file it leads to. Where the target
// exists, the staging file is created empty with the target's permissions before the work opens it (the
// work must truncate what it opens, not create it anew), so that the output keeps them: a private file
// stays private when it is written again.
class StagedOutput {
public:
    explicit StagedOutput(const fs::path& target);

    const fs::path& target() const { return m_target; }
    const fs::path& staging() const { return m_staging.path(); }
    // Flushes the finished file to the disk and renames it over the target. Throws filesystem_error when
    // the file can't be flushed or renamed.
    void commit();

private:
    fs::path m_target;
    RemovedOnExit m_staging;
};

// Removes the staging files a StagedOutput for `target` left when its process ended without unwinding (a
// second Ctrl-C). Best effort.
void removeStagedOutputs(const fs::path& target);

// Whether `path`, with every link resolved, lies inside `directory`.
bool isInside(const fs::path& path, const fs::path& directory);

} // namespace marlowick::fileops
