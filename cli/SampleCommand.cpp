#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "SampleTake.h"

#include "model/FileOps.h"
#include "model/MarlowickDocument.h"
#include "trajectory/NewRecording.h"

#include <cmath>
#include <cstdio>
#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help =
    R"(Usage: marlowick sample PACKAGE [--size WxH] [--rate FPS] [--seconds S] [--no-voice]

Makes a sample take as a new package: a movie of a small synthetic desktop in which someone clicks,
types, saves, scrolls and opens a menu, the pointer telemetry beside it, a system sound track and a
spoken narration (made with flite). The project is set up as a fresh recording's would be: the
fresh-recording canvas, zooms placed by the director in the dynamic style, the default cursor and sound.
Defaults: 1280x720 at 30 fps, as long as the narration needs (at least 12 s).

Examples:
  marlowick sample demo.marlowick
  marlowick sample big.marlowick --size 1920x1080 --rate 60 --seconds 60
)";

} // namespace

int runSample(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("sample", args, {"--no-voice"}, {"--size", "--rate", "--seconds"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    SampleTake take;
    take.voice = !parsed->has("--no-voice");
    if (const auto size = parsed->size("--size", true)) {
        take.width = size->first;
        take.height = size->second;
    }
    take.frameRate = parsed->number("--rate", "frames a second", 1, 240).value_or(take.frameRate);
    take.seconds = parsed->number("--seconds", "seconds", 1, 3600).value_or(take.seconds);
    const std::filesystem::path package = parsed->words.front();
    if (std::filesystem::exists(package)) {
        report(package.string() + " already exists; the sample goes into a new package");
        return exitFailure;
    }

    try {
        const std::filesystem::path folder = package.parent_path().empty() ? "." : package.parent_path();
        std::filesystem::create_directories(folder);
        // The package keeps its own link or copy of the movie.
        const fileops::RemovedOnExit movieFile(folder / ("take-" + Uuid::random().toString() + ".mov"));
        const std::filesystem::path& movie = movieFile.path();

        std::cerr << "Drawing the sample take…\n";
        const SampleTake::Result made = take.write(movie);

        Recording recording;
        recording.mediaURL = Url::fileUrl(std::filesystem::absolute(movie));
        recording.size = {static_cast<double>(take.width), static_cast<double>(take.height)};
        recording.frameRate = take.frameRate;
        recording.duration = made.duration;
        recording.inputEvents = made.telemetry;
        recording.capturedSystemAudio = true;
        recording.capturedMicrophone = take.voice;
        const MarlowickDocument document = documentForNewRecording(recording, "Sample take");
        document.write(package);
        char line[200];
        std::snprintf(line, sizeof line, "Wrote %s (%d×%d, %.0f fps, %.1f s, %s, %s)\n", package.c_str(),
                      take.width, take.height, take.frameRate, made.duration,
                      counted(made.telemetry.size(), "event").c_str(),
                      counted(document.project.camera.beats.size(), "zoom").c_str());
        std::cout << line;
    } catch (const std::exception& e) {
        report(package.string() + ": can't make the sample: " + describe(e, PackageAccess::saving));
        return exitFailure;
    }
    return 0;
}

} // namespace marlowick::cli
