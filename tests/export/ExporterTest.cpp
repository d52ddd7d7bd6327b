// Small real projects exported end to end and read back with FFmpeg: what the frames, their times and
// the sound of the finished movie are, per the cuts and the tracks of the recording.

#include "export/Exporter.h"
#include "media/AvInput.h"
#include "media/VideoDecoder.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sys/resource.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

namespace fs = std::filesystem;

// What a movie holds, as FFmpeg reads it.
struct Stream {
    bool video = false;
    std::string codec;
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<double> times;                         // packet presentation times, seconds, in order
    std::vector<std::vector<std::uint8_t>> packetData; // audio only
};

std::vector<Stream> probe(const fs::path& path) {
    const av::InputFormat input = av::openInput(path);
    std::vector<Stream> streams(input->nb_streams);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters* c = input->streams[i]->codecpar;
        streams[i].video = c->codec_type == AVMEDIA_TYPE_VIDEO;
        streams[i].codec = avcodec_get_name(c->codec_id);
        streams[i].width = c->width;
        streams[i].height = c->height;
        streams[i].channels = c->ch_layout.nb_channels;
    }
    const av::Packet packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const AVStream* s = input->streams[packet->stream_index];
        Stream& out = streams[static_cast<std::size_t>(packet->stream_index)];
        out.times.push_back(static_cast<double>(packet->pts) * av_q2d(s->time_base));
        if (s->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            out.packetData.emplace_back(packet->data, packet->data + packet->size);
        }
        av_packet_unref(packet.get());
    }
    for (Stream& s : streams) {
        std::sort(s.times.begin(), s.times.end());
    }
    return streams;
}

const Stream* firstOf(const std::vector<Stream>& streams, bool video) {
    for (const Stream& s : streams) {
        if (s.video == video) {
            return &s;
        }
    }
    return nullptr;
}

// Runs FFmpeg with `arguments` to make a test's movie at `path`.
fs::path ffmpeg(const std::string& arguments, const fs::path& path) {
    if (std::system(("ffmpeg -v error -y " + arguments + " '" + path.string() + "'").c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make " + path.string());
    }
    return path;
}

// A two-second 160×90 take at `rate` frames a second with `tracks` tones beside it.
fs::path makeTake(const fs::path& path, int rate, int tracks) {
    std::string inputs = "-f lavfi -i testsrc2=size=160x90:rate=" + std::to_string(rate);
    std::string maps = " -map 0";
    for (int i = 0; i < tracks; ++i) {
        inputs += " -f lavfi -i sine=frequency=" + std::to_string(440 + 220 * i) + ":sample_rate=48000";
        maps += " -map " + std::to_string(i + 1);
    }
    return ffmpeg(inputs + " -t 2" + maps + " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac",
                  path);
}

Project projectOf(const fs::path& movie, int rate) {
    Project p;
    p.id = Uuid::random();
    p.name = "Take";
    p.source.mediaURL = Url::fileUrl(movie);
    p.source.size = {160, 90};
    p.source.frameRate = rate;
    p.source.duration = 2;
    p.canvas = Canvas::freshRecording();
    return p;
}

// A pointer sweep with one click, in source time.
std::vector<InputEvent> sweep() {
    std::vector<InputEvent> events;
    for (int i = 0; i <= 240; ++i) {
        const double t = i / 120.0;
        events.push_back(
            {t, i == 150 ? InputEvent::Kind::down : InputEvent::Kind::move, {10.0 + i * 0.5, 45}});
    }
    return events;
}

ExportPreset small(double rate = 30, ExportPreset::Codec codec = ExportPreset::Codec::h264,
                   ExportPreset::Container container = ExportPreset::Container::mp4) {
    return {"test", "Test", {192, 108}, rate, container, codec};
}

// While it lasts, no file of this process may grow past `bytes`: a write past the limit fails with EFBIG
// (the signal it would raise is ignored) as on a full disk, part way through whatever writes it.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        if (getrlimit(RLIMIT_FSIZE, &m_before) != 0) {
            throw std::runtime_error("no file size limit to lower");
        }
        m_signalBefore = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit lowered{bytes, m_before.rlim_max};
        if (setrlimit(RLIMIT_FSIZE, &lowered) != 0) {
            throw std::runtime_error("the file size limit can't be lowered");
        }
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_signalBefore);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
    void (*m_signalBefore)(int) = SIG_DFL;
};

// A temporary directory that TMPDIR names while it lasts, so that what an export leaves there can be
// looked for.
class Scratch : public TempDir {
public:
    Scratch() {
        if (const char* value = std::getenv("TMPDIR")) {
            m_previous = value;
        }
        setenv("TMPDIR", path().c_str(), 1);
    }
    ~Scratch() { m_previous ? setenv("TMPDIR", m_previous->c_str(), 1) : unsetenv("TMPDIR"); }

private:
    std::optional<std::string> m_previous;
};

struct Exported {
    fs::path movie;
    std::vector<Exporter::Progress> reports;
};

Exported exportOf(const Project& project, const fs::path& target, const ExportPreset& preset,
                  const std::vector<InputEvent>& events = sweep()) {
    Exported run;
    run.movie = Exporter{}.exportMovie(project, events, preset, target,
                                       [&](const Exporter::Progress& p) { run.reports.push_back(p); });
    return run;
}

class ExporterTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        takes = new TempDir;
        silent = makeTake(*takes / "silent.mov", 30, 0);
        oneTrack = makeTake(*takes / "one.mov", 30, 1);
        twoTracks = makeTake(*takes / "two.mov", 30, 2);
    }
    static void TearDownTestSuite() { delete takes; }

    static inline TempDir* takes = nullptr;
    static inline fs::path silent, oneTrack, twoTracks;
    TempDir dir;
};

} // namespace

TEST_F(ExporterTest, AnUncutTakeKeepsEveryFrameAtItsOwnTimeAndItsSoundAsRecorded) {
    Project project = projectOf(oneTrack, 30);
    project.audio.enhanceVoice = false; // settings that leave the sound as it is
    project.audio.ducking = 0;
    project.audio.normalize = false;
    const Exported run = exportOf(project, dir / "out.mp4", small());
    ASSERT_EQ(run.movie, dir / "out.mp4");

    const auto source = probe(oneTrack);
    const auto out = probe(run.movie);
    ASSERT_EQ(out.size(), 2u);
    const Stream* video = firstOf(out, true);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->codec, "h264");
    EXPECT_EQ(video->width, 192);
    EXPECT_EQ(video->height, 108);
    const Stream* sourceVideo = firstOf(source, true);
    ASSERT_EQ(video->times.size(), sourceVideo->times.size());
    for (std::size_t i = 0; i < video->times.size(); ++i) {
        EXPECT_DOUBLE_EQ(video->times[i], sourceVideo->times[i]) << "frame " << i;
    }
    // The one track with neutral settings is copied packet for packet.
    const Stream* audio = firstOf(out, false);
    ASSERT_NE(audio, nullptr);
    EXPECT_TRUE(audio->packetData == firstOf(source, false)->packetData);

    // One report before the frames, one per frame, and the last complete.
    ASSERT_EQ(run.reports.size(), video->times.size() + 2);
    EXPECT_EQ(run.reports.front(), (Exporter::Progress{0, 60}));
    EXPECT_EQ(run.reports[1], (Exporter::Progress{1, 60}));
    EXPECT_EQ(run.reports.back(), (Exporter::Progress{60, 60}));
}

TEST_F(ExporterTest, WorkingOnlyWhereFramesChangeGivesTheMovieOfWholeFrames) {
    // A still picture with a small pattern travelling over it, as a screen take changes: a zoom that ramps
    // in, holds and ramps out, the cursor moving and clicking, and a cut the camera jumps across. The size is
    // no multiple of the converters' tiles nor of the 16 pixels FFmpeg's converter writes at a time.
    const fs::path take =
        ffmpeg("-f lavfi -i smptebars=size=330x186:rate=30 -f lavfi -i testsrc2=size=24x16:rate=30 "
               "-filter_complex \"[0][1]overlay=x='20+mod(n*9,260)':y='30+mod(n*4,120)'\" -t 2 "
               "-c:v libx264 -preset ultrafast -pix_fmt yuv420p",
               dir / "still.mov");
    Project project = projectOf(take, 30);
    project.source.size = {330, 186};
    project.camera.beats = {
        ZoomBeat(Uuid::random(), 0.3, 1.7, {0.3, 0.4}, 1.8, 0.3, 0.3, Easing::easeInOut, true)};
    project.manualCuts.emplace_back(Uuid::random(), 0.9, 1.1);
    const ExportPreset preset{
        "test", "Test", {330, 186}, 30, ExportPreset::Container::mp4, ExportPreset::Codec::h264};

    std::vector<std::vector<std::vector<std::uint8_t>>> movies;
    for (const bool follows : {true, false}) {
        Exporter exporter;
        exporter.followsChanges = follows;
        const fs::path out = dir / (follows ? "parts.mp4" : "whole.mp4");
        exporter.exportMovie(project, sweep(), preset, out);
        VideoDecoder decoder(out);
        std::vector<std::vector<std::uint8_t>> frames;
        while (auto frame = decoder.next()) {
            std::vector<std::uint8_t> pixels;
            for (int y = 0; y < frame->image.height; ++y) {
                pixels.insert(pixels.end(), frame->image.row(y),
                              frame->image.row(y) + frame->image.width * 4);
            }
            frames.push_back(std::move(pixels));
        }
        movies.push_back(std::move(frames));
    }
    ASSERT_EQ(movies[0].size(), 54u); // 60 frames less the 6 in the cut
    ASSERT_EQ(movies[1].size(), movies[0].size());
    for (std::size_t i = 0; i < movies[0].size(); ++i) {
        ASSERT_TRUE(movies[0][i] == movies[1][i]) << "frame " << i;
    }
}

TEST_F(ExporterTest, ACutDropsItsFramesClosesTheGapAndMixesTheSound) {
    Project project = projectOf(oneTrack, 30);
    project.manualCuts.emplace_back(Uuid::random(), 0.5, 1.0);
    const Exported run = exportOf(project, dir / "cut.mov",
                                  small(30, ExportPreset::Codec::hevc, ExportPreset::Container::mov));
    const auto out = probe(run.movie);
    const Stream* video = firstOf(out, true);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->codec, "hevc");
    ASSERT_EQ(video->times.size(), 45u); // 60 frames less the 15 that start inside the cut
    for (std::size_t i = 1; i < video->times.size(); ++i) {
        EXPECT_NEAR(video->times[i] - video->times[i - 1], 1.0 / 30, 1e-3) << "frame " << i;
    }
    EXPECT_NEAR(video->times.back(), 1.5 - 1.0 / 30, 1e-3);

    // Re-rendered: one mono track, not the recorded packets, as long as the cut movie.
    const Stream* audio = firstOf(out, false);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->codec, "aac");
    EXPECT_EQ(audio->channels, 1);
    EXPECT_FALSE(audio->packetData == firstOf(probe(oneTrack), false)->packetData);
    EXPECT_NEAR(audio->times.back(), 1.5, 0.05);
}

TEST_F(ExporterTest, TwoTracksAreAlwaysMixedAndNoTracksGiveASilentMovie) {
    const auto mixed = probe(exportOf(projectOf(twoTracks, 30), dir / "two.mp4", small()).movie);
    ASSERT_EQ(mixed.size(), 2u);
    EXPECT_EQ(firstOf(mixed, false)->channels, 1);

    const auto silentOut = probe(exportOf(projectOf(silent, 30), dir / "silent.mp4", small(), {}).movie);
    ASSERT_EQ(silentOut.size(), 1u);
    EXPECT_EQ(silentOut[0].times.size(), 60u);
}

TEST_F(ExporterTest, TheEstimateCountsTheFramesOfTheRecordingWhateverThePresetsRate) {
    // A faster take with a cut under a slower preset, and a slower take under a faster one: every frame
    // that survives the cuts is written at its own rate, and the estimate says so from the start.
    const fs::path fast = makeTake(dir / "fast.mov", 60, 0);
    Project cut = projectOf(fast, 60);
    cut.manualCuts.emplace_back(Uuid::random(), 0.5, 1.0);
    for (const auto& [project, preset] :
         {std::pair{cut, small(30)}, std::pair{projectOf(silent, 30), small(60)}}) {
        const Exported run = exportOf(project, dir / "rate.mp4", preset);
        const auto written = static_cast<long long>(firstOf(probe(run.movie), true)->times.size());
        EXPECT_EQ(written, project.source.frameRate == 60 ? 90 : 60);
        EXPECT_EQ(run.reports.front(), (Exporter::Progress{0, written}));
        EXPECT_EQ(run.reports[run.reports.size() - 2], (Exporter::Progress{written, written}));
        EXPECT_EQ(run.reports.back(), (Exporter::Progress{written, written}));
    }
}

TEST_F(ExporterTest, CutsThatRemoveEverythingGiveNoFrames) {
    Project project = projectOf(silent, 30);
    project.manualCuts.emplace_back(Uuid::random(), 0, 2);
    const Exported run = exportOf(project, dir / "empty.mp4", small());
    EXPECT_EQ(run.reports.front(), (Exporter::Progress{0, 0}));
    EXPECT_EQ(run.reports.back(), (Exporter::Progress{0, 0}));
    // The movie opens and holds nothing (the muxer leaves out a track without samples).
    for (const Stream& s : probe(run.movie)) {
        EXPECT_TRUE(s.times.empty());
    }
}

TEST_F(ExporterTest, ProResKeepsTheTransparencyOfTheCanvas) {
    Project project = projectOf(silent, 30);
    project.canvas.background = Background::transparent();
    project.canvas.inset = 0.2;
    project.canvas.shadow = {0, 0, {0, 0}};
    const Exported run =
        exportOf(project, dir / "alpha.mov",
                 small(60, ExportPreset::Codec::prores4444, ExportPreset::Container::mov), {});
    EXPECT_EQ(firstOf(probe(run.movie), true)->codec, "prores");
    VideoDecoder decoder(run.movie);
    const auto frame = decoder.next();
    ASSERT_TRUE(frame.has_value());
    EXPECT_LT(frame->image.row(2)[4 * 2 + 3], 8);     // the bare canvas at the corner
    EXPECT_GT(frame->image.row(54)[4 * 96 + 3], 247); // the recording in the middle
}

TEST_F(ExporterTest, RefusalsLeaveTheTargetAndTheRecordingAsTheyWere) {
    const fs::path target = dir / "keep.mov";
    writeText(target, "an earlier movie");
    const fs::path folder = dir / "folder.mp4";
    fs::create_directory(folder);
    writeText(folder / "inside.txt", "kept");
    const auto recordingSize = fs::file_size(silent);
    const struct {
        const ExportPreset& preset;
        fs::path target;
        ExportError::Kind kind;
        std::string text;
    } refusals[] = {
        {ExportPreset::hevcAlpha(), target, ExportError::Kind::presetUnavailable, "prores-4444-alpha"},
        {ExportPreset::free(), folder, ExportError::Kind::targetIsFolder, folder.string()},
        {ExportPreset::free(), silent, ExportError::Kind::targetIsRecording, silent.string()},
        {ExportPreset::free(), silent.parent_path() / "." / silent.filename(),
         ExportError::Kind::targetIsRecording, (silent.parent_path() / "." / silent.filename()).string()},
    };
    for (const auto& refusal : refusals) {
        const auto e = thrown<ExportError>(
            [&] { Exporter{}.exportMovie(projectOf(silent, 30), {}, refusal.preset, refusal.target); });
        ASSERT_TRUE(e) << "exported to " << refusal.target;
        EXPECT_EQ(e->kind(), refusal.kind) << refusal.target;
        EXPECT_EQ(e->what(), refusal.text);
    }
    EXPECT_EQ(readText(target), "an earlier movie");
    EXPECT_EQ(readText(folder / "inside.txt"), "kept");
    EXPECT_EQ(fs::file_size(silent), recordingSize);
}

TEST_F(ExporterTest, CancellingLeavesTheEarlierMovieAndNoMix) {
    const Scratch scratch; // where the temporary mix goes
    Project project = projectOf(twoTracks, 30);
    project.manualCuts.emplace_back(Uuid::random(), 0.2, 0.4);
    const fs::path target = dir / "cancelled.mp4";
    writeText(target, "an earlier movie");
    std::stop_source stop;
    long long seen = 0;
    const auto cancelled = thrown<ExportError>([&] {
        Exporter{}.exportMovie(
            project, sweep(), small(), target,
            [&](const Exporter::Progress& p) {
                seen = p.completedFrames;
                if (p.completedFrames == 10) {
                    stop.request_stop();
                }
            },
            stop.get_token());
    });
    ASSERT_TRUE(cancelled);
    EXPECT_EQ(cancelled->kind(), ExportError::Kind::cancelled);
    EXPECT_EQ(seen, 10);
    EXPECT_EQ(readText(target), "an earlier movie");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()),
              1); // nothing beside it
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST_F(ExporterTest, AMovieThatCantBeWrittenToTheEndLeavesNeitherItNorTheMix) {
    // Noise: every frame costs the encoder tens of kilobytes, so the muxer writes long before the end.
    const fs::path take =
        ffmpeg("-f lavfi -i color=gray:size=320x180:rate=30,noise=alls=100:allf=t -f lavfi -i "
               "sine=sample_rate=48000 -f lavfi -i sine=frequency=660:sample_rate=48000 -t 2 "
               "-map 0 -map 1 -map 2 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac",
               dir / "noise.mov");
    Project project = projectOf(take, 30);
    project.source.size = {320, 180};
    const ExportPreset preset{
        "test", "Test", {320, 180}, 30, ExportPreset::Container::mp4, ExportPreset::Codec::h264};

    const Scratch scratch; // where the temporary mix goes
    const fs::path target = dir / "short.mp4";
    long long frames = 0;
    std::optional<ExportError> failure;
    {
        // Room for the mix of two seconds, made before the frames, and not for the movie, so the muxer's
        // writes fail part way through the frames.
        const FileSizeLimit limit(64 * 1024);
        failure = thrown<ExportError>([&] {
            Exporter{}.exportMovie(project, sweep(), preset, target,
                                   [&](const Exporter::Progress& p) { frames = p.completedFrames; });
        });
    }
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind(), ExportError::Kind::writerFailed) << failure->what();
    // The failure names the file the person asked for, not the hidden one being written.
    EXPECT_NE(std::string(failure->what()).find(target.string()), std::string::npos) << failure->what();

    // It failed among the frames, neither before them nor at the end.
    EXPECT_GT(frames, 0);
    EXPECT_LT(frames, 60);
    EXPECT_FALSE(fs::exists(target));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()),
              1); // the take alone
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST_F(ExporterTest, ARecordingWithoutVideoIsNamedAsSuch) {
    const fs::path sound = ffmpeg("-f lavfi -i sine=sample_rate=48000 -t 0.5", dir / "sound.m4a");
    const auto e = thrown<ExportError>(
        [&] { Exporter{}.exportMovie(projectOf(sound, 30), {}, small(), dir / "x.mp4"); });
    ASSERT_TRUE(e);
    EXPECT_EQ(e->kind(), ExportError::Kind::noVideoTrack);
}

TEST_F(ExporterTest, AtAConstantRateEveryFrameIsAtItsNumberOverTheRateOverThePictureShownThen) {
    // A black take at 25 fps whose one picture at 1.0 s is white, with 0.2 s cut before it.
    const fs::path flash = dir / "flash.mp4";
    const std::string make = "ffmpeg -v error -y -f lavfi -i \"color=black:size=160x90:rate=25,drawbox=c=white:"
                             "t=fill:enable='eq(n,25)'\" -t 2 -c:v libx264 -pix_fmt yuv420p '" +
                             flash.string() + "'";
    ASSERT_EQ(std::system(make.c_str()), 0) << make;
    Project project = projectOf(flash, 25);
    project.manualCuts.emplace_back(Uuid::random(), 0.2, 0.4);
    ExportPreset preset = small(10);
    preset.constantRate = true;
    const Exported run = exportOf(project, dir / "steady.mp4", preset, {});

    // 1.8 s of movie: 18 frames, each at exactly n/10 s.
    const auto streams = probe(run.movie);
    const Stream* video = firstOf(streams, true);
    ASSERT_NE(video, nullptr);
    ASSERT_EQ(video->times.size(), 18u);
    for (std::size_t n = 0; n < video->times.size(); ++n) {
        EXPECT_DOUBLE_EQ(video->times[n], static_cast<double>(n) / 10) << "frame " << n;
    }
    EXPECT_EQ(run.reports.back().completedFrames, 18);

    // The flash, at 0.8 s of the finished movie, is in the frame whose time covers it and in no other.
    VideoDecoder decoder(run.movie);
    std::vector<int> bright;
    for (int n = 0; auto frame = decoder.next(); ++n) {
        const std::uint8_t* middle = frame->image.row(frame->image.height / 2) + 4 * (frame->image.width / 2);
        if (middle[0] > 200 && middle[1] > 200 && middle[2] > 200) {
            bright.push_back(n);
        }
    }
    EXPECT_EQ(bright, std::vector<int>{8});
}
