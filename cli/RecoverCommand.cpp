#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"

#include "takes/TakeStore.h"

#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick recover
       marlowick recover TAKE -o PACKAGE [--without-edits]

Finds the takes the window left unsaved, after a crash, a kill or a power cut, and makes a package of one,
for when the window can't start or isn't at hand. The window keeps every take in the takes folder,
$XDG_DATA_HOME/marlowick/takes (~/.local/share/marlowick/takes), until it is saved into a package or
discarded, with a recovery copy of its project beside it a few seconds after each edit; at its next start
it offers each one it finds. This command deletes nothing.

Without TAKE, prints one line per take, the most recent first, its fields apart by tabs: the movie's
path, when it was recorded, its length, and "edits" when a recovery copy lies beside it ("no edits" when
the window ended before the take was stopped, or before the copy was written). A take a running window
holds open is not listed.

With TAKE (a path from the list, or its file name) writes a new package of it at PACKAGE, which must not
exist yet: the project of its recovery copy, every edit and the telemetry with it, or a new project of
the movie alone, named "Recovered take", where there is no copy. The movie comes into the package by a
hard link where it can, so the package costs no room beside the take.

Options:
  -o PACKAGE        Where to write the package.
  --without-edits   Make the package of the movie alone, leaving a damaged recovery copy aside.

Examples:
  marlowick recover
  marlowick recover take-5C0F8E0A-3D4B-4E61-9A57-0B9C2D7E1F34.mov -o tour.marlowick
)";

// The take's movie: the path as given, or a file of that name in the takes folder.
std::optional<std::filesystem::path> findTake(const std::string& word, const TakeStore& store) {
    std::error_code missing;
    if (std::filesystem::is_regular_file(word, missing)) {
        return std::filesystem::path(word);
    }
    const std::filesystem::path named = store.folder() / std::filesystem::path(word).filename();
    if (std::filesystem::is_regular_file(named, missing)) {
        return named;
    }
    return std::nullopt;
}

int listTakes(const TakeStore& store) {
    std::vector<std::filesystem::path> takes;
    try {
        takes = store.abandonedTakes();
    } catch (const std::exception& e) {
        report(describe(e));
        return exitFailure;
    }
    if (takes.empty()) {
        std::cerr << "No takes to recover in " << store.folder().string() << ".\n";
        return 0;
    }
    for (const std::filesystem::path& movie : takes) {
        TakeSummary summary;
        try {
            summary = TakeStore::summarise(movie);
        } catch (const std::exception&) {
            continue; // saved or discarded by a window meanwhile
        }
        std::cout << movie.string() << '\t' << summary.startText() << '\t' << summary.durationText() << '\t'
                  << (summary.hasEdits ? "edits" : "no edits") << '\n';
    }
    return 0;
}

} // namespace

int runRecover(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const TakeStore store(TakeStore::defaultFolder());
    if (args.empty()) {
        return listTakes(store);
    }
    const auto parsed = parseArguments("recover", args, {"--without-edits"}, {"-o"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto output = parsed->value("-o");
    if (!output) {
        report("recover TAKE needs -o PACKAGE; see 'marlowick recover --help'");
        return exitUsage;
    }
    const std::filesystem::path package = *output;
    if (std::filesystem::exists(package)) {
        report(package.string() + " already exists; recover makes a new package");
        return exitFailure;
    }
    if (MarlowickDocument::packageHolding(package)) {
        report(package.string() + " lies inside a package, which only its own saves may change");
        return exitUsage;
    }
    const std::optional<std::filesystem::path> movie = findTake(parsed->words.front(), store);
    if (!movie) {
        report(parsed->words.front() + ": no such take; 'marlowick recover' lists them");
        return exitFailure;
    }

    const bool withoutEdits = parsed->has("--without-edits");
    std::optional<MarlowickDocument> document;
    TakeSummary summary;
    try {
        summary = TakeStore::summarise(*movie);
        document = withoutEdits ? TakeStore::documentOfMovie(*movie) : TakeStore::documentOf(*movie);
    } catch (const TakeError& e) {
        report(movie->string() + ": " + describe(e) +
               (e.kind() == TakeErrorKind::recoveryCopyDamaged ? " (add --without-edits)" : ""));
        return exitFailure;
    } catch (const std::exception& e) {
        report(movie->string() + ": " + describe(e));
        return exitFailure;
    }
    try {
        document->write(package);
    } catch (const std::exception& e) {
        reportFailure(package, e, PackageAccess::saving);
        return exitFailure;
    }
    const bool edited = summary.hasEdits && !withoutEdits;
    std::cout << "Wrote " << package.string() << " from " << summary.description()
              << (edited ? ", with its edits" : ", the movie alone") << '\n';
    return 0;
}

} // namespace marlowick::cli
