#pragma once

#include "media/AvPointers.h"
#include "media/StreamEncoder.h"

#include <filesystem>
#include <optional>
#include <string>

namespace marlowick::av {

// Which encoder a movie's video goes through, and its settings. H.264 and HEVC go to the GPU's encoder
// when FFmpeg finds one that opens (NVENC, then VAAPI on the default render node), and to libx264/libx265
// otherwise; ProRes 4444 is always prores_ks.
struct EncoderRequest {
    enum class Codec { h264, hevc, prores4444 };
    // A finished movie is encoded faster than real time and compressed well; a live capture must keep up
    // with the screen on two cores, and puts a keyframe at least every second so that a movie cut short
    // by a crash loses no more than that.
    enum class Purpose { finished, live };

    Codec codec = Codec::h264;
    Purpose purpose = Purpose::finished;
    int width = 0;
    int height = 0;
    double frameRate = 30;
    int timeScale = 90000;     // ticks a second of the frames' timestamps
    bool globalHeader = false; // the container keeps the codec's headers apart (MP4, QuickTime)
};

// An encoder that opened, with what its frames must be made of.
struct OpenEncoder {
    CodecContext codec;
    std::string name;
    BufferRef hardwareFrames;                          // the GPU's frame pool, for VAAPI only
    AVPixelFormat softwareFormat = AV_PIX_FMT_YUV420P; // what BGRA is converted into on the CPU
};

// The GPU's encoder for the request, or none when there is no device or driver (or for ProRes).
std::optional<OpenEncoder> openHardwareEncoder(const EncoderRequest& request);

// The software encoder; throws MediaError naming `path` with FFmpeg's reason when it won't open.
OpenEncoder openSoftwareEncoder(const std::filesystem::path& path, const EncoderRequest& request);

// Hands a picture in `encoder.softwareFormat` to the encoder, by way of the GPU's pool where the encoder
// wants its frames there (`scratch` holds that copy). Throws MediaError naming `path`.
void sendPicture(OpenEncoder& encoder, StreamEncoder& encoding, AVFrame* picture, AVFrame* scratch,
                 const std::filesystem::path& path);

} // namespace marlowick::av
