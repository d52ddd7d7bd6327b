// Transcribes about ten minutes of generated speech with the CaptionTranscriber and with PocketSphinx's
// own continuous tool on the same 16 kHz file, and prints each one's real-time factor and word error rate
// against the script. Needs flite, sox and pocketsphinx_continuous (Debian: flite, sox, pocketsphinx).
//
//   marlowick-captions-bench [minutes]

#include "captions/CaptionTranscriber.h"
#include "media/AudioFile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

// Sentences of the kind a product video says, read in a rotating order until the script is long enough.
const std::array<const char*, 24> sentences{
    "Please open the settings window and choose a new theme.",
    "Today we will look at how the export works.",
    "Click the record button to start a new take.",
    "The microphone level is shown in the top corner.",
    "After the recording finishes the editor opens by itself.",
    "You can trim the start and the end of each clip.",
    "Zoom in on the cursor when you type a long command.",
    "Captions are made from the sound of your voice.",
    "First we create a project and give it a name.",
    "The timeline shows every cut you have made so far.",
    "Drag the handle to the left to make the clip shorter.",
    "When you are happy with the result press the export button.",
    "The finished video is saved next to the recording.",
    "Let me show you how to add a background to the screen.",
    "This menu lists all the presets that your computer supports.",
    "We can change the speed of the cursor with this slider.",
    "Each click is drawn as a small ring that fades away.",
    "The keyboard shortcuts are listed at the bottom of the page.",
    "Now I will move the window a little to the right.",
    "If the sound is too quiet you can raise the volume here.",
    "The preview plays the video with all the effects applied.",
    "It takes about a minute to render a short video.",
    "Thank you for watching and see you in the next part.",
    "Remember to save your work before you close the program.",
};

double seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

std::vector<std::string> normalised(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        std::string clean;
        for (const char c : word) {
            if (std::isalnum(static_cast<unsigned char>(c)) || c == '\'') {
                clean += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            }
        }
        if (!clean.empty()) {
            words.push_back(clean);
        }
    }
    return words;
}

// Substitutions, deletions and insertions over the reference's length.
double wordErrorRate(const std::vector<std::string>& reference, const std::vector<std::string>& hypothesis) {
    std::vector<std::size_t> row(hypothesis.size() + 1);
    for (std::size_t j = 0; j <= hypothesis.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= reference.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= hypothesis.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min(
                {row[j] + 1, row[j - 1] + 1, diagonal + (reference[i - 1] == hypothesis[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return static_cast<double>(row[hypothesis.size()]) / static_cast<double>(reference.size());
}

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        std::cerr << "failed: " << command << "\n";
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? std::atof(argv[1]) : 10.0;
    const fs::path dir = fs::temp_directory_path() / ("marlowick-captions-bench-" + std::to_string(getpid()));
    fs::create_directories(dir);

    // About 3.3 words a second: enough sentences for the minutes asked for, rotating the order each round
    // so that no two rounds read alike.
    std::string script;
    std::size_t words = 0;
    for (std::size_t round = 0; static_cast<double>(words) < minutes * 60 * 3.3; ++round) {
        for (std::size_t i = 0; i < sentences.size(); ++i) {
            const std::string sentence = sentences[(i * 7 + round * 5) % sentences.size()];
            script += sentence + "\n";
            words += normalised(sentence).size();
        }
    }
    std::ofstream(dir / "script.txt") << script;
    std::cout << "generating " << words << " words of speech with flite...\n";
    run("flite -voice slt -f " + (dir / "script.txt").string() + " -o " + (dir / "raw.wav").string());
    const fs::path speech = dir / "speech.wav";
    run("sox -R " + (dir / "raw.wav").string() + " -r 16000 -c 1 -b 16 " + speech.string());
    const double length = AudioFile::duration(speech);
    const std::vector<std::string> reference = normalised(script);

    // Ours, on this thread: the decoder is single-threaded.
    auto started = std::chrono::steady_clock::now();
    double cpu = cpuSeconds(RUSAGE_SELF);
    std::string ourText;
    for (const CaptionTrack::Word& w : CaptionTranscriber::transcribe(speech, Locale("en-US"))) {
        ourText += w.text + " ";
    }
    const double ourWall = seconds(std::chrono::steady_clock::now() - started);
    const double ourCpu = cpuSeconds(RUSAGE_SELF) - cpu;

    // The tool prints one line of words per utterance.
    started = std::chrono::steady_clock::now();
    cpu = cpuSeconds(RUSAGE_CHILDREN);
    run("pocketsphinx_continuous -infile " + speech.string() + " -logfn /dev/null > " +
        (dir / "tool.txt").string());
    const double toolWall = seconds(std::chrono::steady_clock::now() - started);
    const double toolCpu = cpuSeconds(RUSAGE_CHILDREN) - cpu;
    std::ifstream toolFile(dir / "tool.txt");
    const std::string toolText((std::istreambuf_iterator<char>(toolFile)), std::istreambuf_iterator<char>());

    std::printf("speech: %.1f s, %zu words (flite slt, 16 kHz)\n", length, reference.size());
    std::printf("%-26s %10s %10s %8s %8s\n", "", "wall s", "cpu s", "RTF", "WER");
    std::printf("%-26s %10.1f %10.1f %8.3f %7.1f%%\n", "CaptionTranscriber", ourWall, ourCpu, ourCpu / length,
                100 * wordErrorRate(reference, normalised(ourText)));
    std::printf("%-26s %10.1f %10.1f %8.3f %7.1f%%\n", "pocketsphinx_continuous", toolWall, toolCpu,
                toolCpu / length, 100 * wordErrorRate(reference, normalised(toolText)));
    std::printf("(RTF: processor seconds per second of speech, on one core)\n");
    fs::remove_all(dir);
    return 0;
}
