#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "InterruptWatch.h"

#include "audio/AudioRenderer.h"
#include "export/Exporter.h"
#include "export/SubtitleFile.h"
#include "model/ClockText.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace marlowick::cli {

namespace {

constexpr std::string_view help =
    R"(Usage: marlowick export PACKAGE --preset ID -o FILE [--fps N] [--subtitles srt|vtt|none]

Exports the finished movie of the project with one of the presets of 'marlowick presets': every frame
of the recording that survives the cuts, drawn on the project's canvas with its zooms, cursor and
captions, and the sound (as recorded when nothing changes it, else the rendered mix).

The file's extension is the preset's (.mp4, .mov or .webm). It is written beside FILE under a hidden
name and takes FILE's place only when complete, so an earlier export of that name survives a failure.
With captions in the project, a subtitle file goes beside the movie (FILE with the extension .srt, or
.vtt with --subtitles vtt; none with --subtitles none), its cues on the finished video's clock: a cue
that a cut removes whole is left out, and one that a cut overlaps stops or starts at the cut.
With --fps N the movie has a frame exactly every 1/N s instead (N from 1 to 240), each drawn at its own
time over the recording's picture shown at that instant, which players and editors take more kindly.
Progress is shown on standard error. Ctrl-C stops the export and removes the unfinished file.

Examples:
  marlowick export demo.marlowick --preset free-720p -o demo.mp4
  marlowick export demo.marlowick --preset free-720p --fps 30 -o demo-30.mp4
  marlowick presets demo.marlowick          (the presets that suit the project)
)";

// The progress line: a bar, frames done of the estimate, frames a second and the time left. On a
// terminal it rewrites itself a few times a second; elsewhere it is a line every tenth of the way.
class ProgressLine {
public:
    ProgressLine()
        : m_terminal(::isatty(STDERR_FILENO) != 0)
        , m_start(std::chrono::steady_clock::now()) {}

    void sound(double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (percent == m_soundPercent) {
            return;
        }
        m_soundPercent = percent;
        if (m_terminal) {
            std::cerr << "\rMixing the sound… " << percent << "%   " << std::flush;
        } else if (percent == 0) {
            std::cerr << "Mixing the sound…\n";
        }
    }

    void frames(Exporter::Progress p) {
        // An estimate that falls short is never shown below the frames already written.
        p.totalFrames = std::max(p.completedFrames, p.totalFrames);
        const auto now = std::chrono::steady_clock::now();
        if (p.completedFrames == 0) {
            m_framesStart = now;
        }
        const double elapsed = std::chrono::duration<double>(now - m_framesStart).count();
        const bool last = p.completedFrames == p.totalFrames;
        if (p == m_last) {
            return; // the closing report repeats the last frame's when the estimate was right
        }
        if (m_terminal) {
            if (!last && now - m_shown < std::chrono::milliseconds(200)) {
                return;
            }
        } else {
            const int tenth = static_cast<int>(p.fraction() * 10);
            if (!last && tenth == m_tenth) {
                return;
            }
            m_tenth = tenth;
        }
        m_shown = now;
        m_last = p;
        const double fps = elapsed > 0 ? static_cast<double>(p.completedFrames) / elapsed : 0;
        const double left =
            fps > 0 ? static_cast<double>(std::max(0LL, p.totalFrames - p.completedFrames)) / fps : 0;
        constexpr int width = 30;
        const int filled = static_cast<int>(p.fraction() * width);
        std::string bar(static_cast<std::size_t>(filled), '#');
        bar.resize(width, '.');
        char line[160];
        std::snprintf(line, sizeof line, "[%s] %lld/%lld frames  %.1f fps  %s left", bar.c_str(),
                      p.completedFrames, p.totalFrames, fps, fps > 0 ? clockText(left).c_str() : "--:--");
        std::cerr << (m_terminal ? "\r" : "") << line << (m_terminal ? "   " : "\n") << std::flush;
        m_drawn = m_terminal;
    }

    // Ends a line that rewrites itself, before anything else is printed.
    void close() {
        if (m_drawn || (m_terminal && m_soundPercent >= 0)) {
            std::cerr << '\n';
        }
        m_drawn = false;
        m_soundPercent = -1;
    }

    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    bool m_terminal;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_framesStart;
    std::chrono::steady_clock::time_point m_shown;
    Exporter::Progress m_last{-1, -1};
    int m_soundPercent = -1;
    int m_tenth = -1;
    bool m_drawn = false;
};

} // namespace

int runExport(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("export", args, {}, {"--preset", "-o", "--subtitles", "--fps"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto presetId = parsed->value("--preset");
    const auto output = parsed->value("-o");
    if (!presetId || !output) {
        report("export needs --preset ID and -o FILE; see 'marlowick export --help'");
        return exitUsage;
    }
    const ExportPreset* preset = nullptr;
    for (const ExportPreset& p : ExportPreset::all()) {
        if (p.id == *presetId) {
            preset = &p;
        }
    }
    if (preset == nullptr) {
        report("export: no preset '" + *presetId + "'; 'marlowick presets' lists them");
        return exitUsage;
    }
    ExportPreset atRate = *preset;
    if (const auto fps = parsed->value("--fps")) {
        char* end = nullptr;
        const long rate = std::strtol(fps->c_str(), &end, 10);
        if (fps->empty() || *end != '\0' || rate < 1 || rate > 240) {
            throw UsageError("--fps takes a whole number of frames a second from 1 to 240, got '" + *fps +
                             "'");
        }
        atRate.frameRate = static_cast<double>(rate);
        atRate.constantRate = true;
        preset = &atRate;
    }
    const auto subtitlesAsked = parsed->value("--subtitles");
    std::optional<SubtitleFormat> subtitles;
    if (subtitlesAsked && *subtitlesAsked != "none") {
        subtitles = enumFromName<SubtitleFormat>(*subtitlesAsked);
        if (!subtitles) {
            throw UsageError("--subtitles takes srt, vtt or none, got '" + *subtitlesAsked + "'");
        }
    }
    const std::filesystem::path package = parsed->words.front();
    // A preset this system can't write is the first thing to hear about, before its file's name.
    if (const ExportPreset* instead = preset->replacementOnThisSystem()) {
        reportFailure(package, ExportError(ExportError::Kind::presetUnavailable, instead->id));
        return exitFailure;
    }
    if (!acceptsOutput("export", *output, "." + std::string(enumName(preset->container)))) {
        return exitUsage;
    }
    const auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    const bool hasCaptions = document->project.captions && !document->project.captions->cues.empty();
    if (!subtitlesAsked && hasCaptions) {
        subtitles = SubtitleFormat::srt;
    }
    std::filesystem::path subtitlePath;
    if (subtitles) {
        if (!hasCaptions) {
            report(package.string() +
                   ": the project has no captions to write as subtitles; 'marlowick captions " +
                   package.string() + " --write' makes them");
            return exitFailure;
        }
        subtitlePath = std::filesystem::path(*output).replace_extension(enumName(*subtitles));
        if (!acceptsOutput("export", subtitlePath, "." + std::string(enumName(*subtitles)))) {
            return exitUsage;
        }
    }

    const InterruptWatch interrupts(*output);
    ProgressLine progress;
    // Said once the export is under way, so that a refusal comes as its one line.
    bool announced = false;
    const auto announce = [&] {
        if (!announced) {
            announced = true;
            std::cerr << "Exporting " << package.filename().string() << " as " << preset->name << " ("
                      << preset->size.width << "×" << preset->size.height << ")\n";
        }
    };
    long long frames = 0;
    try {
        Exporter{}.exportMovie(
            document->project, document->telemetry(), *preset, *output,
            [&](const Exporter::Progress& p) {
                announce();
                if (p.completedFrames == 0) {
                    progress.close();
                }
                progress.frames(p);
                frames = p.completedFrames;
            },
            interrupts.token(),
            [&](double fraction) {
                announce();
                progress.sound(fraction);
            });
    } catch (const ExportError& e) {
        progress.close();
        reportFailure(package, e);
        return e.kind() == ExportError::Kind::cancelled ? exitInterrupted : exitFailure;
    } catch (const std::exception& e) {
        progress.close();
        reportFailure(package, e);
        return exitFailure;
    }
    progress.close();
    char line[200];
    std::snprintf(line, sizeof line, "Wrote %s (%lld frames in %.1f s)\n", output->c_str(), frames,
                  progress.seconds());
    std::cout << line;
    if (subtitles) {
        const auto cues = subtitleCues(*document->project.captions, document->project.effectiveTrim());
        try {
            writeSubtitles(subtitlePath, cues, *subtitles);
        } catch (const std::exception& e) {
            reportFailure(subtitlePath, e, PackageAccess::saving);
            return exitFailure;
        }
        std::cout << "Wrote " << subtitlePath.string() << " (" << counted(cues.size(), "cue") << ")\n";
    }
    return 0;
}

} // namespace marlowick::cli
