#include "model/FileOps.h"

#include "model/Uuid.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>

namespace marlowick::fileops {

namespace {

[[noreturn]] void fail(std::string_view what, const fs::path& path, int error = errno) {
    throw fs::filesystem_error(std::string(what), path, std::error_code(error, std::generic_category()));
}

[[noreturn]] void fail(std::string_view what, const fs::path& a, const fs::path& b, int error = errno) {
    throw fs::filesystem_error(std::string(what), a, b, std::error_code(error, std::generic_category()));
}

UniqueFd openOrThrow(const fs::path& path, int flags, std::string_view what, mode_t mode = 0) {
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    if (fd < 0) {
        fail(what, path);
    }
    return UniqueFd(fd);
}

void writeAll(int fd, std::string_view bytes, const fs::path& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("write", path);
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void syncOrThrow(int fd, const fs::path& path) {
    if (::fsync(fd) != 0) {
        fail("fsync", path);
    }
}

} // namespace

int UniqueFd::reset(int fd) {
    const int result = m_fd >= 0 ? ::close(m_fd) : 0;
    m_fd = fd;
    return result;
}

std::string readFile(const fs::path& path) {
    const UniqueFd fd = openOrThrow(path, O_RDONLY, "open");
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        fail("stat", path);
    }
    std::string bytes;
    bytes.resize(static_cast<std::size_t>(info.st_size));
    std::size_t filled = 0;
    for (;;) {
        if (filled == bytes.size()) {
            bytes.resize(bytes.size() + 4096); // the file may have grown since fstat
        }
        const ssize_t got = ::read(fd.get(), bytes.data() + filled, bytes.size() - filled);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("read", path);
        }
        if (got == 0) {
            break;
        }
        filled += static_cast<std::size_t>(got);
    }
    bytes.resize(filled);
    return bytes;
}

MappedFile::MappedFile(const fs::path& path) {
    const UniqueFd fd = openOrThrow(path, O_RDONLY, "open");
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        fail("stat", path);
    }
    m_size = static_cast<std::size_t>(info.st_size);
    if (m_size == 0) {
        return;
    }
    // Populating the whole mapping at once costs far less than faulting it in page by page.
    void* data = ::mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd.get(), 0);
    if (data == MAP_FAILED) {
        fail("mmap", path);
    }
    m_data = static_cast<const char*>(data);
}

MappedFile::~MappedFile() {
    if (m_data != nullptr) {
        ::munmap(const_cast<char*>(m_data), m_size);
    }
}

UniqueFd createNewFile(const fs::path& path, fs::perms permissions) {
    return openOrThrow(path, O_WRONLY | O_CREAT | O_EXCL, "create", static_cast<mode_t>(permissions));
}

UniqueFd createPrivateFile(const fs::path& path) {
    return createNewFile(path, privatePermissions);
}

FileWriter::FileWriter(const fs::path& path, fs::perms permissions)
    : m_path(path)
    , m_fd(createNewFile(path, permissions)) {
    m_buffer.reserve(1 << 20);
}

FileWriter::~FileWriter() = default;

void FileWriter::append(std::string_view bytes) {
    if (m_buffer.size() + bytes.size() > m_buffer.capacity()) {
        flush();
    }
    if (bytes.size() > m_buffer.capacity()) {
        writeAll(m_fd.get(), bytes, m_path);
    } else {
        m_buffer.append(bytes);
    }
}

void FileWriter::flush() {
    writeAll(m_fd.get(), m_buffer, m_path);
    m_buffer.clear();
}

void FileWriter::finish() {
    flush();
    syncOrThrow(m_fd.get(), m_path);
    if (m_fd.reset() != 0) {
        fail("close", m_path);
    }
}

void writeNewFile(const fs::path& path, std::string_view bytes) {
    FileWriter writer(path);
    writer.append(bytes);
    writer.finish();
}

bool placeFile(const fs::path& from, const fs::path& to) {
    // AT_SYMLINK_FOLLOW links the file a symbolic link names, never the link itself.
    if (::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return true;
    }
    std::error_code error;
    if (!fs::copy_file(from, to, fs::copy_options::none, error)) {
        throw fs::filesystem_error("copy", from, to, error);
    }
    const UniqueFd fd = openOrThrow(to, O_RDONLY, "open");
    syncOrThrow(fd.get(), to);
    return false;
}

void syncDirectory(const fs::path& path) {
    const UniqueFd fd = openOrThrow(path, O_RDONLY | O_DIRECTORY, "open directory");
    syncOrThrow(fd.get(), path);
}

void renameNoReplace(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        fail("rename", from, to);
    }
    std::error_code error;
    if (fs::exists(fs::symlink_status(to, error))) {
        fail("rename", from, to, EEXIST);
    }
    if (::rename(from.c_str(), to.c_str()) != 0) {
        fail("rename", from, to);
    }
}

void exchange(const fs::path& a, const fs::path& b) {
    if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0) {
        return;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        fail("exchange", a, b);
    }
    // No atomic exchange here (some network and FUSE file systems): move b aside, a into its place, and
    // the old b to a's name.
    const fs::path aside = b.parent_path() / ("." + b.filename().string() + ".old");
    if (::rename(b.c_str(), aside.c_str()) != 0) {
        fail("rename", b, aside);
    }
    if (::rename(a.c_str(), b.c_str()) != 0) {
        const int error = errno;
        ::rename(aside.c_str(), b.c_str());
        fail("rename", a, b, error);
    }
    if (::rename(aside.c_str(), a.c_str()) != 0) {
        fail("rename", aside, a);
    }
}

bool markExcludedFromBackup(const fs::path& directory) {
    static constexpr std::string_view value = "false";
    return ::setxattr(directory.c_str(), "user.xdg.robots.backup", value.data(), value.size(), 0) == 0;
}

std::optional<FileIdentity> identityOf(const fs::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return std::nullopt;
    }
    return FileIdentity{static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino),
                        static_cast<std::int64_t>(info.st_size),
                        static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 +
                            info.st_mtim.tv_nsec};
}

bool isInside(const fs::path& path, const fs::path& directory) {
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error);
    if (error) {
        return false;
    }
    const fs::path root = fs::canonical(directory, error);
    if (error) {
        return false;
    }
    const auto [rootEnd, _] = std::mismatch(root.begin(), root.end(), resolved.begin(), resolved.end());
    return rootEnd == root.end();
}

namespace {

// The hidden name a StagedOutput writes under, beside its target: ".STEM-ID.EXT", the ID a fresh UUID.
std::string stagingName(const fs::path& target, const std::string& id) {
    return "." + target.stem().string() + "-" + id + target.extension().string();
}

} // namespace

fs::path writtenThrough(const fs::path& path) {
    fs::path resolved = path;
    // As many links as the kernel itself follows before it calls the chain a loop.
    for (int links = 0; fs::is_symlink(resolved); ++links) {
        if (links == 40) {
            throw fs::filesystem_error("follow links", path,
                                       std::make_error_code(std::errc::too_many_symbolic_link_levels));
        }
        const fs::path next = fs::read_symlink(resolved);
        resolved = next.is_absolute() ? next : resolved.parent_path() / next;
    }
    return resolved;
}

StagedOutput::StagedOutput(const fs::path& target)
    : m_target(writtenThrough(target))
    , m_staging(m_target.parent_path() / stagingName(m_target, Uuid::random().toString())) {
    std::error_code missing;
    const fs::file_status existing = fs::status(m_target, missing);
    if (!missing && fs::is_regular_file(existing)) {
        createNewFile(m_staging.path(), existing.permissions() & fs::perms::all);
    }
}

void StagedOutput::commit() {
    // The bytes reach the disk before the name does, so a power cut never leaves an empty target where
    // the earlier file was.
    {
        const UniqueFd fd(::open(m_staging.path().c_str(), O_RDONLY | O_CLOEXEC));
        if (fd.get() < 0) {
            fail("open", m_staging.path());
        }
        syncOrThrow(fd.get(), m_staging.path());
    }
    fs::rename(m_staging.path(), m_target);
    m_staging.release();
    // The target is in place now; a folder that can't be flushed only makes the rename less durable.
    try {
        syncDirectory(m_target.parent_path().empty() ? fs::path(".") : m_target.parent_path());
    } catch (const fs::filesystem_error&) {
    }
}

void removeStagedOutputs(const fs::path& linkOrTarget) {
    fs::path target = linkOrTarget;
    try {
        target = writtenThrough(linkOrTarget);
    } catch (const fs::filesystem_error&) {
    }
    // A staging name of this target, with its ID as a run of '?' to be matched by any characters.
    const std::string id(Uuid::random().toString().size(), '?');
    const std::string pattern = stagingName(target, id);
    const std::size_t idStart = pattern.find(id);
    std::error_code error;
    const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() == pattern.size() && name.compare(0, idStart, pattern, 0, idStart) == 0 &&
            name.compare(idStart + id.size(), std::string::npos, pattern, idStart + id.size()) == 0) {
            fs::remove(entry.path(), error);
        }
    }
}

} // namespace marlowick::fileops
