#pragma once

#include "model/FileOps.h"
#include "model/MarlowickDocument.h"
#include "takes/TakeError.h"
#include "takes/TakeSummary.h"

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace marlowick {

// The takes folder, where a take lives from its first picture until it is saved into a package or
// discarded: `$XDG_DATA_HOME/marlowick/takes` (`~/.local/share/marlowick/takes`), which survives a reboot.
// A take is a picture of someone's screen, so the folder is created readable by its owner alone (0700)
// and so is every file in it (0600).
//
//   take-UUID.mov                      the movie, written by the capture as it runs
//   take-UUID.recovery/Document.json   the recovery copy of the take's unsaved project, as a package's
//   take-UUID.recovery/events.json     and its telemetry, as a package's events file
//   take-UUID.lock                     locked by the session that holds the take, while it holds it
//
// A take no running session holds is abandoned: its session ended without saving or discarding it (a
// crash, a kill, a power cut) and it waits to be recovered. A lock is an advisory lock on an open file,
// so the kernel lets go of it when its process ends, however it ends. Nothing here deletes a take but
// Hold::discard.
//
// Thread: a store is a value over a path, and any thread may use its own. The files of one take are
// written by the session that holds it alone; a recovery copy is replaced whole, so a reader sees the
// previous one or the next. Failures are filesystem_error with the path and the system's reason, except
// where said.
class TakeStore {
public:
    class Hold;

    explicit TakeStore(std::filesystem::path folder);

    // `$XDG_DATA_HOME/marlowick/takes`, or `~/.local/share/marlowick/takes` when that variable is unset or
    // not an absolute path, as the XDG base directory rules say.
    static std::filesystem::path defaultFolder();

    const std::filesystem::path& folder() const { return m_folder; }

    // A new take's place, held: creates the folder (0700, and makes an existing one so), and names a movie
    // that doesn't exist yet, for the capture's writer to create (it creates it 0600).
    Hold newTake() const;
    // Holds the take whose movie is `movie`, or answers none when another holder has it.
    std::optional<Hold> hold(const std::filesystem::path& movie) const;
    // The movies of the takes in the folder that nobody holds, the most recent first; none when the folder
    // doesn't exist.
    std::vector<std::filesystem::path> abandonedTakes() const;

    // Where the recovery copy of the take with movie `movie` lies: beside it.
    static std::filesystem::path recoveryCopyOf(const std::filesystem::path& movie);
    // Replaces the recovery copy of the take `movie` with `document` (its project and its telemetry) in one
    // step: the copy is written whole under a hidden name beside it, flushed to the disk and exchanged with
    // the last one, which then goes. The project's movie is stored as the take's file name. Blocks for the
    // writes: about 30 ms for a minute of telemetry and 0.2 s for an hour on a two-core build machine.
    static void writeRecoveryCopy(const std::filesystem::path& movie, const MarlowickDocument& document);

    // When the take was recorded and how long it is; a movie that can't be read has no length.
    static TakeSummary summarise(const std::filesystem::path& movie);
    // The take as a project over its movie: the recovery copy's project and telemetry when there is a copy,
    // else documentOfMovie. A copy that doesn't read as a project throws TakeError
    // (recoveryCopyDamaged), one of a newer format DocumentError (unsupportedFormatVersion), and one that
    // can't be read at all filesystem_error.
    static MarlowickDocument documentOf(const std::filesystem::path& movie);
    // A new project named "Recovered take" over the movie alone, without telemetry: a take whose session
    // ended before it was stopped kept nothing else. Throws TakeError (noPicture) for a movie without a
    // picture, and the media layer's MediaError for one that can't be read.
    static MarlowickDocument documentOfMovie(const std::filesystem::path& movie);

    static constexpr std::string_view recoveredName = "Recovered take";

private:
    void makeFolder() const;

    std::filesystem::path m_folder;
};

// One take held by this process: no other session offers to recover it while the hold lasts. Ending the
// hold (destruction, release) keeps the take on disk for the next start; discard deletes it.
class TakeStore::Hold {
public:
    Hold(Hold&&) noexcept = default;
    Hold& operator=(Hold&& other) noexcept;
    ~Hold();

    const std::filesystem::path& movie() const { return m_movie; }

    // Deletes the take: its recovery copy, its movie (a package it was saved into keeps its own link), and
    // its lock, in that order, so that an interruption never leaves a copy without its movie. The hold
    // ends. Missing files are no failure.
    void discard();
    // Ends the hold, keeping the take.
    void release();

private:
    friend class TakeStore;
    Hold(std::filesystem::path movie, fileops::UniqueFd lock)
        : m_movie(std::move(movie))
        , m_lock(std::move(lock)) {}

    std::filesystem::path m_movie;
    fileops::UniqueFd m_lock; // none once released or discarded
};

} // namespace marlowick
