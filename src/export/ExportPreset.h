#pragma once

#include "model/Canvas.h"
#include "model/EnumNames.h"
#include "model/Geometry.h"

#include <string>
#include <vector>

namespace marlowick {

// One target of the export: pixel size, nominal frame rate, file type and video codec. A fixed catalogue;
// nothing about a preset is stored in a project.
struct ExportPreset {
    enum class Container { mp4, mov, webm, gif };
    enum class Codec { h264, hevc, hevcWithAlpha, prores4444, vp9, palette };

    std::string id;
    std::string name;
    Size size;
    double frameRate = 30; // for the frame total of the progress report; the rate itself when constant
    Container container = Container::mp4;
    Codec codec = Codec::h264;
    // Whether the movie keeps the recording's own frame times (each frame that survives the cuts, at its
    // time moved through them), or has a frame exactly every 1/frameRate s on the output's clock.
    bool constantRate = false;

    // The canvas shape that fits the size best; on a tie the earlier shape in the list stays, so the
    // 9:16 rows are `vertical`, not `appStore`.
    AspectRatio ratio() const;

    static const ExportPreset& free();
    static const ExportPreset& youtube4K();
    static const ExportPreset& appStorePreview();
    static const ExportPreset& reels();
    static const ExportPreset& square();
    static const ExportPreset& hevcAlpha();
    static const ExportPreset& proresAlpha();
    static const ExportPreset& prores();
    // The catalogue in the order the export panel lists it.
    static const std::vector<ExportPreset>& all();

    // The row to export with instead when this one can't be written on this system, or null when it can.
    // FFmpeg's HEVC encoders here carry no alpha plane, and a movie with its transparency silently
    // dropped is worse than none, so HEVC + Alpha points at ProRes 4444 + Alpha.
    const ExportPreset* replacementOnThisSystem() const;

    // The rows whose shape is the canvas's, in catalogue order.
    static std::vector<ExportPreset> matching(AspectRatio canvasRatio);

    friend bool operator==(const ExportPreset&, const ExportPreset&) = default;
};

template <> struct EnumNames<ExportPreset::Container> {
    using C = ExportPreset::Container;
    static constexpr std::array<std::pair<C, std::string_view>, 4> names{{
        {C::mp4, "mp4"},
        {C::mov, "mov"},
        {C::webm, "webm"},
        {C::gif, "gif"},
    }};
};

template <> struct EnumNames<ExportPreset::Codec> {
    using C = ExportPreset::Codec;
    static constexpr std::array<std::pair<C, std::string_view>, 6> names{{
        {C::h264, "h264"},
        {C::hevc, "hevc"},
        {C::hevcWithAlpha, "hevcWithAlpha"},
        {C::prores4444, "prores4444"},
        {C::vp9, "vp9"},
        {C::palette, "palette"},
    }};
};

} // namespace marlowick
