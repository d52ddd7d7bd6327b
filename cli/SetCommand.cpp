#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "ProjectKeys.h"

#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"

#include <algorithm>
#include <iostream>
#include <sstream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick set PACKAGE KEY=VALUE... [--dry-run]
       marlowick set PACKAGE --list

Changes the project's own settings (the canvas, the cursor, the captions' look, the sound) and saves the
package, printing each value that changed. A key is the setting's path in the project as the package
stores it in Document.json; 'set PACKAGE --list' prints every key with its present value and what it
takes. Several KEY=VALUE are applied together: when one is refused (a key that doesn't exist, or a value
the package would not read back), nothing is saved and the package stays as it was.

Values are numbers, true or false, or text, which needs no quotes. Some keys take friendlier forms:
  canvas.ratio=vertical            widescreen, vertical, square, classic or appStore
  canvas.background=#202024        a solid colour; or transparent, a swatch's name (Charcoal, Violet,
                                   Ocean...), or a gradient #1B1B2F,#4A00E0,45 (from, to, degrees)
  canvas.deviceFrame=laptop        laptop, display, tablet or phone (the catalogue's first of that kind),
                                   a device's id, or none
  cursor.hideWhenIdle=never        seconds of rest before the cursor fades, or never
  audio.music=bed.m4a              a sound file, played from where it lies (it isn't copied), or none;
                                   a new file keeps the levels of the bed it replaces
  captions=words.json              the whole caption track, as JSON or a file holding it; none removes
                                   the captions
Every key also takes the JSON the package stores for it.

A new recording starts with the Violet gradient, inset 0.08, corner radius 20, a shadow of 64 pixels at
0.5 opacity, fill, no device and no tilt; the cursor at scale 1, hiding after 3 seconds of rest; voice
clean-up, ducking 0.6 and normalizing on; no music. The zooms are directed by 'marlowick zoom', the
cuts found by 'marlowick silence'.

Options:
  --list      Print every key, its present value and what it takes, one line a key.
  --dry-run   Print what would change, and save nothing. Without it the package is saved.

Examples:
  marlowick set talk.marlowick canvas.deviceFrame=laptop canvas.contentMode=fit
  marlowick set talk.marlowick canvas.tilt.x=14 canvas.tilt.y=-20 cursor.scale=1.5 audio.ducking=0.5
)";

void printList(const Json& project) {
    std::size_t keyWidth = 0;
    std::size_t valueWidth = 0;
    for (const ProjectKey& key : projectKeys()) {
        keyWidth = std::max(keyWidth, key.name.size());
        valueWidth = std::max(valueWidth, std::min<std::size_t>(presentValue(key, project).size(), 24));
    }
    std::ostringstream out;
    for (const ProjectKey& key : projectKeys()) {
        const std::string value = presentValue(key, project);
        out << key.name << std::string(keyWidth + 2 - key.name.size(), ' ') << value
            << std::string(value.size() < valueWidth + 2 ? valueWidth + 2 - value.size() : 2, ' ') << key.type
            << '\n';
    }
    std::cout << out.str();
}

} // namespace

int runSet(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto words = static_cast<std::size_t>(
        std::count_if(args.begin(), args.end(), [](const std::string& a) { return !a.starts_with("-"); }));
    const auto parsed =
        parseArguments("set", args, {"--list", "--dry-run"}, {}, std::max<std::size_t>(words, 1));
    if (!parsed) {
        return exitUsage;
    }
    const bool listing = parsed->has("--list");
    if (listing != (parsed->words.size() == 1)) {
        report(listing ? "set: --list takes the package alone; see 'marlowick set --help'"
                       : "set: give KEY=VALUE after the package, or --list; see 'marlowick set --help'");
        return exitUsage;
    }
    // Every setting is checked for its form and key before the package is read.
    std::vector<std::pair<const ProjectKey*, std::string>> settings;
    for (auto it = parsed->words.begin() + 1; it != parsed->words.end(); ++it) {
        const auto equals = it->find('=');
        if (equals == std::string::npos) {
            report("set: '" + *it + "' is no KEY=VALUE; see 'marlowick set --help'");
            return exitUsage;
        }
        const std::string name = it->substr(0, equals);
        const ProjectKey* key = findProjectKey(name);
        if (key == nullptr) {
            report("set: " + unknownKeyAdvice(name) + "; 'marlowick set PACKAGE --list' lists every key");
            return exitUsage;
        }
        settings.emplace_back(key, it->substr(equals + 1));
    }

    const std::filesystem::path package = parsed->words.front();
    auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    const Json before = toJson(document->project);
    if (listing) {
        printList(before);
        return 0;
    }
    Json after = before;
    for (const auto& [key, text] : settings) {
        try {
            applySetting(after, *key, text);
        } catch (const CodingError& e) {
            report("set: " + std::string(e.what()) + "; nothing was saved");
            return exitUsage;
        } catch (const std::filesystem::filesystem_error& e) {
            // A file a setting names (captions=FILE) that can't be read.
            report("set: " + std::string(key->name) + ": can't read " + e.path1().string() + ": " +
                   e.code().message() + "; nothing was saved");
            return exitUsage;
        }
    }

    const std::vector<KeyChange> changes = changedKeys(before, after, {""});
    std::cout << describeChanges(changes);
    if (changes.empty()) {
        std::cout << "Nothing changed; the package was left as it was.\n";
        return 0;
    }
    if (parsed->has("--dry-run")) {
        std::cout << "Nothing was saved (--dry-run).\n";
        return 0;
    }
    document->project = fromJson<Project>(after);
    if (!savePackage(*document, package)) {
        return exitFailure;
    }
    std::cout << "Saved " << package.string() << '\n';
    return 0;
}

} // namespace marlowick::cli
