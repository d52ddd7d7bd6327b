#pragma once

// What the window's tests share: file panels that answer from queues (support/QueuedPanels.h), and waiting
// on the event loop.

#include "session/EditorSession.h"
#include "session/PlaybackEngine.h"
#include "support/QueuedPanels.h"

#include <QApplication>

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace marlowick::test {

// Runs the event loop until `done` holds or `seconds` have passed; answers whether it holds.
inline bool within(double seconds, const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done() && std::chrono::steady_clock::now() < end) {
        QApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return done();
}

// Whether the package just opened in `session` plays as it will stay: the player loaded, and where the
// project processes its sound, loaded again with the mix once that is rendered. Until then a reload may
// come at any moment, and a seek asked while the player is being replaced is dropped.
inline bool openedPreviewSettled(const EditorSession& session) {
    if (!session.document() || session.playback()->videoOutput() == nullptr) {
        return false;
    }
    return session.document()->project.audio.isPassthrough() ||
           (session.audioPreviewUrl().has_value() && !session.isRenderingAudioPreview());
}

} // namespace marlowick::test
