#include "export/Exporter.h"

#include "audio/AudioRenderer.h"
#include "compositor/EglContext.h"
#include "compositor/FrameCompositor.h"
#include "compositor/PixelTransfer.h"
#include "export/BoundedQueue.h"
#include "media/AudioFile.h"
#include "media/MediaError.h"
#include "media/MediaInfo.h"
#include "media/VideoDecoder.h"
#include "media/VideoEncoder.h"
#include "model/FileOps.h"
#include "trajectory/CursorSampler.h"

#include <cmath>
#include <future>
#include <thread>
#include <unordered_map>

namespace marlowick {

namespace fs = std::filesystem;

double Exporter::Progress::fraction() const {
    if (totalFrames == 0) {
        return 0;
    }
    return std::min(1.0, static_cast<double>(completedFrames) / static_cast<double>(totalFrames));
}

namespace {

// Frames waiting between two stages. Two or three keep each thread fed through the jitter of the next
// one; more would only hold memory (a 4K frame is 33 MB).
constexpr std::size_t sourceFrames = 3;
constexpr std::size_t finishedFrames = 4;

struct DecodedFrame {
    double outputTime; // seconds on the finished movie's clock
    BgraImage image;
    PictureChange change; // where the picture differs from the last one; `image` holds only those areas
};

struct FinishedFrame {
    double outputTime; // seconds on the finished movie's clock
    std::vector<std::uint8_t> pixels;
    std::vector<PixelRect> tiles; // where the frame differs from the last; `pixels` holds only these
};

// Thrown through the mix renderer's progress report to stop it part way.
struct MixCancelled {};

fs::path temporaryMixPath() {
    return fs::temp_directory_path() / ("marlowick-mix-" + Uuid::random().toString() + ".m4a");
}

// The queues between the decoding, compositing and encoding threads, and the first failure of any.
struct Pipeline {
    BoundedQueue<BgraImage> emptyImages{sourceFrames};
    BoundedQueue<DecodedFrame> decoded{sourceFrames};
    BoundedQueue<std::vector<std::uint8_t>> emptyOutputs{finishedFrames};
    BoundedQueue<FinishedFrame> finished{finishedFrames};

    std::mutex errorMutex;
    std::exception_ptr error; // guarded by errorMutex: the first failure of a helper thread

    Pipeline() {
        for (std::size_t i = 0; i < sourceFrames; ++i) {
            emptyImages.push({});
        }
        for (std::size_t i = 0; i < finishedFrames; ++i) {
            emptyOutputs.push({});
        }
    }

    void abandon() {
        emptyImages.abandon();
        decoded.abandon();
        emptyOutputs.abandon();
        finished.abandon();
    }

    void fail(std::exception_ptr failure) {
        {
            std::lock_guard lock(errorMutex);
            if (!error) {
                error = std::move(failure);
            }
        }
        abandon();
    }

    void rethrowFailure() {
        std::lock_guard lock(errorMutex);
        if (error) {
            std::rethrow_exception(error);
        }
    }
};

// Abandons the pipeline when the export leaves early, so that the helper threads end and can be joined.
struct AbandonOnExit {
    Pipeline& pipeline;
    ~AbandonOnExit() { pipeline.abandon(); }
};

VideoEncoder::Codec encoderCodec(ExportPreset::Codec codec) {
    switch (codec) {
    case ExportPreset::Codec::hevc:
        return VideoEncoder::Codec::hevc;
    case ExportPreset::Codec::prores4444:
        return VideoEncoder::Codec::prores4444;
    case ExportPreset::Codec::hevcWithAlpha:
        // FFmpeg's HEVC encoders here can't carry an alpha plane, and a movie with its transparency
        // silently dropped is worse than none.
        throw ExportError(ExportError::Kind::writerFailed,
                          "HEVC with alpha can't be encoded on this system; the \"ProRes 4444 + Alpha\" "
                          "preset keeps the transparency");
    case ExportPreset::Codec::h264:
    case ExportPreset::Codec::vp9:
    case ExportPreset::Codec::palette:
        break;
    }
    return VideoEncoder::Codec::h264;
}

// Runs `work`, turning the media layer's failures into the export's.
template <typename Work> auto reportingMediaFailures(Work&& work) {
    try {
        return work();
    } catch (const MediaError& e) {
        throw ExportError(ExportError::Kind::writerFailed, e.what());
    }
}

} // namespace

fs::path Exporter::exportMovie(const Project& project, const std::vector<InputEvent>& telemetry,
                               const ExportPreset& preset, const fs::path& target,
                               const std::function<void(const Progress&)>& onProgress, std::stop_token stop,
                               const std::function<void(double)>& onSoundProgress) const {
    auto report = [&](long long completed, long long total) {
        if (onProgress) {
            onProgress({completed, total});
        }
    };
    auto cancelled = [] { return ExportError(ExportError::Kind::cancelled, "cancelled"); };

    VideoEncoder::Settings settings;
    settings.codec = encoderCodec(preset.codec);
    settings.container = preset.container == ExportPreset::Container::mov ? VideoEncoder::Container::mov
                                                                          : VideoEncoder::Container::mp4;
    settings.width = static_cast<int>(preset.size.width);
    settings.height = static_cast<int>(preset.size.height);
    settings.input = VideoEncoder::PixelOrder::rgba; // as the framebuffer is read
    settings.frameRate = preset.frameRate > 0 ? preset.frameRate : 30;
    const int width = settings.width;
    const int height = settings.height;

    // The target is removed before writing: never when that would destroy a folder or the recording.
    {
        std::error_code error;
        if (fs::is_directory(target, error)) {
            throw ExportError(ExportError::Kind::writerFailed, target.string() + " is a folder");
        }
        if (fs::equivalent(target, project.source.mediaURL.path(), error)) {
            throw ExportError(ExportError::Kind::writerFailed, target.string() + " is the recording itself");
        }
    }

    // Everything drawn over the frames is on output time; the frames themselves come from before the cuts.
    const TimeMap map = project.effectiveTrim();
    const Project::Trimmed trimmed = project.applyingTrim(telemetry);
    const Project& p = trimmed.project;
    const std::vector<InputEvent>& events = trimmed.telemetry;
    std::optional<CursorSampler> cursor;
    if (!events.empty()) {
        cursor.emplace(events, p.source, p.cursor);
    }

    Pipeline pipeline;
    // The compositor needs a GL context of its own thread. Its failure to start is the export's first.
    std::promise<void> compositorReady;
    std::jthread compositing([&] {
        bool ready = false;
        try {
            const EglContext context;
            FrameCompositor compositor;
            BgraTexture source;
            RenderTarget canvas(width, height);
            PixelTransfer transfer(!PixelTransfer::isSoftwareRenderer(context.renderer()));
            ready = true;
            compositorReady.set_value();

            std::unordered_map<std::uint64_t, FinishedFrame> reading; // frames whose pixels are on their way
            std::uint64_t nextTag = 0;
            auto handOver = [&](const std::vector<std::uint64_t>& tags) {
                for (const std::uint64_t tag : tags) {
                    const auto found = reading.find(tag);
                    pipeline.finished.push(std::move(found->second));
                    reading.erase(found);
                }
            };
            while (auto frame = pipeline.decoded.pop()) {
                const BgraImage& image = frame->image;
                const PictureChange& change = frame->change;
                if (change.whole) {
                    transfer.upload(source, image.bytes.data(), image.width, image.height, image.stride);
                } else if (!change.areas.empty()) {
                    transfer.uploadAreas(source, image.bytes.data(), image.stride, change.areas);
                }
                const double t = frame->outputTime;
                pipeline.emptyImages.push(std::move(frame->image));
                auto pixels = pipeline.emptyOutputs.pop();
                if (!pixels) {
                    return;
                }
                pixels->resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
                canvas.bind();
                const auto cursorFrame = cursor ? cursor->frameAt(t) : std::nullopt;
                std::vector<PixelRect> drawn;
                if (followsChanges) {
                    drawn = compositor.renderSequence(source, width, height, p, t, cursorFrame, true, change);
                } else {
                    compositor.render(source, width, height, p, t, cursorFrame, true);
                    drawn = {{0, 0, width, height}};
                }
                std::vector<PixelRect> tiles = VideoEncoder::tilesMeeting(drawn, width, height);
                const std::vector<PixelRect> reads = tiles;
                const std::uint64_t tag = nextTag++;
                std::uint8_t* destination = pixels->data();
                reading.emplace(tag, FinishedFrame{t, std::move(*pixels), std::move(tiles)});
                handOver(transfer.readAreas(width, height, reads, destination, tag));
            }
            handOver(transfer.flush());
            pipeline.finished.finish();
        } catch (...) {
            if (!ready) {
                compositorReady.set_exception(std::current_exception());
            } else {
                pipeline.fail(std::current_exception());
            }
        }
    });
    const AbandonOnExit abandonOnExit{pipeline}; // destroyed before the threads are joined
    compositorReady.get_future().get();

    const fs::path media = p.source.mediaURL.path();
    const MediaInfo info = reportingMediaFailures([&] { return MediaInfo::of(media); });
    if (info.videoTracks == 0) {
        throw ExportError(ExportError::Kind::noVideoTrack, media.string() + ": no video track");
    }
    auto decoder = reportingMediaFailures([&] { return std::make_unique<VideoDecoder>(media); });
    settings.timeScale = decoder->timeScale();

    {
        std::error_code ignored;
        fs::remove(target, ignored);
    }

    // The sound: the one recorded track as it stands when nothing would change it, else the mix.
    std::optional<fileops::RemovedOnExit> mix; // removed on every way out
    if (info.audioTracks > 0) {
        const bool render = info.audioTracks >= 2 || !p.audio.isPassthrough() || !map.isIdentity();
        const VideoEncoder::AudioTrack recorded{media, 0};
        if (render) {
            std::vector<double> clickTimes;
            for (const InputEvent& event : events) {
                if (event.kind == InputEvent::Kind::down) {
                    clickTimes.push_back(event.time);
                }
            }
            mix.emplace(temporaryMixPath());
            try {
                AudioRenderer{}.render(media, p.audio, clickTimes, map, mix->path(), [&](double fraction) {
                    if (stop.stop_requested()) {
                        throw MixCancelled{};
                    }
                    if (onSoundProgress) {
                        onSoundProgress(fraction);
                    }
                });
            } catch (const MixCancelled&) {
                throw cancelled();
            }
            settings.audio.push_back({mix->path(), 0});
        } else if (reportingMediaFailures(
                       [&] { return VideoEncoder::canCarry(settings.container, recorded); })) {
            settings.audio.push_back(recorded);
        } else {
            // A sound the container can't store as it is (PCM in MP4, say) is encoded once, as AAC.
            mix.emplace(temporaryMixPath());
            reportingMediaFailures(
                [&] { AudioFile::writeAac(mix->path(), AudioFile::decodeTrack(media, 0)); });
            settings.audio.push_back({mix->path(), 0});
        }
    }
    if (stop.stop_requested()) {
        throw cancelled();
    }

    auto encoder = reportingMediaFailures([&] { return std::make_unique<VideoEncoder>(target, settings); });
    auto discardTarget = [&] {
        encoder.reset();
        std::error_code ignored;
        fs::remove(target, ignored);
    };

    std::jthread decoding([&] {
        try {
            for (;;) {
                auto image = pipeline.emptyImages.pop();
                if (!image) {
                    return;
                }
                PictureChange change;
                const auto time = decoder->next(
                    *image, [&](double t) { return !map.isRemoved(t); }, followsChanges ? &change : nullptr);
                if (!time) {
                    break;
                }
                const double output = map.isIdentity() ? *time : map.outputTimeForSource(*time);
                if (!pipeline.decoded.push({output, std::move(*image), std::move(change)})) {
                    return;
                }
            }
            pipeline.decoded.finish();
        } catch (...) {
            pipeline.fail(std::current_exception());
        }
    });
    const AbandonOnExit stopDecodingOnExit{pipeline}; // before `decoding` is joined

    // p.source.duration is the duration after the cuts.
    const auto total = static_cast<long long>(std::round(p.source.duration * preset.frameRate));
    report(0, total);
    long long completed = 0;
    try {
        for (;;) {
            if (stop.stop_requested()) {
                pipeline.abandon();
                decoding.join();
                compositing.join();
                discardTarget();
                throw cancelled();
            }
            auto frame = pipeline.finished.pop();
            if (!frame) {
                break;
            }
            encoder->encodeChanged(frame->pixels.data(), width * 4, frame->outputTime, frame->tiles);
            pipeline.emptyOutputs.push(std::move(frame->pixels));
            ++completed;
            report(completed, total);
        }
        decoding.join();
        compositing.join();
        pipeline.rethrowFailure();
        if (!encoder->finish(stop)) {
            discardTarget();
            throw cancelled();
        }
    } catch (const MediaError& e) {
        throw ExportError(ExportError::Kind::writerFailed, e.what());
    }
    report(completed, completed);
    return target;
}

} // namespace marlowick
