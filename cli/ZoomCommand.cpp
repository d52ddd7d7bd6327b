#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"

#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"
#include "trajectory/ZoomDirector.h"

#include <cstdio>
#include <iostream>
#include <sstream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help =
    R"(Usage: marlowick zoom PACKAGE [--style off|subtle|dynamic|cinematic] [--json] [--write]

Directs the camera again from the package's telemetry: the beats the director made before are replaced,
the beats a person edited are kept. Prints the resulting beats as a table.

Options:
  --style S   The zoom style to direct with: off, subtle, dynamic or cinematic. The package's own by
              default. With --write the package keeps the new style.
  --json      Print the camera track as the package stores it, {"beats": [...], "style": ...}.
  --write     Save the new camera track into the package. Without it nothing is saved.

Examples:
  marlowick zoom demo.marlowick --style cinematic
  marlowick zoom demo.marlowick --style subtle --write
)";

void printTable(const CameraTrack& track) {
    std::size_t generated = 0;
    for (const ZoomBeat& b : track.beats) {
        generated += b.isGenerated ? 1 : 0;
    }
    std::ostringstream out;
    out << "Style " << enumName(track.style) << " (" << displayName(track.style)
        << "): " << summary(track.style) << '\n'
        << counted(track.beats.size(), "beat") << " (" << generated << " by the director, "
        << track.beats.size() - generated << " edited)\n";
    if (!track.beats.empty()) {
        out << "\n   #     start       end   scale   center           ramps        easing      made by\n";
    }
    int index = 0;
    for (const ZoomBeat& b : track.beats) {
        char line[256];
        std::snprintf(line, sizeof line,
                      "%4d  %8.3f  %8.3f  %5.2f×   (%5.3f, %5.3f)   %4.2f / %4.2f  %-10s  %s\n", ++index,
                      b.start, b.end, b.scale, b.center.x, b.center.y, b.rampIn, b.rampOut,
                      std::string(enumName(b.easing)).c_str(), b.isGenerated ? "director" : "person");
        out << line;
    }
    std::cout << out.str();
}

} // namespace

int runZoom(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("zoom", args, {"--json", "--write"}, {"--style"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    std::optional<CameraTrack::Style> style;
    if (const auto name = parsed->value("--style")) {
        style = enumFromName<CameraTrack::Style>(*name);
        if (!style) {
            report("zoom: unknown style '" + *name + "'; choose off, subtle, dynamic or cinematic");
            return exitUsage;
        }
    }
    const std::filesystem::path package = parsed->words.front();
    auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }

    // The director reads the telemetry from the recording it is given.
    Recording recording = document->project.source;
    recording.inputEvents = document->telemetry();
    ZoomDirector director;
    director.style = style.value_or(document->project.camera.style);
    CameraTrack track = director.regenerate(document->project.camera, recording);
    track.style = director.style;

    if (parsed->has("--json")) {
        std::cout << toJson(track).dump(2) << '\n';
    } else {
        printTable(track);
    }
    if (parsed->has("--write")) {
        document->project.camera = track;
        if (!savePackage(*document, package)) {
            return exitFailure;
        }
        // With --json standard output holds the track alone; the confirmation goes beside it.
        (parsed->has("--json") ? std::cerr : std::cout) << "Saved " << package.string() << '\n';
    } else {
        // With --json standard output holds the track alone.
        (parsed->has("--json") ? std::cerr : std::cout)
            << "Nothing was saved; --write keeps these beats in the package.\n";
    }
    return 0;
}

} // namespace marlowick::cli
