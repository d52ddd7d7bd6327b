#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "InterruptWatch.h"

#include "audio/AudioRenderer.h"
#include "audio/SilenceDetector.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace marlowick::cli {

namespace {

constexpr std::string_view mixHelp = R"(Usage: marlowick mix PACKAGE -o FILE.m4a

Renders the project's finished sound, as the export uses it: the voice clean-up, the gains, ducking, the
cuts, the music bed, the click sounds and the final level, as AAC (48 kHz, mono). Prints its duration.
)";

constexpr std::string_view silenceHelp =
    R"(Usage: marlowick silence PACKAGE [--threshold F] [--minimum S] [--padding S] [--write]

Finds the pauses in the voice: stretches quieter than F times the recording's usual level (0.08 unless
given) that last at least S seconds (0.7) once S of padding (0.12) is left at each end. Prints them and
what cutting them would leave. With --write the package keeps them as its silence cuts, and silence
cutting is switched on.
)";

// "3 cuts · 4.2s removed (12%) · exports at 30.8s", as the editor shows it.
std::string trimSummary(const TimeMap& trim, double sourceDuration) {
    char text[160];
    const double percent = sourceDuration > 0 ? trim.removedDuration() / sourceDuration * 100 : 0;
    std::snprintf(text, sizeof text, "%s · %.1fs removed (%.0f%%) · exports at %.1fs",
                  counted(trim.removals().size(), "cut").c_str(), trim.removedDuration(), percent,
                  trim.outputDuration());
    return text;
}

} // namespace

int runMix(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << mixHelp;
        return 0;
    }
    const auto parsed = parseArguments("mix", args, {}, {"-o"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto output = parsed->value("-o");
    if (!output) {
        report("mix needs -o FILE.m4a; see 'marlowick mix --help'");
        return exitUsage;
    }
    if (!acceptsOutput("mix", *output, ".m4a")) {
        return exitUsage;
    }
    const std::filesystem::path package = parsed->words.front();
    const auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    const Project& project = document->project;
    const std::vector<double> clicks = project.clickTimes(document->telemetry());
    // The render can't stop part way: Ctrl-C ends the tool at once, removing the unfinished file.
    const InterruptWatch interrupts(*output, false);
    // A percentage that rewrites itself on a terminal; one line where standard error is a file.
    const bool terminal = ::isatty(STDERR_FILENO) != 0;
    std::cerr << "Rendering the sound of " << package.filename().string() << "…" << (terminal ? "" : "\n");
    int shown = -1;
    auto progress = [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (terminal && percent != shown) {
            shown = percent;
            std::cerr << "\rRendering the sound of " << package.filename().string() << "… " << percent << "%"
                      << std::flush;
        }
    };
    try {
        const auto result = AudioRenderer{}.render(project.source.mediaURL.path(), project.audio, clicks,
                                                   project.effectiveTrim(), *output, progress);
        if (terminal) {
            std::cerr << '\n';
        }
        char line[96];
        std::snprintf(line, sizeof line, "Wrote %s (%.2f s)\n", output->c_str(), result.duration);
        std::cout << line;
    } catch (const std::exception& e) {
        if (terminal) {
            std::cerr << '\n';
        }
        reportFailure(package, e);
        return exitFailure;
    }
    return 0;
}

int runSilence(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << silenceHelp;
        return 0;
    }
    const auto parsed =
        parseArguments("silence", args, {"--write"}, {"--threshold", "--minimum", "--padding"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const std::filesystem::path package = parsed->words.front();
    auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    SilenceTrim settings = document->project.audio.silence;
    settings.isEnabled = true;
    settings.threshold =
        parsed->number("--threshold", "a fraction of the voice's level", 0, 1).value_or(settings.threshold);
    settings.minimumSilence =
        parsed->number("--minimum", "seconds", 0, HUGE_VAL).value_or(settings.minimumSilence);
    settings.padding = parsed->number("--padding", "seconds", 0, HUGE_VAL).value_or(settings.padding);

    std::cerr << "Listening for pauses in " << package.filename().string() << "…\n";
    TimeMap trim;
    try {
        trim = SilenceDetector{}.detect(document->project.source.mediaURL.path(), settings);
    } catch (const std::exception& e) {
        reportFailure(package, e);
        return exitFailure;
    }
    // The stored map spans the source as the project knows it.
    trim = TimeMap(trim.removals(), document->project.source.duration);
    for (const Range& r : trim.removals()) {
        char line[96];
        std::snprintf(line, sizeof line, "  %9.2f – %9.2f  (%.2f s)\n", r.lower, r.upper, r.length());
        std::cout << line;
    }
    std::cout << (trim.isIdentity() ? std::string("No pauses to cut")
                                    : trimSummary(trim, document->project.source.duration))
              << '\n';

    if (parsed->has("--write")) {
        document->project.audio.silence = settings;
        document->project.trim = trim;
        if (!savePackage(*document, package)) {
            return exitFailure;
        }
        std::cout << "Saved " << package.string() << '\n';
    }
    return 0;
}

} // namespace marlowick::cli
