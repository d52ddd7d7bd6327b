#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "InterruptWatch.h"

#include "audio/AudioRenderer.h"
#include "audio/SilenceDetector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace marlowick::cli {

namespace {

constexpr std::string_view mixHelp = R"(Usage: marlowick mix PACKAGE -o FILE.m4a

Renders the project's finished sound, as the export uses it: the voice clean-up, the gains, ducking, the
cuts, the music bed, the click sounds and the final level, as AAC (48 kHz, mono). Prints its duration.
An existing FILE.m4a is replaced only once the new one is complete.

Example:
  marlowick mix demo.marlowick -o demo-sound.m4a
)";

constexpr std::string_view silenceHelp =
    R"(Usage: marlowick silence PACKAGE [--threshold F] [--minimum S] [--padding S] [--write]

Finds the pauses in the voice and prints them, with the settings used and what cutting them would
leave. Nothing is saved without --write.

Options:
  --threshold F   A pause is quieter than F times the voice's usual level, 0 to 1.
  --minimum S     A pause lasts at least S seconds once the padding is left at each end.
  --padding S     Seconds of the pause kept at each end, so that words aren't clipped.
  --write         Keep the pauses as the project's silence cuts, switch silence cutting on and store
                  the settings, so that the next run starts from them.
Each option starts from the project's stored value; a new project has 0.08, 0.7 s and 0.12 s.

A cut that would remove clicks or key presses, or cuts that remove more than 40% of the recording,
are warned about with their times: such pauses are often the demo itself rather than dead air.

Examples:
  marlowick silence demo.marlowick
  marlowick silence demo.marlowick --threshold 0.05 --minimum 1.2 --write
)";

// Above this share of the recording removed, the settings are probably cutting speech or the demo.
constexpr double heavyRemoval = 0.4;

// "3 cuts · 4.2s removed (12%) · exports at 30.8s", as the editor shows it.
std::string trimSummary(const TimeMap& trim, double sourceDuration) {
    char text[160];
    const double percent = sourceDuration > 0 ? trim.removedDuration() / sourceDuration * 100 : 0;
    std::snprintf(text, sizeof text, "%s · %.1fs removed (%.0f%%) · exports at %.1fs",
                  counted(trim.removals().size(), "cut").c_str(), trim.removedDuration(), percent,
                  trim.outputDuration());
    return text;
}

std::string seconds(double t) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", t);
    return text;
}

// "a click at 2.00 s and key presses at 1.80, 1.95 s", or empty when the range holds neither.
std::string actionsWithin(const Range& cut, const std::vector<InputEvent>& telemetry) {
    std::vector<double> clicks;
    std::vector<double> keys;
    for (const InputEvent& e : telemetry) {
        if (e.time >= cut.lower && e.time <= cut.upper) {
            if (e.kind == InputEvent::Kind::down) {
                clicks.push_back(e.time);
            } else if (e.kind == InputEvent::Kind::keyPress) {
                keys.push_back(e.time);
            }
        }
    }
    auto list = [](const std::vector<double>& times, std::string_view one, std::string_view many) {
        // A long run of typing is named by its first few times.
        constexpr std::size_t shown = 4;
        std::string text = std::string(times.size() == 1 ? one : many) + " at ";
        for (std::size_t i = 0; i < std::min(times.size(), shown); ++i) {
            text += (i > 0 ? ", " : "") + seconds(times[i]);
        }
        text += " s";
        if (times.size() > shown) {
            text += " and " + std::to_string(times.size() - shown) + " more";
        }
        return text;
    };
    std::string text;
    if (!clicks.empty()) {
        text = list(clicks, "a click", "clicks");
    }
    if (!keys.empty()) {
        text += (text.empty() ? "" : " and ") + list(keys, "a key press", "key presses");
    }
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
    std::cout << "Pauses quieter than " << settings.threshold << " of the voice's usual level for at least "
              << seconds(settings.minimumSilence) << " s, keeping " << seconds(settings.padding)
              << " s at each end:\n";
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

    const std::vector<InputEvent>& telemetry = document->telemetry();
    for (const Range& r : trim.removals()) {
        const std::string actions = actionsWithin(r, telemetry);
        if (!actions.empty()) {
            report("warning: the cut " + seconds(r.lower) + " – " + seconds(r.upper) + " s would remove " +
                   actions + "; a longer --minimum or a lower --threshold keeps it");
        }
    }
    const double duration = document->project.source.duration;
    if (duration > 0 && trim.removedDuration() > heavyRemoval * duration) {
        char line[160];
        std::snprintf(line, sizeof line,
                      "warning: the cuts remove %.0f%% of the recording; a lower --threshold or a longer "
                      "--minimum cuts less",
                      trim.removedDuration() / duration * 100);
        report(line);
    }

    if (parsed->has("--write")) {
        document->project.audio.silence = settings;
        document->project.trim = trim;
        if (!savePackage(*document, package)) {
            return exitFailure;
        }
        std::cout << "Saved " << package.string() << ", with these settings for the next run\n";
    } else {
        std::cout << "Nothing was saved: --write keeps these cuts and settings in the project\n";
    }
    return 0;
}

} // namespace marlowick::cli
