#include "messages/Describe.h"

#include "audio/AudioRenderer.h"
#include "captions/TranscriptionError.h"
#include "capture/CaptureError.h"
#include "compositor/CompositorError.h"
#include "export/Exporter.h"
#include "export/SubtitleFile.h"
#include "media/MediaError.h"
#include "model/Coding.h"
#include "model/MarlowickDocument.h"
#include "takes/TakeError.h"

#include <filesystem>

namespace marlowick {

namespace {

// A package is a folder holding Document.json: say which part of that the path lacks.
std::string describeNotAPackage(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return "no such file or folder";
    }
    if (status.type() != std::filesystem::file_type::directory && !error) {
        return "is a file, not a Marlowick package (a package is a folder ending in .marlowick)";
    }
    return "not a Marlowick package (the folder has no Document.json)";
}

std::string describeDocument(const DocumentError& e, PackageAccess access) {
    const bool opening = access == PackageAccess::opening;
    switch (e.kind()) {
    case DocumentErrorKind::notAPackage:
        return opening ? describeNotAPackage(e.what())
                       : "already exists and is not a Marlowick package; it was left as it is";
    case DocumentErrorKind::unsupportedFormatVersion:
        return std::string("was saved by a newer Marlowick (format version ") + e.what() +
               "); this one reads versions up to " + std::to_string(MarlowickDocument::currentFormatVersion);
    case DocumentErrorKind::telemetryDamaged:
        return std::string(e.what()) +
               " is damaged, so the take's clicks, keys and pointer moves can't be read; "
               "the package was left as it is";
    case DocumentErrorKind::mediaMissing:
        return opening ? std::string("the movie ") + e.what() + " is missing from the package"
                       : std::string("can't save: the movie ") + e.what() + " can't be found";
    }
    return e.what();
}

// On Linux the screen is the X server's to give and the microphone PulseAudio's (or PipeWire's) default
// source, so each message says where that is set.
std::string describeCapture(const CaptureError& e) {
    switch (e.kind()) {
    case CaptureErrorKind::captureUnavailable:
        return std::string("Screen capture unavailable: ") + e.what();
    case CaptureErrorKind::permissionDenied:
        return "The desktop didn't share the screen: its screen-sharing dialog was cancelled, or screen "
               "sharing is turned off for Marlowick in the desktop's privacy settings. Record again and "
               "choose "
               "the screen to share in the dialog.";
    case CaptureErrorKind::writerFailed:
        return std::string("Recording failed: ") + e.what();
    case CaptureErrorKind::microphoneDenied:
        return "Microphone access was denied, so there would be no voice in the recording. Make a microphone "
               "the sound server's default source (in the desktop's sound settings, or with 'pactl "
               "set-default-source NAME'; 'pactl list short sources' lists them), then try again.";
    case CaptureErrorKind::noSoundServer:
        return "No sound server answers, so the microphone can't be recorded. Start PulseAudio (Debian's "
               "pulseaudio package) or PipeWire's PulseAudio service (pipewire-pulse), then try again.";
    case CaptureErrorKind::noDisplayAvailable:
        return "No display available to capture. Run Marlowick in an X11 or Wayland session, or set DISPLAY "
               "to the X display to record.";
    case CaptureErrorKind::unknownMonitor:
        return std::string("No monitor is named ") + e.what() + ".";
    case CaptureErrorKind::alreadyRecording:
        return "Already recording.";
    case CaptureErrorKind::notRecording:
        return "Not recording.";
    }
    return e.what();
}

std::string describeTranscription(const TranscriptionError& e) {
    switch (e.kind()) {
    case TranscriptionErrorKind::onDeviceUnavailable:
        return std::string("On-device recognition is not installed for ") + e.what() +
               ". Install its speech models (for English, the pocketsphinx-en-us package), or put them in "
               "~/.local/share/marlowick/speech/LOCALE/.";
    case TranscriptionErrorKind::failed:
        return std::string("Transcription failed: ") + e.what();
    case TranscriptionErrorKind::permissionDenied:
        return "Speech Recognition permission was denied.";
    case TranscriptionErrorKind::recognizerUnavailable:
        return "Speech recognition is unavailable right now.";
    case TranscriptionErrorKind::noAudioTrack:
        return "This recording has no audio track. Re-record with system audio or the microphone enabled.";
    }
    return e.what();
}

std::string describeExport(const ExportError& e) {
    switch (e.kind()) {
    case ExportErrorKind::noVideoTrack:
        return "the recording has no video";
    case ExportErrorKind::cancelled:
        return "export stopped; the unfinished movie was removed";
    case ExportErrorKind::writerFailed:
        return std::string("can't export: ") + e.what();
    case ExportErrorKind::targetIsFolder:
        return std::string("can't export: ") + e.what() + " is a folder; name a movie file";
    case ExportErrorKind::targetIsRecording:
        return std::string("can't export over the recording itself (") + e.what() + "); choose another name";
    case ExportErrorKind::presetUnavailable:
        for (const ExportPreset& instead : ExportPreset::all()) {
            if (instead.id == e.what()) {
                return "this preset can't be written on this system, whose HEVC encoders keep no alpha "
                       "plane; "
                       "the \"" +
                       instead.name + "\" preset (" + instead.id + ") keeps the transparency";
            }
        }
        return std::string("this preset can't be written on this system; use ") + e.what();
    }
    return e.what();
}

std::string describeRender(const RenderError& e) {
    switch (e.kind()) {
    case RenderErrorKind::noAudioTracks:
        return "the recording has no sound";
    case RenderErrorKind::readFailed:
        return std::string("can't read the sound: ") + e.what();
    case RenderErrorKind::writeFailed:
        return std::string("can't write the sound: ") + e.what();
    }
    return e.what();
}

std::string describeTake(const TakeError& e) {
    switch (e.kind()) {
    case TakeErrorKind::noPicture:
        return std::string(e.what()) + ": the take holds no picture; it ended before its first second "
                                       "was written";
    case TakeErrorKind::recoveryCopyDamaged:
        return std::string("the take's recovery copy is damaged (") + e.what() +
               "), so its edits can't be read; the take itself can be recovered without them";
    }
    return e.what();
}

} // namespace

std::string describe(const std::exception& error, PackageAccess access) {
    const bool opening = access == PackageAccess::opening;
    if (const auto* e = dynamic_cast<const DocumentError*>(&error)) {
        return describeDocument(*e, access);
    }
    if (dynamic_cast<const CodingError*>(&error) != nullptr) {
        return (opening ? "Document.json is damaged: " : "can't save: ") + std::string(error.what());
    }
    if (const auto* e = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        std::string line = opening ? "can't read " : "can't save: ";
        line += e->path1().empty() ? std::string("a file") : e->path1().string();
        return line + ": " + e->code().message();
    }
    if (const auto* e = dynamic_cast<const CaptureError*>(&error)) {
        return describeCapture(*e);
    }
    if (const auto* e = dynamic_cast<const TranscriptionError*>(&error)) {
        return describeTranscription(*e);
    }
    if (const auto* e = dynamic_cast<const ExportError*>(&error)) {
        return describeExport(*e);
    }
    if (const auto* e = dynamic_cast<const SubtitleError*>(&error)) {
        return e->kind() == SubtitleErrorKind::noCues ? std::string("holds no subtitles (SubRip or WebVTT cues)")
                                                      : std::string("not a subtitle file: ") + e->what();
    }
    if (const auto* e = dynamic_cast<const RenderError*>(&error)) {
        return describeRender(*e);
    }
    if (const auto* e = dynamic_cast<const TakeError*>(&error)) {
        return describeTake(*e);
    }
    if (dynamic_cast<const CompositorError*>(&error) != nullptr) {
        return std::string("can't draw the frames: ") + error.what();
    }
    // A media error's text already names the file and FFmpeg's reason.
    return error.what();
}

} // namespace marlowick
