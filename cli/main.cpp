// marlowick: the command-line tool for Marlowick project packages.

#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"

#include <iostream>
#include <string_view>

namespace {

constexpr std::string_view usage = R"(Usage: marlowick COMMAND [ARGUMENTS]

Works on Marlowick project packages (directories ending in .marlowick).

Commands:
  info PACKAGE [--json]   Summarise a package, or print its project as the package stores it.
  resave IN OUT           Read the package IN and write it to OUT, bringing older files up to date.
  zoom PACKAGE [--style S] [--json] [--write]
                          Direct the zooms again from the telemetry, keeping the beats a person edited.
  frame PACKAGE --at SECONDS [--size WxH] -o FILE.png
                          Draw one finished frame of the project as a picture.
  mix PACKAGE -o FILE.m4a Render the project's finished sound.
  silence PACKAGE [--threshold F] [--minimum S] [--padding S] [--write]
                          Find the pauses in the voice, and with --write cut them.
  captions PACKAGE [--locale L] [--write] [--json] [--srt FILE | --vtt FILE]
                          Transcribe the voice on this machine into captions, or read them from a
                          subtitle file with --from FILE; --locales lists languages.
  style PACKAGE --from OTHER [--dry-run]
                          Give the package the canvas, cursor and sound settings of another.
  set PACKAGE KEY=VALUE... [--dry-run] | --list
                          Change the project's settings (canvas.deviceFrame=laptop ...), or list them.
  presets [PACKAGE]       List the export presets, marking those that suit the project's shape.
  export PACKAGE --preset ID -o FILE
                          Export the finished movie with one of the presets.
  import MOVIE -o PACKAGE  Make a new project from a movie made elsewhere.
  sample PACKAGE [--size WxH] [--rate FPS] [--seconds S] [--no-voice]
                          Make a sample take (a synthetic desktop, telemetry, sound) as a package.
  record [-o PACKAGE] [--seconds N] [--no-system-audio] [--mic] [--countdown N]
         [--monitor NAME]
                          Record a monitor (the primary one unless named), its sound, the microphone
                          and the telemetry into a new package.
  recover [TAKE -o PACKAGE]
                          List the takes the window left unsaved (after a crash), or make a package
                          of one.

Run 'marlowick help COMMAND' (or 'marlowick COMMAND --help') for more about a command, with examples.
'marlowick --version' prints the version.
)";

} // namespace

bool marlowick::cli::wantsHelp(const std::vector<std::string>& args) {
    for (const std::string& a : args) {
        if (a == "--help" || a == "-h") {
            return true;
        }
    }
    return false;
}

namespace {

int dispatch(std::string_view command, const std::vector<std::string>& args);

} // namespace

int main(int argc, char** argv) {
    using namespace marlowick::cli;
    if (argc < 2) {
        std::cerr << usage;
        return exitUsage;
    }
    std::string_view command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--version" || command == "-V") {
        std::cout << "marlowick " << MARLOWICK_VERSION << '\n';
        return 0;
    }
    // "help COMMAND" is that command's own help.
    if (command == "help" && argc > 2) {
        command = argv[2];
        args = {"--help"};
    } else if (command == "--help" || command == "-h" || command == "help") {
        std::cout << usage;
        return 0;
    }
    try {
        return dispatch(command, args);
    } catch (const UsageError& e) {
        report(e.what());
        return exitUsage;
    }
}

namespace {

int dispatch(std::string_view command, const std::vector<std::string>& args) {
    using namespace marlowick::cli;
    if (command == "info") {
        return runInfo(args);
    }
    if (command == "resave") {
        return runResave(args);
    }
    if (command == "zoom") {
        return runZoom(args);
    }
    if (command == "frame") {
        return runFrame(args);
    }
    if (command == "mix") {
        return runMix(args);
    }
    if (command == "silence") {
        return runSilence(args);
    }
    if (command == "style") {
        return runStyle(args);
    }
    if (command == "set") {
        return runSet(args);
    }
    if (command == "presets") {
        return runPresets(args);
    }
    if (command == "record") {
        return runRecord(args);
    }
    if (command == "export") {
        return runExport(args);
    }
    if (command == "captions") {
        return runCaptions(args);
    }
    if (command == "import") {
        return runImport(args);
    }
    if (command == "sample") {
        return runSample(args);
    }
    if (command == "recover") {
        return runRecover(args);
    }
    report("unknown command '" + std::string(command) + "'; see 'marlowick --help'");
    return exitUsage;
}

} // namespace
