// The sound and the picture of a take in step, on each desktop's capture: a flash on the screen and a beep
// into the system's sound and the microphone at the same moments, found again in the movie, each beep
// where its flash is. On X11 a real X server; on Wayland the synthetic screen shared through the fake
// portal from a private PipeWire; the sound from a private PulseAudio on both.

#include "capture/ScreenCapturer.h"
#include "capture/WaylandScreenCapturer.h"
#include "capture/X11Connection.h"
#include "capture/X11ScreenCapturer.h"
#include "media/AudioFile.h"
#include "media/VideoDecoder.h"
#include "support/Beeper.h"
#include "support/ColouredWindow.h"
#include "support/PipeWireDaemon.h"
#include "support/PortalBus.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/SyntheticScreen.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>
#include <pulse/error.h>
#include <pulse/simple.h>
#include <xcb/xcb.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

constexpr int rate = 48000;
// Where a beep (Beeper's, half the full scale) is taken to begin: its first sample above half its height,
// which the encoder's smearing of the sound ahead of a sudden beep doesn't reach.
constexpr float beepThreshold = 0.25f;

// Listens to a source of the private sound server from when it is made, in pieces of 10 ms, and notes when
// each beep on it begins (after a fifth of a second's quiet), on the monotonic clock: at its place in the
// stream, counted from the stream's start, which is the earliest arrival of a piece less the sound before it;
// so pieces that came late in a burst, while the machine was busy, are still put where they belong. (A new
// stream's first sound may come a second or more after it opens: `waitUntilHearing` waits for it.)
class Listener {
public:
    Listener(const std::string& server, const char* source) {
        pa_sample_spec spec{};
        spec.format = PA_SAMPLE_FLOAT32LE;
        spec.rate = rate;
        spec.channels = 1;
        pa_buffer_attr buffering{};
        buffering.maxlength = static_cast<std::uint32_t>(-1);
        buffering.tlength = static_cast<std::uint32_t>(-1);
        buffering.prebuf = static_cast<std::uint32_t>(-1);
        buffering.minreq = static_cast<std::uint32_t>(-1);
        buffering.fragsize = rate * 10 / 1000 * sizeof(float);
        int error = 0;
        m_stream = pa_simple_new(server.c_str(), "capture sync test", PA_STREAM_RECORD, source, "listener",
                                 &spec, nullptr, &buffering, &error);
        if (m_stream == nullptr) {
            throw std::runtime_error(std::string("no record stream: ") + pa_strerror(error));
        }
        m_listening = std::jthread([this](std::stop_token stop) {
            std::vector<float> piece(rate * 10 / 1000);
            std::int64_t read = 0; // samples before this piece
            double start = INFINITY;
            std::int64_t quiet = rate; // samples below the threshold up to here
            while (!stop.stop_requested()) {
                if (pa_simple_read(m_stream, piece.data(), piece.size() * sizeof(float), nullptr) < 0) {
                    return;
                }
                read += static_cast<std::int64_t>(piece.size());
                start = std::min(start, now() - static_cast<double>(read) / rate);
                m_hearing = true;
                for (std::size_t i = 0; i < piece.size(); ++i) {
                    if (std::abs(piece[i]) > beepThreshold) {
                        if (quiet > rate / 5) {
                            const auto at = read - static_cast<std::int64_t>(piece.size() - i);
                            std::lock_guard lock(m_lock);
                            m_beeps.push_back(start + static_cast<double>(at) / rate);
                        }
                        quiet = 0;
                    } else {
                        quiet += 1;
                    }
                }
            }
        });
    }
    ~Listener() {
        m_listening = {};
        pa_simple_free(m_stream);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::vector<double> beeps() {
        std::lock_guard lock(m_lock);
        return m_beeps;
    }
    // False when no sound came within five seconds.
    bool waitUntilHearing() const {
        for (int i = 0; i < 500 && !m_hearing; ++i) {
            std::this_thread::sleep_for(10ms);
        }
        return m_hearing;
    }

private:
    pa_simple* m_stream = nullptr;
    std::atomic<bool> m_hearing = false;
    std::mutex m_lock;
    std::vector<double> m_beeps;
    std::jthread m_listening;
};

// A desktop whose screen can flash white, and the capturer that records it.
class Desktop {
public:
    virtual ~Desktop() = default;
    // The first thing missing that the desktop needs, or one that is there.
    virtual Prerequisite ready() const = 0;
    virtual ScreenCapturer& capturer() = 0;
    // Turns the flash on or off.
    virtual void flash(bool on) = 0;
    // After the take: when each flash was first shown, in seconds on the monotonic clock.
    virtual std::vector<double> flashesShown() = 0;
};

// A white window over the whole screen, mapped for a flash.
class X11Desktop : public Desktop {
public:
    explicit X11Desktop(const SoundServer& sound) {
        if (m_display.name().empty()) {
            return;
        }
        m_capturer.emplace(X11ScreenCapturer::Options{m_display.name(), sound.server()});
        m_connection.emplace(m_display.name());
        const xcb_screen_t& screen = m_connection->screen();
        m_window.emplace(*m_connection, 0xffffff, 0, 0, screen.width_in_pixels, screen.height_in_pixels,
                         false);
    }

    Prerequisite ready() const override { return xvfb(m_display); }
    ScreenCapturer& capturer() override { return *m_capturer; }
    void flash(bool on) override {
        const double before = now();
        m_window->show(on);
        if (on) {
            m_shown.push_back(before); // painted between the request and the answer to the next one
        }
    }
    std::vector<double> flashesShown() override { return m_shown; }

private:
    VirtualDisplay m_display;
    std::optional<X11ScreenCapturer> m_capturer;
    std::optional<X11Connection> m_connection;
    std::optional<ColouredWindow> m_window;
    std::vector<double> m_shown;
};

// The synthetic screen, shared through the fake portal; a flash makes its pictures all white.
class WaylandDesktop : public Desktop {
public:
    explicit WaylandDesktop(const SoundServer& sound) {
        if (!m_daemon.up() || !m_bus.up()) {
            return;
        }
        m_screen.emplace(m_daemon.connect(), SyntheticScreen::Options{});
        const std::uint32_t node = m_screen->nodeId();
        m_portal =
            m_bus.startPortal({"--pipewire", m_daemon.socket().string(), "--node", std::to_string(node)});
        WaylandScreenCapturer::Options options;
        options.portal = {m_bus.address(), 10};
        options.soundServer = sound.server();
        options.allowHardware = false;
        options.minimumFreeBytes = 0;
        // Linked a quarter of a second late, as a desktop's session manager and the producer's agreeing on
        // a format take their time: the sound's streams have been open all that while.
        options.connected = [this](std::uint32_t consumer) {
            std::this_thread::sleep_for(250ms);
            m_screen->link(consumer);
        };
        options.inputDevices = m_noDevices.path();
        m_capturer.emplace(options);
    }

    Prerequisite ready() const override {
        for (const Prerequisite& p : {pipeWire(m_daemon), sessionBus(m_bus), fakePortal(m_portal)}) {
            if (!p.present) {
                return p;
            }
        }
        return pipeWire(m_daemon);
    }
    ScreenCapturer& capturer() override { return *m_capturer; }
    void flash(bool on) override { m_screen->setFlash(on); }
    // The stamp of the first white picture of each run of them.
    std::vector<double> flashesShown() override {
        std::vector<double> shown;
        bool white = false;
        for (const SyntheticScreen::Sent& sent : m_screen->sent()) {
            if (sent.flash && !white) {
                shown.push_back(static_cast<double>(sent.pts) / 1e9);
            }
            white = sent.flash;
        }
        return shown;
    }

private:
    PipeWireDaemon m_daemon;
    PortalBus m_bus;
    TempDir m_noDevices;
    std::optional<SyntheticScreen> m_screen;
    bool m_portal = false;
    std::optional<WaylandScreenCapturer> m_capturer;
};

// When each run of white pictures begins in the movie, on its clock.
std::vector<double> flashesIn(const std::filesystem::path& movie) {
    std::vector<double> flashes;
    VideoDecoder decoder(movie);
    bool white = false;
    while (std::optional<VideoDecoder::Frame> frame = decoder.next()) {
        const BgraImage& image = frame->image;
        double sum = 0;
        int count = 0;
        for (int y = 0; y < image.height; y += 8) {
            for (int x = 0; x < image.width; x += 8) {
                sum += image.row(y)[4 * x + 1]; // green: nought in the synthetic screen's blue field
                count += 1;
            }
        }
        const bool bright = count > 0 && sum / count > 200;
        if (bright && !white) {
            flashes.push_back(frame->time);
        }
        white = bright;
    }
    return flashes;
}

// When the beep nearest after each of `expected` begins in a decoded track, looked for from a quarter
// of a second before; none where there is none within half a second.
std::vector<double> beepsIn(const std::vector<float>& track, const std::vector<double>& expected) {
    std::vector<double> beeps;
    for (const double time : expected) {
        double at = NAN;
        const auto from = static_cast<std::size_t>(std::max(0.0, time - 0.25) * rate);
        const auto to = std::min(track.size(), static_cast<std::size_t>((time + 0.5) * rate));
        for (std::size_t i = from; i < to; ++i) {
            if (std::abs(track[i]) > beepThreshold) {
                at = static_cast<double>(i) / rate;
                break;
            }
        }
        beeps.push_back(at);
    }
    return beeps;
}

enum class Backend { x11, wayland };

class CaptureSync : public testing::TestWithParam<Backend> {};

// Three flashes with their beeps, half a second apart. How far each beep lies after its flash in the
// movie, less how far it was heard after it (on the source the capture records, by a listener of the
// test's own), is the take's sound minus its picture: nought, but for up to a frame on X11, where a
// picture is stamped when it is grabbed. A track that began with sound from before the take is late by as
// much as that sound lasted.
TEST_P(CaptureSync, EachBeepIsWhereItsFlashIsOnBothSoundTracks) {
    const SoundServer sound;
    MARLOWICK_REQUIRE(pulseAudio(sound));
    const std::unique_ptr<Desktop> desktop = GetParam() == Backend::x11
                                                 ? std::unique_ptr<Desktop>(new X11Desktop(sound))
                                                 : std::unique_ptr<Desktop>(new WaylandDesktop(sound));
    MARLOWICK_REQUIRE(desktop->ready());
    const TempDir dir;
    Listener systemHeard(sound.server(), "sysaudio.monitor");
    Listener voiceHeard(sound.server(), "virtmic");
    Beeper system(sound.server(), "sysaudio");
    Beeper voice(sound.server(), "micsink");
    ASSERT_TRUE(systemHeard.waitUntilHearing());
    ASSERT_TRUE(voiceHeard.waitUntilHearing());

    CaptureConfiguration configuration;
    configuration.outputURL = dir / "take.mov";
    configuration.frameRate = 60;
    configuration.capturesAudio = true;
    configuration.capturesMicrophone = true;
    desktop->capturer().start(configuration);
    std::this_thread::sleep_for(500ms);
    for (int i = 0; i < 3; ++i) {
        desktop->flash(true);
        system.beep();
        voice.beep();
        std::this_thread::sleep_for(150ms);
        desktop->flash(false);
        std::this_thread::sleep_for(350ms);
    }
    std::this_thread::sleep_for(300ms);
    desktop->capturer().stop();
    EXPECT_TRUE(desktop->capturer().takeWarnings().empty());

    const std::vector<double> shown = desktop->flashesShown();
    const std::vector<double> flashes = flashesIn(configuration.outputURL);
    ASSERT_EQ(shown.size(), 3u);
    ASSERT_EQ(flashes.size(), 3u);
    for (const std::size_t track : {0u, 1u}) {
        SCOPED_TRACE(track == 0 ? "system sound" : "microphone");
        const std::vector<double> heard = (track == 0 ? systemHeard : voiceHeard).beeps();
        ASSERT_EQ(heard.size(), 3u);
        std::vector<double> expected;
        for (std::size_t i = 0; i < 3; ++i) {
            expected.push_back(flashes[i] + heard[i] - shown[i]);
        }
        const std::vector<double> beeps =
            beepsIn(AudioFile::decodeTrack(configuration.outputURL, track), expected);
        for (std::size_t i = 0; i < 3; ++i) {
            const double skew = beeps[i] - expected[i];
            std::printf("%s, %s, flash %zu: heard %.1f ms after it was shown; sound minus picture %+.1f ms\n",
                        GetParam() == Backend::x11 ? "X11" : "Wayland", track == 0 ? "system" : "microphone",
                        i, (heard[i] - shown[i]) * 1000, skew * 1000);
            // Within 40 ms either way: a frame, with room for a busy machine.
            EXPECT_NEAR(skew, 0.0, 0.04) << "flash " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Desktops, CaptureSync, testing::Values(Backend::x11, Backend::wayland),
                         [](const testing::TestParamInfo<Backend>& each) {
                             return each.param == Backend::x11 ? "X11" : "Wayland";
                         });

} // namespace
