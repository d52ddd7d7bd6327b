#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"

#include "media/MediaInfo.h"
#include "trajectory/NewRecording.h"

#include <cstdio>
#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick import MOVIE -o PACKAGE

Makes a new project from a movie made elsewhere (any file FFmpeg reads that has pictures), so that an
existing screencast can be finished here: framed on the canvas, cut, captioned, given a music bed and
exported. The package keeps its own link or copy of the movie; the movie itself is left as it is.

The size and frame rate are the movie's first video track's (60 fps when it states none), the length the
file's. A movie brings no pointer or keyboard telemetry, so there are no zooms to place and no cursor
to draw; its first sound track is taken as the voice. PACKAGE must not exist yet.

Examples:
  marlowick import screencast.mp4 -o screencast.marlowick
  marlowick captions screencast.marlowick --write
)";

// A movie that states no frame rate is taken at the rate most screen recordings have.
constexpr double assumedFrameRate = 60;

} // namespace

int runImport(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("import", args, {}, {"-o"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto output = parsed->value("-o");
    if (!output) {
        report("import needs -o PACKAGE; see 'marlowick import --help'");
        return exitUsage;
    }
    const std::filesystem::path movie = parsed->words.front();
    const std::filesystem::path package = *output;
    if (std::filesystem::exists(package)) {
        report(package.string() + " already exists; import makes a new package");
        return exitFailure;
    }
    if (MarlowickDocument::packageHolding(package)) {
        report(package.string() + " lies inside a package, which only its own saves may change");
        return exitUsage;
    }

    std::error_code missing;
    if (!std::filesystem::exists(movie, missing)) {
        report(movie.string() + ": no such file or folder");
        return exitFailure;
    }
    MediaInfo info;
    try {
        info = MediaInfo::of(movie);
    } catch (const std::exception& e) {
        // The media layer's words name the file already.
        report(describe(e));
        return exitFailure;
    }
    if (info.videoTracks == 0 || info.width <= 0 || info.height <= 0) {
        report(movie.string() + ": that file has no video track; import takes a movie");
        return exitFailure;
    }

    Recording recording;
    recording.mediaURL = Url::fileUrl(std::filesystem::absolute(movie));
    recording.size = {static_cast<double>(info.width), static_cast<double>(info.height)};
    recording.frameRate = info.frameRate > 0 ? info.frameRate : assumedFrameRate;
    recording.duration = info.duration;
    try {
        const MarlowickDocument document = documentForNewRecording(recording, package.stem().string());
        document.write(package);
    } catch (const std::exception& e) {
        reportFailure(package, e, PackageAccess::saving);
        return exitFailure;
    }
    char line[200];
    std::snprintf(line, sizeof line, "Wrote %s (%d×%d, %.4g fps, %.1f s, %s)\n", package.c_str(), info.width,
                  info.height, recording.frameRate, info.duration,
                  info.audioTracks == 0 ? "no sound" : counted(info.audioTracks, "sound track").c_str());
    std::cout << line;
    return 0;
}

} // namespace marlowick::cli
