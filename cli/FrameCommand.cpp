#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"

#include "compositor/PngFile.h"
#include "export/StillFrame.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick frame PACKAGE --at SECONDS [--size WxH] -o FILE.png

Draws one finished frame of the project, as the export would: the recording at that moment on its
canvas, with the camera, the cursor and the captions of that moment. SECONDS is a time on the finished
video, after the cuts, from 0 up to its length. The frame has the size of the project's shape
(1920x1080 for widescreen) unless --size gives another. An existing FILE.png is replaced only once the
new picture is complete.

Examples:
  marlowick frame demo.marlowick --at 4.5 -o zoomed.png
  marlowick frame demo.marlowick --at 0 --size 960x540 -o first.png
)";

} // namespace

int runFrame(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("frame", args, {}, {"--at", "--size", "-o"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto at = parsed->number("--at", "seconds", -HUGE_VAL, HUGE_VAL);
    const auto output = parsed->value("-o");
    if (!at || !output) {
        report("frame needs --at SECONDS and -o FILE.png; see 'marlowick frame --help'");
        return exitUsage;
    }
    const double time = *at;
    std::optional<std::pair<int, int>> canvasSize = parsed->size("--size");
    if (!acceptsOutput("frame", *output, ".png")) {
        return exitUsage;
    }

    const std::filesystem::path package = parsed->words.front();
    const auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    const Project& project = document->project;
    // A moment outside the finished video is refused rather than moved to its first or last frame.
    const double length = project.effectiveTrim().outputDuration();
    if (time < 0 || time > length) {
        char line[200];
        std::snprintf(line, sizeof line,
                      "frame: --at %g lies outside the finished video, which runs from 0 to %.2f s", time,
                      length);
        report(line);
        return exitUsage;
    }
    if (!canvasSize) {
        const Size s = size(project.canvas.ratio);
        canvasSize = std::pair{static_cast<int>(s.width), static_cast<int>(s.height)};
    }

    try {
        const auto picture =
            drawStillFrame(project, document->telemetry(), time, canvasSize->first, canvasSize->second);
        if (!picture) {
            report(package.string() + ": the movie has no frames");
            return exitFailure;
        }
        writePng(*output, picture->width, picture->height, picture->bytes.data(), picture->stride);
    } catch (const std::exception& e) {
        reportFailure(package, e);
        return exitFailure;
    }
    std::cout << "Wrote " << *output << " (" << canvasSize->first << "×" << canvasSize->second << ")\n";
    return 0;
}

} // namespace marlowick::cli
