#include "Arguments.h"
#include "Commands.h"

#include "export/ExportPreset.h"

#include <cstdio>
#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick presets [PACKAGE]

Lists the export presets: id, name, size, nominal frame rate, file type and video codec. Given a
package, the rows that suit its canvas's shape are marked with "*". A preset that can't be written on
this system says so and names the one to use instead.

An export keeps the recording's own frame rate: every frame that survives the cuts is written once, so a
60 fps take stays 60 fps under a 30 fps preset. The preset's rate is only its nominal one.

Examples:
  marlowick presets
  marlowick presets demo.marlowick
)";

} // namespace

int runPresets(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const bool withPackage = !args.empty() && !args.front().starts_with("-");
    const auto parsed = parseArguments("presets", args, {}, {}, withPackage ? 1 : 0);
    if (!parsed) {
        return exitUsage;
    }
    std::optional<AspectRatio> shape;
    if (withPackage) {
        const auto document = openPackage(parsed->words.front());
        if (!document) {
            return exitFailure;
        }
        shape = document->project.canvas.ratio;
    }
    if (shape) {
        std::cout << "Marked: the presets for the project's shape, " << displayName(*shape) << "\n\n";
    }
    std::cout << "  id                  name                  size       rate    file codec\n";
    for (const ExportPreset& p : ExportPreset::all()) {
        char line[300];
        std::snprintf(line, sizeof line, "%s %-19s %-21s %4.0f×%-4.0f %3.0f fps  %-4s %s",
                      shape && p.ratio() == *shape ? "*" : " ", p.id.c_str(), p.name.c_str(), p.size.width,
                      p.size.height, p.frameRate, std::string(enumName(p.container)).c_str(),
                      std::string(enumName(p.codec)).c_str());
        std::cout << line;
        if (const ExportPreset* instead = p.replacementOnThisSystem()) {
            std::cout << "  (unavailable here: use " << instead->id << ")";
        }
        std::cout << '\n';
    }
    std::cout
        << "\nAn export keeps the recording's own frame rate; the rate above is the preset's nominal one.\n";
    return 0;
}

} // namespace marlowick::cli
