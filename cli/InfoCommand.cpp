#include "Arguments.h"
#include "Commands.h"

#include "model/MarlowickDocument.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <map>
#include <sstream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick info PACKAGE [--json]

Prints a summary of the package: name, duration, frame size and rate, canvas, zooms, cuts, captions,
audio settings and the telemetry by kind.

Options:
  --json   Print the project as the package stores it in Document.json instead.

Examples:
  marlowick info demo.marlowick
  marlowick info demo.marlowick --json > project.json
)";

std::string format(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

// "1:02.5" for 62.5 seconds.
std::string clock(double seconds) {
    const double total = std::max(seconds, 0.0);
    const auto minutes = static_cast<long long>(total / 60);
    char text[64];
    std::snprintf(text, sizeof text, "%lld:%04.1f", minutes, total - static_cast<double>(minutes) * 60);
    return text;
}

std::string onOff(bool value) {
    return value ? "on" : "off";
}

std::string describeBackground(const Background& background) {
    struct Visitor {
        std::string operator()(const Background::Transparent&) const { return "transparent"; }
        std::string operator()(const Background::Solid& s) const { return "solid " + s.hex; }
        std::string operator()(const Background::LinearGradient& g) const {
            return "gradient " + g.from + " to " + g.to + " at " + format("%g°", g.angle);
        }
        std::string operator()(const Background::MeshGradient& m) const {
            return "mesh of " + std::to_string(m.stops.size()) + " colours";
        }
        std::string operator()(const Background::Image& i) const { return "image " + i.url.absoluteString; }
        std::string operator()(const Background::BlurredSource& b) const {
            return "blurred source, radius " + format("%g", b.radius);
        }
    };
    return std::visit(Visitor{}, background.value);
}

void printSummary(const MarlowickDocument& document) {
    const Project& p = document.project;
    const Recording& s = p.source;
    std::ostringstream out;
    auto line = [&](std::string_view label, const std::string& text) {
        out << label << std::string(12 - label.size(), ' ') << text << '\n';
    };

    line("Name", p.name);
    line("Duration", clock(s.duration) + " (" + format("%.2f s", s.duration) + ")");
    line("Frame", format("%g", s.size.width) + " × " + format("%g", s.size.height) + " at " +
                      format("%g fps", s.frameRate));
    line("Sound", std::string("system audio ") + (s.capturedSystemAudio ? "yes" : "no") + ", microphone " +
                      (s.capturedMicrophone ? "yes" : "no"));

    const Canvas& c = p.canvas;
    std::string canvas = std::string(displayName(c.ratio)) + ", " + std::string(displayName(c.contentMode)) +
                         ", " + describeBackground(c.background) + ", inset " + format("%g", c.inset);
    if (c.deviceFrame) {
        canvas += ", in " + c.deviceFrame->name;
    }
    line("Canvas", canvas);

    std::size_t generated = 0;
    for (const ZoomBeat& b : p.camera.beats) {
        generated += b.isGenerated ? 1 : 0;
    }
    line("Zoom", std::string(displayName(p.camera.style)) + ", " + counted(p.camera.beats.size(), "beat") +
                     " (" + std::to_string(generated) + " generated, " +
                     std::to_string(p.camera.beats.size() - generated) + " edited)");

    double cutSeconds = 0;
    for (const Span& cut : p.manualCuts) {
        cutSeconds += cut.duration();
    }
    std::string cuts =
        std::to_string(p.manualCuts.size()) + " by hand (" + format("%.1f s", cutSeconds) + ")";
    if (p.trim) {
        cuts += "; silence cutting " + onOff(p.audio.silence.isEnabled) + " with " +
                counted(p.trim->removals().size(), "pause") + " found (" +
                format("%.1f s", p.trim->removedDuration()) + ")";
    } else {
        cuts += "; silence not analysed";
    }
    line("Cuts", cuts);
    line("Output", clock(p.effectiveTrim().outputDuration()) + " after cuts");

    if (p.captions) {
        std::size_t words = 0;
        for (const auto& cue : p.captions->cues) {
            words += cue.words.size();
        }
        line("Captions", counted(p.captions->cues.size(), "cue") + ", " + counted(words, "word") + ", " +
                             onOff(p.captions->isEnabled));
    } else {
        line("Captions", "none");
    }

    const AudioSettings& a = p.audio;
    std::string audio = "system " + format("×%.2f", a.systemGain) + ", voice " +
                        format("×%.2f", a.voiceGain) + "; enhance voice " + onOff(a.enhanceVoice) +
                        "; ducking " + format("%.2f", a.ducking) + "; clicks " + onOff(a.clickSounds) +
                        "; normalize " + onOff(a.normalize) + "; music " +
                        (a.music ? a.music->name : std::string("none"));
    if (a.isPassthrough()) {
        audio += " (played as recorded)";
    }
    line("Audio", audio);

    std::map<InputEvent::Kind, std::size_t> counts;
    for (const InputEvent& e : document.telemetry()) {
        ++counts[e.kind];
    }
    std::string telemetry = counted(document.telemetry().size(), "event");
    for (InputEvent::Kind kind : allCases<InputEvent::Kind>()) {
        telemetry += (kind == InputEvent::Kind::move ? ": " : ", ") + std::to_string(counts[kind]) + " " +
                     std::string(enumName(kind));
    }
    line("Telemetry", telemetry);
    std::cout << out.str();
}

} // namespace

int runInfo(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("info", args, {"--json"}, {}, 1);
    if (!parsed) {
        return exitUsage;
    }
    const auto document = openPackage(parsed->words.front());
    if (!document) {
        return exitFailure;
    }
    if (parsed->has("--json")) {
        std::cout << document->storedProjectJson() << '\n';
    } else {
        printSummary(*document);
    }
    return 0;
}

} // namespace marlowick::cli
