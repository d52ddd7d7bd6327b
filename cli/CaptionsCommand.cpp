#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "InterruptWatch.h"

#include "audio/AudioRenderer.h"
#include "captions/CaptionTranscriber.h"
#include "export/SubtitleFile.h"
#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"

#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace marlowick::cli {

namespace {

constexpr std::string_view help =
    R"(Usage: marlowick captions PACKAGE [--locale L] [--write] [--json] [--srt FILE | --vtt FILE]
       marlowick captions PACKAGE --from FILE [--write] [--json]
       marlowick captions --locales

Listens to the recording's voice on this machine (nothing is sent anywhere) and prints the captions it
would make: the words grouped into cues of at most 8 words, a pause of 0.6 s or more starting a new one,
each with its times on the recording's clock. Nothing is saved without --write.

Options:
  --locale L   The language spoken, as en-US. By default the installed language that best matches
               LANGUAGE, LC_ALL, LC_MESSAGES or LANG; 'captions --locales' lists the installed ones.
  --write      Keep the cues as the project's captions, switched on, in the style its captions had.
  --json       Print the captions track as JSON instead of the table (with the recognised words beside
               its cues when transcribing); 'marlowick set PACKAGE captions=FILE' takes that file back.
  --from FILE  Make the captions from a subtitle file (SubRip .srt or WebVTT .vtt) instead of listening:
               one a person corrected, or one from another tool. Its times are on the finished video's
               clock, as --srt and 'export --subtitles' write them, and are moved back through the cuts;
               each cue's words are spread over its time by their length.
  --srt FILE   Write the captions as SubRip subtitles, on the finished video's clock (after the cuts).
  --vtt FILE   The same as WebVTT.
With --srt or --vtt alone, a project that has captions gives the ones it has, edits included, and
nothing is transcribed; one without captions is transcribed first.

Speech models come from the pocketsphinx-en-us package (English), or from a folder per locale under
~/.local/share/marlowick/speech/ holding an acoustic model, a language model and a dictionary.

Examples:
  marlowick captions demo.marlowick --write
  marlowick captions demo.marlowick --srt demo.srt
  marlowick captions demo.marlowick --from corrected.srt --write
)";

// The grouping the editor uses too.
constexpr std::size_t wordsPerCue = 8;
constexpr double cuePauseBreak = 0.6;

std::string span(double start, double end) {
    char text[48];
    std::snprintf(text, sizeof text, "%8.2f – %8.2f", start, end);
    return text;
}

int listLocales() {
    const std::vector<Locale> locales = CaptionTranscriber::onDeviceLocales();
    if (locales.empty()) {
        std::cout << "No speech models are installed. Install pocketsphinx-en-us for English, or put a "
                     "model in ~/.local/share/marlowick/speech/LOCALE/.\n";
        return 0;
    }
    const Locale chosen = CaptionTranscriber::defaultLocale();
    for (const Locale& l : locales) {
        std::cout << (l == chosen ? "* " : "  ") << l.identifier() << "  " << l.displayName() << '\n';
    }
    std::cout << "(* the one used unless --locale names another)\n";
    return 0;
}

// Transcribes the project's voice, reporting progress on a terminal. None when it failed or was stopped,
// which has been reported.
std::optional<std::vector<CaptionTrack::Word>> transcribeVoice(const std::filesystem::path& package,
                                                               const Project& project, const Locale& locale,
                                                               int& status) {
    const bool terminal = ::isatty(STDERR_FILENO) != 0;
    const std::string what =
        "Listening to " + package.filename().string() + " in " + locale.displayName() + "…";
    std::cerr << what << (terminal ? "" : "\n");
    int shown = -1;
    const auto progress = [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (terminal && percent != shown) {
            shown = percent;
            std::cerr << '\r' << what << ' ' << percent << '%' << std::flush;
        }
    };
    const InterruptWatch interrupts;
    try {
        // The voice alone, as recorded: the system sound would only add words nobody said to the viewer.
        const fileops::RemovedOnExit voice(std::filesystem::temp_directory_path() /
                                           ("marlowick-voice-" + Uuid::random().toString() + ".m4a"));
        AudioRenderer{}.extractVoice(project.source.mediaURL.path(), voice.path());
        auto words = CaptionTranscriber::transcribe(voice.path(), locale, interrupts.token(), progress);
        if (terminal) {
            std::cerr << '\n';
        }
        if (interrupts.token().stop_requested()) {
            report("captions stopped; nothing was saved");
            status = exitInterrupted;
            return std::nullopt;
        }
        return words;
    } catch (const std::exception& e) {
        if (terminal) {
            std::cerr << '\n';
        }
        reportFailure(package, e);
        status = exitFailure;
        return std::nullopt;
    }
}

// Prints the project's captions as the table or, with `json`, as the track's JSON (with `words` beside
// the cues when given).
void printCaptions(const CaptionTrack& track, bool json, const std::vector<CaptionTrack::Word>* words) {
    if (json) {
        Json shown = toJson(track);
        if (words) {
            Json wordList = Json::array();
            for (const CaptionTrack::Word& w : *words) {
                wordList.push_back(toJson(w));
            }
            shown["words"] = wordList;
        }
        std::cout << shown.dump(2) << '\n';
        return;
    }
    std::size_t wordCount = 0;
    for (const CaptionTrack::Cue& c : track.cues) {
        std::cout << span(c.start(), c.end()) << "  " << c.text() << '\n';
        wordCount += c.words.size();
    }
    std::cout << counted(track.cues.size(), "cue") << ", " << counted(wordCount, "word") << '\n';
}

int captionsFromFile(const std::filesystem::path& package, const std::filesystem::path& file, bool write,
                     bool json) {
    auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    std::vector<SubtitleCue> cues;
    try {
        cues = readSubtitles(file);
    } catch (const std::exception& e) {
        reportFailure(file, e);
        return exitFailure;
    }
    Project& project = document->project;
    project.captions = CaptionTrack{captionCuesFrom(cues, project.effectiveTrim()),
                                    project.captions ? project.captions->style : CaptionStyle{}, true};
    printCaptions(*project.captions, json, nullptr);
    std::ostream& said = json ? std::cerr : std::cout;
    if (!write) {
        said << "Nothing was saved: --write keeps these captions in the project\n";
        return 0;
    }
    if (!savePackage(*document, package)) {
        return exitFailure;
    }
    said << "Saved " << package.string() << '\n';
    return 0;
}

} // namespace

int runCaptions(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    if (args.size() == 1 && args.front() == "--locales") {
        return listLocales();
    }
    const auto parsed =
        parseArguments("captions", args, {"--write", "--json"}, {"--locale", "--srt", "--vtt", "--from"}, 1);
    if (!parsed) {
        return exitUsage;
    }
    if (const auto from = parsed->value("--from")) {
        if (parsed->value("--srt") || parsed->value("--vtt") || parsed->value("--locale")) {
            throw UsageError("captions: --from reads the captions from a file; it goes with --write and --json "
                             "alone");
        }
        return captionsFromFile(parsed->words.front(), *from, parsed->has("--write"),
                                parsed->has("--json"));
    }
    const auto srt = parsed->value("--srt");
    const auto vtt = parsed->value("--vtt");
    if (srt && vtt) {
        throw UsageError("captions: --srt and --vtt each name a file; give one of them");
    }
    const std::optional<SubtitleFormat> subtitles = srt   ? std::optional(SubtitleFormat::srt)
                                                    : vtt ? std::optional(SubtitleFormat::vtt)
                                                          : std::nullopt;
    const std::filesystem::path subtitlePath = srt ? *srt : vtt ? *vtt : std::string();
    if (subtitles && !acceptsOutput("captions", subtitlePath, "." + std::string(enumName(*subtitles)))) {
        return exitUsage;
    }
    std::optional<Locale> locale;
    if (const auto asked = parsed->value("--locale")) {
        locale = Locale(*asked);
    }

    const std::filesystem::path package = parsed->words.front();
    auto document = openPackage(package);
    if (!document) {
        return exitFailure;
    }
    Project& project = document->project;
    const bool hasCaptions = project.captions && !project.captions->cues.empty();
    const bool transcribing =
        !(subtitles && hasCaptions && !parsed->has("--write") && !locale && !parsed->has("--json"));

    if (transcribing) {
        const Locale language = locale ? *locale : CaptionTranscriber::defaultLocale();
        int status = 0;
        const auto words = transcribeVoice(package, project, language, status);
        if (!words) {
            return status;
        }
        if (words->empty()) {
            report(package.string() + ": No speech recognised in " + language.displayName() +
                   ". If you were speaking another language, name it with --locale ('marlowick captions "
                   "--locales' lists those installed).");
            return exitFailure;
        }
        const auto cues = CaptionTrack::cuesFromWords(*words, wordsPerCue, cuePauseBreak);
        project.captions =
            CaptionTrack{cues, project.captions ? project.captions->style : CaptionStyle{}, true};
        printCaptions(*project.captions, parsed->has("--json"), &*words);
        // With --json standard output holds the JSON alone; the confirmations go beside it.
        std::ostream& said = parsed->has("--json") ? std::cerr : std::cout;
        if (parsed->has("--write")) {
            if (!savePackage(*document, package)) {
                return exitFailure;
            }
            said << "Saved " << package.string() << '\n';
        } else if (!subtitles) {
            said << "Nothing was saved: --write keeps these captions in the project\n";
        }
    }

    if (subtitles) {
        const auto cues = subtitleCues(*project.captions, project.effectiveTrim());
        try {
            writeSubtitles(subtitlePath, cues, *subtitles);
        } catch (const std::exception& e) {
            reportFailure(subtitlePath, e, PackageAccess::saving);
            return exitFailure;
        }
        (parsed->has("--json") ? std::cerr : std::cout)
            << "Wrote " << subtitlePath.string() << " (" << counted(cues.size(), "cue") << ")\n";
    }
    return 0;
}

} // namespace marlowick::cli
