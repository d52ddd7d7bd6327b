#include "capture/RecordingSink.h"

#include "media/MediaError.h"
#include "media/RecordingWriter.h"

#include <algorithm>
#include <cmath>
#include <sys/statvfs.h>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

constexpr double sampleRate = RecordingWriter::sampleRate;
// Sound stamps wander by a few milliseconds from piece to piece; within this much the pieces are simply
// laid end to end, and beyond it the track is brought back in step with the picture.
constexpr double soundTolerance = 0.1;
// A sound track this far behind the picture has lost its device: it is filled with silence up to here.
constexpr double soundLagAllowed = 0.5;
constexpr double diskCheckInterval = 1.0; // seconds of movie time

} // namespace

struct RecordingSink::Picture {
    std::unique_ptr<RecordingWriter::Picture> frame;
    std::int64_t ticks = 0; // of 1/videoTimeScale from the movie's start
};

RecordingSink::RecordingSink(const CaptureConfiguration& configuration, const Options& options)
    : m_configuration(configuration)
    , m_options(options) {
    std::error_code ignored;
    if (!fs::is_directory(configuration.outputURL, ignored)) {
        fs::remove(configuration.outputURL, ignored);
    }
    // 4:2:0 pictures need even sides.
    m_width = static_cast<int>(configuration.size.width) & ~1;
    m_height = static_cast<int>(configuration.size.height) & ~1;
    if (m_width <= 0 || m_height <= 0) {
        throw CaptureError(CaptureError::Kind::writerFailed, "the frame size is empty");
    }
    RecordingWriter::Settings settings;
    settings.width = m_width;
    settings.height = m_height;
    settings.frameRate = configuration.frameRate;
    settings.allowHardware = options.allowHardware;
    if (configuration.capturesAudio) {
        m_systemTrack = settings.audioTracks++;
    }
    if (configuration.capturesMicrophone) {
        m_microphoneTrack = settings.audioTracks++;
    }
    const int depth = std::max(2, options.queueDepth);
    try {
        m_writer = std::make_unique<RecordingWriter>(configuration.outputURL, settings);
        for (int i = 0; i < depth; ++i) {
            auto picture = std::make_unique<Picture>();
            picture->frame = m_writer->makePicture();
            m_freePictures.push_back(picture.get());
            m_pictures.push_back(std::move(picture));
        }
        m_converter = m_writer->makeConverter();
    } catch (const MediaError& error) {
        throw CaptureError(CaptureError::Kind::writerFailed, error.what());
    }
    for (SoundQueue& queue : m_sound) {
        for (SoundChunk& chunk : queue.slots) {
            chunk.samples.resize(2 * chunkFrames);
        }
    }
    m_thread = std::jthread([this](std::stop_token stop) { run(stop); });
}

RecordingSink::~RecordingSink() {
    {
        std::lock_guard lock(m_queueLock);
        m_draining = true;
    }
    m_queueChanged.notify_all();
    m_thread = {};
}

int RecordingSink::trackOf(Output output) const {
    return output == Output::audio ? m_systemTrack : m_microphoneTrack;
}

bool RecordingSink::appendVideo(const std::uint8_t* pixels, int stride, int width, int height, double time,
                                bool complete) {
    if (!complete) {
        return false;
    }
    double start = 0;
    {
        std::lock_guard lock(m_lock);
        if (m_isFinished || m_interruption) {
            return false;
        }
        if (!m_sessionStart) {
            m_sessionStart = time;
        }
        if (m_lastVideoTime && time <= *m_lastVideoTime) {
            return false; // the clock can't run backwards; a stamp that does is not a new picture
        }
        m_lastVideoTime = time;
        m_lastPresentation = std::max(m_lastPresentation.value_or(time), time);
        start = *m_sessionStart;
    }
    Picture* picture = nullptr;
    {
        std::lock_guard lock(m_queueLock);
        if (!m_freePictures.empty()) {
            picture = m_freePictures.back();
            m_freePictures.pop_back();
        }
    }
    if (picture == nullptr) {
        std::lock_guard lock(m_lock);
        countDropped(1, time);
        return false;
    }

    try {
        m_converter->convert(pixels, stride, width, height, *picture->frame);
    } catch (const MediaError& error) {
        {
            std::lock_guard lock(m_queueLock);
            m_freePictures.push_back(picture);
        }
        interrupt(error.what(), true);
        return false;
    }
    picture->ticks = std::llround((time - start) * RecordingWriter::videoTimeScale);
    {
        std::lock_guard lock(m_queueLock);
        m_readyPictures.push_back(picture);
    }
    m_queueChanged.notify_one();
    return true;
}

bool RecordingSink::appendAudio(Output output, const float* samples, int frames, double time) {
    const int track = trackOf(output);
    if (track < 0 || output == Output::screen) {
        return false; // not recorded: dropped without taking the lock
    }
    {
        std::lock_guard lock(m_lock);
        if (m_isFinished || m_interruption || !m_sessionStart || time < *m_sessionStart) {
            return false;
        }
        m_lastPresentation = std::max(*m_lastPresentation, time);
    }
    const int queueIndex = output == Output::audio ? 0 : 1;
    bool taken = true;
    {
        std::lock_guard lock(m_queueLock);
        SoundQueue& queue = m_sound[queueIndex];
        while (frames > 0) {
            // A piece that follows on from the last waiting one joins it, so that the queue's length is
            // counted in seconds, whatever the size of the pieces.
            if (queue.count > 0) {
                SoundChunk& last = queue.slots[(queue.head + queue.count - 1) % chunkSlots];
                const double end = last.time + last.frames / sampleRate;
                if (last.frames < chunkFrames && std::abs(end - time) < 0.001) {
                    const int joined = std::min(frames, chunkFrames - last.frames);
                    std::copy_n(samples, 2 * joined, last.samples.begin() + 2 * last.frames);
                    last.frames += joined;
                    samples += 2 * joined;
                    time += joined / sampleRate;
                    frames -= joined;
                    continue;
                }
            }
            if (queue.count == chunkSlots) {
                taken = false; // the encoder is far behind: the rest is lost, and the gap filled later
                break;
            }
            SoundChunk& chunk = queue.slots[(queue.head + queue.count) % chunkSlots];
            chunk.time = time;
            chunk.frames = std::min(frames, chunkFrames);
            std::copy_n(samples, 2 * chunk.frames, chunk.samples.begin());
            ++queue.count;
            samples += 2 * chunk.frames;
            time += chunk.frames / sampleRate;
            frames -= chunk.frames;
        }
    }
    m_queueChanged.notify_one();
    return taken;
}

void RecordingSink::countMissed(std::int64_t frames, double time) {
    std::lock_guard lock(m_lock);
    countDropped(frames, time);
}

void RecordingSink::countDropped(std::int64_t frames, double time) {
    m_statistics.framesDropped += frames;
    if (m_sessionStart && time > *m_sessionStart + 1.0) {
        m_statistics.framesDroppedAfterFirstSecond += frames;
    }
}

void RecordingSink::run(std::stop_token stop) {
    SoundChunk chunks[2];
    for (SoundChunk& chunk : chunks) {
        chunk.samples.resize(2 * chunkFrames);
    }
    for (;;) {
        Picture* picture = nullptr;
        int soundTrack[2] = {-1, -1};
        {
            std::unique_lock lock(m_queueLock);
            m_queueChanged.wait(lock, [&] {
                return stop.stop_requested() || m_draining || !m_readyPictures.empty() ||
                       m_sound[0].count > 0 || m_sound[1].count > 0;
            });
            const bool draining = m_draining || stop.stop_requested();
            // Sound first: it is small, and keeping it moving lets the pictures' fragments go out.
            for (int i = 0; i < 2; ++i) {
                SoundQueue& queue = m_sound[i];
                if (queue.count > 0) {
                    const SoundChunk& oldest = queue.slots[queue.head];
                    chunks[i].time = oldest.time;
                    chunks[i].frames = oldest.frames;
                    std::copy_n(oldest.samples.begin(), 2 * oldest.frames, chunks[i].samples.begin());
                    queue.head = (queue.head + 1) % chunkSlots;
                    --queue.count;
                    soundTrack[i] = i == 0 ? m_systemTrack : m_microphoneTrack;
                }
            }
            if (!m_readyPictures.empty()) {
                picture = m_readyPictures.front();
                m_readyPictures.erase(m_readyPictures.begin());
            }
            if (draining && picture == nullptr && soundTrack[0] < 0 && soundTrack[1] < 0) {
                return;
            }
        }
        bool failed = false;
        {
            std::lock_guard lock(m_lock);
            failed = m_interruption.has_value();
        }
        try {
            for (int i = 0; i < 2; ++i) {
                if (soundTrack[i] >= 0 && !failed) {
                    writeSound(soundTrack[i], chunks[i]);
                }
            }
            if (picture != nullptr && !failed) {
                m_writer->writeVideo(*picture->frame, picture->ticks);
                m_lastVideoSeconds = static_cast<double>(picture->ticks) / RecordingWriter::videoTimeScale;
                {
                    std::lock_guard lock(m_lock);
                    ++m_statistics.framesWritten;
                }
                padSound(m_lastVideoSeconds - soundLagAllowed);
                if (m_lastVideoSeconds >= m_nextDiskCheck) {
                    m_nextDiskCheck = m_lastVideoSeconds + diskCheckInterval;
                    checkDisk();
                }
            }
        } catch (const MediaError& error) {
            interrupt(error.what(), true);
        }
        if (picture != nullptr) {
            {
                std::lock_guard lock(m_queueLock);
                m_freePictures.push_back(picture);
            }
        }
    }
}

void RecordingSink::writeSound(int track, const SoundChunk& chunk) {
    double start = 0;
    {
        std::lock_guard lock(m_lock);
        start = m_sessionStart.value_or(chunk.time);
    }
    const auto expected = static_cast<std::int64_t>(std::llround((chunk.time - start) * sampleRate));
    const std::int64_t written = m_writer->audioFrames(track);
    const auto tolerance = static_cast<std::int64_t>(soundTolerance * sampleRate);
    std::int64_t skip = 0;
    if (written == 0 && expected > 0) {
        m_writer->writeAudio(track, nullptr, expected); // the track begins where the sound did
    } else if (expected > written + tolerance) {
        m_writer->writeAudio(track, nullptr, expected - written); // a gap: silence keeps it in step
    } else if (expected + tolerance < written) {
        skip = written - expected; // overlaps what a gap's silence already covered
    }
    if (skip < chunk.frames) {
        m_writer->writeAudio(track, chunk.samples.data() + 2 * skip, chunk.frames - skip);
    }
}

void RecordingSink::padSound(double untilSeconds) {
    const auto until = static_cast<std::int64_t>(std::floor(untilSeconds * sampleRate));
    for (const int track : {m_systemTrack, m_microphoneTrack}) {
        if (track >= 0 && m_writer->audioFrames(track) < until) {
            m_writer->writeAudio(track, nullptr, until - m_writer->audioFrames(track));
        }
    }
}

void RecordingSink::checkDisk() {
    struct statvfs disk {};
    fs::path directory = m_configuration.outputURL.parent_path();
    if (directory.empty()) {
        directory = ".";
    }
    if (statvfs(directory.c_str(), &disk) != 0) {
        return;
    }
    const std::uint64_t free = static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
    if (free < m_options.minimumFreeBytes) {
        interrupt("the disk is almost full (" + std::to_string(free >> 20) +
                      " MB left); the take was stopped and what was recorded is kept",
                  false);
    }
}

void RecordingSink::interrupt(const std::string& why, bool writerFailed) {
    std::lock_guard lock(m_lock);
    if (!m_interruption) {
        m_interruption = CaptureError(CaptureError::Kind::writerFailed, why);
        m_writerFailed = writerFailed;
    }
}

double RecordingSink::finish() {
    {
        std::lock_guard lock(m_lock);
        m_isFinished = true;
    }
    {
        std::lock_guard lock(m_queueLock);
        m_draining = true;
    }
    m_queueChanged.notify_all();
    m_thread = {}; // writes what was queued, then ends
    std::optional<double> start;
    std::optional<double> last;
    bool wroteAny = false;
    {
        std::lock_guard lock(m_lock);
        start = m_sessionStart;
        last = m_lastPresentation;
        wroteAny = m_statistics.framesWritten > 0;
    }
    try {
        if (wroteAny) {
            // Every sound track runs to the end of the last picture.
            padSound(m_lastVideoSeconds + 1.0 / std::max(1.0, m_configuration.frameRate));
        }
        m_writer->finish();
        m_writer.reset();
    } catch (const MediaError& error) {
        throw CaptureError(CaptureError::Kind::writerFailed, error.what());
    }
    if (wroteAny) {
        try {
            RecordingWriter::finalise(m_configuration.outputURL);
        } catch (const std::exception& error) {
            // The fragmented movie is complete and plays as it is; only its form is unusual.
            std::lock_guard lock(m_lock);
            m_warnings.push_back(std::string("The take was kept in its recording form: ") + error.what());
        }
    }
    {
        std::lock_guard lock(m_lock);
        if (m_writerFailed) {
            throw *m_interruption;
        }
    }
    return start && last ? *last - *start : 0.0;
}

std::optional<double> RecordingSink::sessionStart() const {
    std::lock_guard lock(m_lock);
    return m_sessionStart;
}

std::optional<CaptureError> RecordingSink::interruption() const {
    std::lock_guard lock(m_lock);
    return m_interruption;
}

CaptureStatistics RecordingSink::statistics() const {
    std::lock_guard lock(m_lock);
    return m_statistics;
}

std::string RecordingSink::encoderName() const {
    return m_writer ? m_writer->encoderName() : std::string();
}

std::vector<std::string> RecordingSink::takeWarnings() {
    std::lock_guard lock(m_lock);
    return std::exchange(m_warnings, {});
}

} // namespace marlowick
