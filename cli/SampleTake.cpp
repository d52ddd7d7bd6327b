#include "SampleTake.h"

#include "media/AudioFile.h"
#include "media/VideoEncoder.h"
#include "model/FileOps.h"
#include "model/Uuid.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>

namespace marlowick::cli {

namespace fs = std::filesystem;

namespace {

// The scene is laid out on a 1280×720 design grid and scaled to the take's size.
constexpr double designWidth = 1280;
constexpr double designHeight = 720;

constexpr const char* narration =
    "Here is a quick tour. First I click into the editor and type a greeting. Then I save the page in "
    "the browser, scroll through the dashboard, and finally open the menu in the corner.";
constexpr std::string_view typed = "Hello, world!";

// The script, in seconds and design pixels.
struct Waypoint {
    double time;
    double x;
    double y;
};
constexpr Waypoint path[] = {
    {0.0, 640, 400}, {0.4, 640, 400}, {1.4, 262, 262}, {4.6, 262, 262},  {5.6, 960, 432},
    {6.6, 960, 432}, {6.9, 940, 380}, {9.2, 940, 380}, {10.0, 1236, 14}, {1e9, 1236, 14},
};
constexpr double editorClick = 1.6;
constexpr double typingStart = 2.0;
constexpr double keyInterval = 0.12;
constexpr double saveClick = 5.9;
constexpr double scrollStart = 7.0;
constexpr double scrollEnd = 8.4;
constexpr double scrollInterval = 0.1;
constexpr double menuClick = 10.2;

double smoothstep(double p) {
    p = std::clamp(p, 0.0, 1.0);
    return p * p * (3 - 2 * p);
}

// Where the pointer is at `t`, in design pixels: eased from one waypoint to the next.
std::pair<double, double> pointerAt(double t) {
    for (std::size_t i = 0; i + 1 < std::size(path); ++i) {
        const Waypoint& a = path[i];
        const Waypoint& b = path[i + 1];
        if (t < b.time) {
            const double e = smoothstep((t - a.time) / (b.time - a.time));
            return {a.x + (b.x - a.x) * e, a.y + (b.y - a.y) * e};
        }
    }
    return {path[0].x, path[0].y};
}

std::vector<InputEvent> telemetryFor(double duration, double sx, double sy) {
    std::vector<InputEvent> events;
    auto at = [&](double x, double y) { return Point{x * sx, y * sy}; };
    // Moves at 120 Hz while the pointer travels; none while it rests, as a real monitor reports.
    std::pair<double, double> last{-1, -1};
    for (int i = 0; i / 120.0 <= duration; ++i) {
        const double t = i / 120.0;
        const auto p = pointerAt(t);
        if (std::abs(p.first - last.first) > 1e-6 || std::abs(p.second - last.second) > 1e-6) {
            events.push_back({t, InputEvent::Kind::move, at(p.first, p.second)});
            last = p;
        }
    }
    auto click = [&](double t) {
        const auto p = pointerAt(t);
        events.push_back({t, InputEvent::Kind::down, at(p.first, p.second)});
        events.push_back({t + 0.08, InputEvent::Kind::up, at(p.first, p.second)});
    };
    click(editorClick);
    for (std::size_t k = 0; k < typed.size(); ++k) {
        const double t = typingStart + static_cast<double>(k) * keyInterval;
        const auto p = pointerAt(t);
        events.push_back({t, InputEvent::Kind::keyPress, at(p.first, p.second)});
    }
    click(saveClick);
    for (double t = scrollStart; t <= scrollEnd + 1e-9; t += scrollInterval) {
        const auto p = pointerAt(t);
        events.push_back({t, InputEvent::Kind::scroll, at(p.first, p.second)});
    }
    click(menuClick);
    std::erase_if(events, [&](const InputEvent& e) { return e.time > duration; });
    std::stable_sort(events.begin(), events.end(),
                     [](const InputEvent& a, const InputEvent& b) { return a.time < b.time; });
    return events;
}

void roundedRect(cairo_t* cr, double x, double y, double w, double h, double r) {
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -std::numbers::pi / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, std::numbers::pi / 2);
    cairo_arc(cr, x + r, y + h - r, r, std::numbers::pi / 2, std::numbers::pi);
    cairo_arc(cr, x + r, y + r, r, std::numbers::pi, 3 * std::numbers::pi / 2);
    cairo_close_path(cr);
}

void text(cairo_t* cr, double x, double y, double size, const std::string& s, bool bold = false) {
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
    cairo_move_to(cr, x, y);
    cairo_show_text(cr, s.c_str());
}

void window(cairo_t* cr, double x, double y, double w, double h, const std::string& title) {
    cairo_set_source_rgba(cr, 0, 0, 0, 0.25); // a soft drop shadow
    roundedRect(cr, x + 4, y + 8, w, h, 10);
    cairo_fill(cr);
    cairo_set_source_rgb(cr, 0.97, 0.97, 0.98);
    roundedRect(cr, x, y, w, h, 10);
    cairo_fill(cr);
    cairo_set_source_rgb(cr, 0.88, 0.89, 0.91);
    roundedRect(cr, x, y, w, 34, 10);
    cairo_fill(cr);
    cairo_rectangle(cr, x, y + 24, w, 10);
    cairo_fill(cr);
    const double colours[3][3] = {{0.94, 0.36, 0.33}, {0.96, 0.75, 0.25}, {0.35, 0.78, 0.36}};
    for (int i = 0; i < 3; ++i) {
        cairo_set_source_rgb(cr, colours[i][0], colours[i][1], colours[i][2]);
        cairo_arc(cr, x + 18 + i * 20, y + 17, 6, 0, 2 * std::numbers::pi);
        cairo_fill(cr);
    }
    cairo_set_source_rgb(cr, 0.25, 0.26, 0.3);
    text(cr, x + 90, y + 22, 13, title);
}

void drawFrame(cairo_t* cr, double t) {
    // Wallpaper.
    cairo_pattern_t* wallpaper = cairo_pattern_create_linear(0, 0, designWidth, designHeight);
    cairo_pattern_add_color_stop_rgb(wallpaper, 0, 0.12, 0.16, 0.32);
    cairo_pattern_add_color_stop_rgb(wallpaper, 1, 0.10, 0.42, 0.46);
    cairo_set_source(cr, wallpaper);
    cairo_paint(cr);
    cairo_pattern_destroy(wallpaper);

    // The editor: placeholder lines, then the line being typed with its caret.
    window(cr, 80, 80, 540, 480, "notes.txt — Editor");
    for (int line = 0; line < 9; ++line) {
        const double width = 120 + std::fmod(line * 97.0, 300.0);
        cairo_set_source_rgb(cr, 0.78, 0.8, 0.84);
        roundedRect(cr, 110, 140 + line * 26, width, 10, 4);
        cairo_fill(cr);
    }
    const auto keys = static_cast<std::size_t>(
        std::clamp(std::floor((t - typingStart) / keyInterval) + 1, 0.0, static_cast<double>(typed.size())));
    cairo_set_source_rgb(cr, 0.1, 0.12, 0.18);
    text(cr, 110, 398, 22, std::string(typed.substr(0, keys)));
    if (t >= editorClick && std::fmod(t, 1.0) < 0.6) {
        cairo_text_extents_t extents;
        cairo_text_extents(cr, std::string(typed.substr(0, keys)).c_str(), &extents);
        cairo_rectangle(cr, 112 + extents.x_advance, 378, 2, 26);
        cairo_fill(cr);
    }

    // The browser: a dashboard that scrolls, with a Save button and the toast it brings up.
    window(cr, 680, 100, 540, 540, "Dashboard — Browser");
    cairo_set_source_rgb(cr, 1, 1, 1);
    roundedRect(cr, 700, 144, 500, 26, 13);
    cairo_fill(cr);
    cairo_set_source_rgb(cr, 0.45, 0.47, 0.52);
    text(cr, 716, 162, 12, "localhost:8080/dashboard");
    const double scroll = 260 * smoothstep((t - scrollStart) / (scrollEnd - scrollStart + 0.4));
    cairo_save(cr);
    cairo_rectangle(cr, 681, 180, 538, 458);
    cairo_clip(cr);
    cairo_translate(cr, 0, -scroll);
    cairo_set_source_rgb(cr, 0.12, 0.14, 0.2);
    text(cr, 706, 218, 24, "Weekly report", true);
    const double cards[4][3] = {{0.36, 0.55, 0.95}, {0.95, 0.55, 0.36}, {0.4, 0.78, 0.6}, {0.7, 0.5, 0.9}};
    for (int i = 0; i < 8; ++i) {
        const double* c = cards[i % 4];
        cairo_set_source_rgb(cr, c[0], c[1], c[2]);
        roundedRect(cr, 706 + (i % 2) * 250, 240 + (i / 2) * 170 + (i >= 2 ? 60 : 0), 230, 150, 12);
        cairo_fill(cr);
    }
    const bool pressed = t >= saveClick && t < saveClick + 0.15;
    cairo_set_source_rgb(cr, pressed ? 0.1 : 0.16, pressed ? 0.35 : 0.45, pressed ? 0.75 : 0.9);
    roundedRect(cr, 900, 412, 120, 40, 8);
    cairo_fill(cr);
    cairo_set_source_rgb(cr, 1, 1, 1);
    text(cr, 937, 438, 16, "Save", true);
    cairo_restore(cr);
    if (t >= saveClick + 0.1 && t < saveClick + 2.5) {
        cairo_set_source_rgba(cr, 0.1, 0.12, 0.16, 0.92);
        roundedRect(cr, 860, 580, 200, 40, 20);
        cairo_fill(cr);
        cairo_set_source_rgb(cr, 0.6, 0.95, 0.7);
        text(cr, 900, 606, 15, "Saved");
    }

    // The top bar with its clock and menu, and the menu once opened.
    cairo_set_source_rgba(cr, 0.05, 0.06, 0.08, 0.85);
    cairo_rectangle(cr, 0, 0, designWidth, 28);
    cairo_fill(cr);
    cairo_set_source_rgb(cr, 0.92, 0.93, 0.95);
    text(cr, 14, 19, 13, "Activities");
    const int minute = 42 + static_cast<int>(t / 60);
    text(cr, 612, 19, 13, "10:" + std::to_string(minute));
    for (int i = 0; i < 3; ++i) {
        cairo_rectangle(cr, 1228, 8 + i * 5, 16, 2);
        cairo_fill(cr);
    }
    if (t >= menuClick) {
        cairo_set_source_rgb(cr, 0.98, 0.98, 0.99);
        roundedRect(cr, 1100, 32, 168, 118, 8);
        cairo_fill(cr);
        const char* items[] = {"Settings", "Keyboard shortcuts", "About", "Quit"};
        for (int i = 0; i < 4; ++i) {
            cairo_set_source_rgb(cr, 0.2, 0.22, 0.28);
            text(cr, 1116, 58 + i * 26, 13, items[i]);
        }
    }

    // The dock.
    cairo_set_source_rgba(cr, 1, 1, 1, 0.18);
    roundedRect(cr, 470, 652, 340, 58, 16);
    cairo_fill(cr);
    const double icons[5][3] = {
        {0.95, 0.45, 0.3}, {0.3, 0.6, 0.95}, {0.4, 0.8, 0.5}, {0.95, 0.8, 0.3}, {0.7, 0.45, 0.9}};
    for (int i = 0; i < 5; ++i) {
        cairo_set_source_rgb(cr, icons[i][0], icons[i][1], icons[i][2]);
        roundedRect(cr, 486 + i * 64, 662, 46, 38, 10);
        cairo_fill(cr);
    }
}

// The narration as mono samples at 48 kHz, by way of flite and a temporary WAV file.
std::vector<float> speak(const fs::path& scratch) {
    const fs::path wav = scratch / "voice.wav";
    const std::string command =
        "flite -voice slt -t \"" + std::string(narration) + "\" -o '" + wav.string() + "'";
    if (std::system(command.c_str()) != 0 || !fs::exists(wav)) {
        throw std::runtime_error("flite could not speak the narration (is the flite package installed?)");
    }
    return AudioFile::decodeTrack(wav, 0);
}

// A quiet pad of three tones that breathes slowly, and a short tick at each click.
std::vector<float> systemSound(double duration, const std::vector<InputEvent>& events) {
    const auto count = static_cast<std::size_t>(duration * AudioFile::sampleRate);
    std::vector<float> out(count);
    constexpr double tones[] = {220.0, 277.18, 329.63};
    for (std::size_t i = 0; i < count; ++i) {
        const double t = static_cast<double>(i) / AudioFile::sampleRate;
        double v = 0;
        for (const double f : tones) {
            v += std::sin(2 * std::numbers::pi * f * t);
        }
        const double swell = 0.6 + 0.4 * std::sin(2 * std::numbers::pi * 0.15 * t);
        out[i] =
            static_cast<float>(0.03 * swell * v * smoothstep(t / 0.5) * smoothstep((duration - t) / 0.5));
    }
    for (const InputEvent& e : events) {
        if (e.kind != InputEvent::Kind::down) {
            continue;
        }
        const auto start = static_cast<std::size_t>(e.time * AudioFile::sampleRate);
        for (std::size_t k = 0; k < 960 && start + k < count; ++k) {
            const double t = static_cast<double>(k) / AudioFile::sampleRate;
            out[start + k] +=
                static_cast<float>(0.25 * std::exp(-t * 400) * std::sin(2 * std::numbers::pi * 2400 * t));
        }
    }
    return out;
}

struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};
struct ContextDeleter {
    void operator()(cairo_t* c) const { cairo_destroy(c); }
};

} // namespace

SampleTake::Result SampleTake::write(const fs::path& movie,
                                     const std::function<void(double)>& progress) const {
    const fileops::RemovedOnExit scratchDirectory(movie.parent_path() /
                                                  (".sample-" + Uuid::random().toString()));
    const fs::path& scratch = scratchDirectory.path();
    fs::create_directories(scratch);

    std::vector<float> voiceSamples;
    const double voiceStart = 0.4;
    if (voice) {
        voiceSamples = speak(scratch);
        voiceSamples.insert(voiceSamples.begin(),
                            static_cast<std::size_t>(voiceStart * AudioFile::sampleRate), 0.0f);
    }
    double duration = seconds;
    if (duration <= 0) {
        duration = std::max(12.0, static_cast<double>(voiceSamples.size()) / AudioFile::sampleRate + 1.0);
    }
    voiceSamples.resize(static_cast<std::size_t>(duration * AudioFile::sampleRate), 0.0f);

    Result result{movie, duration, telemetryFor(duration, width / designWidth, height / designHeight)};

    VideoEncoder::Settings settings;
    settings.codec = VideoEncoder::Codec::h264;
    settings.container = VideoEncoder::Container::mov;
    settings.width = width;
    settings.height = height;
    settings.frameRate = frameRate;
    settings.timeScale = static_cast<int>(std::lround(frameRate * 1000));
    settings.allowHardware = false; // a source made the same way everywhere
    const fs::path system = scratch / "system.m4a";
    AudioFile::writeAac(system, systemSound(duration, result.telemetry));
    settings.audio.push_back({system, 0});
    if (voice) {
        const fs::path voiceFile = scratch / "voice.m4a";
        AudioFile::writeAac(voiceFile, voiceSamples);
        settings.audio.push_back({voiceFile, 0});
    }

    VideoEncoder encoder(movie, settings);
    const std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
    const std::unique_ptr<cairo_t, ContextDeleter> cr(cairo_create(surface.get()));
    cairo_scale(cr.get(), width / designWidth, height / designHeight);
    const auto frames = static_cast<long long>(std::floor(duration * frameRate));
    for (long long i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / frameRate;
        drawFrame(cr.get(), t);
        cairo_surface_flush(surface.get());
        encoder.encode(cairo_image_surface_get_data(surface.get()),
                       cairo_image_surface_get_stride(surface.get()), t);
        if (progress && i % 30 == 0) {
            progress(static_cast<double>(i) / static_cast<double>(frames));
        }
    }
    encoder.finish();
    return result;
}

} // namespace marlowick::cli
