#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "ProjectKeys.h"

#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"

#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick style PACKAGE --from OTHER.marlowick [--dry-run]

Gives PACKAGE the look of OTHER, so that a series of videos shares one look: copies OTHER's canvas (shape,
background, inset, corners, shadow, device frame, tilt, fill or fit), cursor (size, smoothing, motion
blur, click ripple, hiding) and sound settings (levels, voice clean-up, ducking, click sounds, silence
cutting and its parameters, music bed) into PACKAGE, saves it and prints each setting that changed.
PACKAGE keeps its own recording, camera, cuts, the pauses found in it and its captions. A music bed is
copied as the setting stands: it names its file where it lies, and the file isn't copied.

Options:
  --from OTHER   The package whose look to copy.
  --dry-run      Print what would change, and save nothing. Without it the package is saved.

Example:
  marlowick style episode-2.marlowick --from episode-1.marlowick
)";

} // namespace

int runStyle(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("style", args, {"--dry-run"}, {"--from"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto from = parsed->value("--from");
    if (!from) {
        report("style: --from OTHER.marlowick names the package whose look to copy; see 'marlowick style "
               "--help'");
        return exitUsage;
    }
    const std::filesystem::path package = parsed->words.front();
    auto document = openPackage(package);
    const auto other = document ? openPackage(*from) : std::nullopt;
    if (!document || !other) {
        return exitFailure;
    }

    const Json before = toJson(document->project);
    document->project.canvas = other->project.canvas;
    document->project.cursor = other->project.cursor;
    document->project.audio = other->project.audio;
    const std::vector<KeyChange> changes =
        changedKeys(before, toJson(document->project), {"canvas.", "cursor.", "audio."});

    std::cout << describeChanges(changes);
    if (changes.empty()) {
        std::cout << package.string() << " has the look of " << *from << " already; nothing was saved.\n";
        return 0;
    }
    if (parsed->has("--dry-run")) {
        std::cout << "Nothing was saved (--dry-run).\n";
        return 0;
    }
    if (!savePackage(*document, package)) {
        return exitFailure;
    }
    std::cout << "Saved " << package.string() << '\n';
    return 0;
}

} // namespace marlowick::cli
