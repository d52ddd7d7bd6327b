#include "capture/ScreenCastRecorder.h"

#include "model/Url.h"

namespace marlowick {

ScreenCastRecorder::ScreenCastRecorder(PipeWireStream::Remote remote, std::uint32_t node,
                                       const CaptureConfiguration& configuration, const Options& options)
    : m_configuration(configuration) {
    PipeWireStream::Handler handler;
    handler.picture = [this](const std::uint8_t* pixels, int stride, int width, int height, double time) {
        {
            std::lock_guard lock(m_lock);
            if (!m_sinkReady) {
                return;
            }
        }
        m_sink->appendVideo(pixels, stride, width, height, time);
    };
    handler.cursor = [this](double time, Point position) {
        std::lock_guard lock(m_lock);
        m_moves.push_back({time, position});
    };
    handler.missed = [this](std::int64_t pictures, double time) {
        {
            std::lock_guard lock(m_lock);
            if (!m_sinkReady) {
                return;
            }
        }
        m_sink->countMissed(pictures, time);
    };
    handler.ended = [this](const std::string& why) {
        std::lock_guard lock(m_lock);
        m_ended = why;
    };
    m_stream = std::make_unique<PipeWireStream>(std::move(remote), node, std::move(handler));
    if (options.connected) {
        options.connected(m_stream->nodeId());
    }
    m_streamSize = m_stream->waitForFormat(options.formatTimeout);
    if (m_configuration.size.width <= 0 || m_configuration.size.height <= 0) {
        m_configuration.size = m_streamSize;
    }
    RecordingSink::Options sinkOptions;
    sinkOptions.minimumFreeBytes = options.minimumFreeBytes;
    sinkOptions.allowHardware = options.allowHardware;
    m_sink = std::make_unique<RecordingSink>(m_configuration, sinkOptions);
    std::lock_guard lock(m_lock);
    m_sinkReady = true;
}

ScreenCastRecorder::~ScreenCastRecorder() {
    m_stream.reset();
    if (m_sink && !m_finished) {
        try {
            // An abandoned take still leaves a complete movie behind.
            m_sink->finish();
        } catch (const CaptureError&) {
        }
    }
}

bool ScreenCastRecorder::hasCursorMetadata() const {
    return m_stream->hasCursorMetadata();
}

Recording ScreenCastRecorder::stop() {
    m_stream->stop();
    m_finished = true;
    const double duration = m_sink->finish();
    const std::optional<double> start = m_sink->sessionStart();

    Recording recording;
    recording.mediaURL = Url::fileUrl(m_configuration.outputURL);
    recording.size = m_configuration.size;
    recording.frameRate = m_configuration.frameRate;
    recording.duration = duration;
    recording.capturedSystemAudio = m_configuration.capturesAudio;
    recording.capturedMicrophone = m_configuration.capturesMicrophone;
    const double scaleX = m_streamSize.width > 0 ? m_configuration.size.width / m_streamSize.width : 1.0;
    const double scaleY = m_streamSize.height > 0 ? m_configuration.size.height / m_streamSize.height : 1.0;
    std::lock_guard lock(m_lock);
    if (!start) {
        return recording; // no picture, no clock to put the moves on
    }
    std::optional<Point> before; // where the pointer was when the movie began
    for (const Move& move : m_moves) {
        const double time = move.time - *start;
        const Point location{move.position.x * scaleX, move.position.y * scaleY};
        if (time < 0) {
            before = location;
            continue;
        }
        if (before) {
            if (time > 0) {
                recording.inputEvents.push_back({0, InputEvent::Kind::move, *before});
            }
            before.reset();
        }
        if (time <= duration) {
            recording.inputEvents.push_back({time, InputEvent::Kind::move, location});
        }
    }
    if (before) {
        recording.inputEvents.push_back({0, InputEvent::Kind::move, *before});
    }
    return recording;
}

std::optional<CaptureError> ScreenCastRecorder::interruption() const {
    {
        std::lock_guard lock(m_lock);
        if (m_ended) {
            return CaptureError(CaptureError::Kind::captureUnavailable, *m_ended);
        }
    }
    return m_sink->interruption();
}

} // namespace marlowick
