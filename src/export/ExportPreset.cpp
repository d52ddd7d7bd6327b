#include "export/ExportPreset.h"

#include <cmath>

namespace marlowick {

AspectRatio ExportPreset::ratio() const {
    const double r = size.aspect();
    const auto cases = allCases<AspectRatio>();
    AspectRatio best = cases.front();
    double bestDifference = std::abs(marlowick::size(best).aspect() - r);
    for (std::size_t i = 1; i < cases.size(); ++i) {
        const double difference = std::abs(marlowick::size(cases[i]).aspect() - r);
        if (difference < bestDifference) {
            best = cases[i];
            bestDifference = difference;
        }
    }
    return best;
}

const std::vector<ExportPreset>& ExportPreset::all() {
    using C = Container;
    using V = Codec;
    static const std::vector<ExportPreset> catalogue{
        {"free-720p", "720p", {1280, 720}, 30, C::mp4, V::h264},
        {"youtube-4k", "YouTube 4K", {3840, 2160}, 60, C::mp4, V::hevc},
        {"app-store-preview", "App Store Preview", {1080, 1920}, 30, C::mov, V::h264},
        {"reels-1080x1920", "Reels / TikTok", {1080, 1920}, 60, C::mp4, V::hevc},
        {"square-1080", "Square", {1080, 1080}, 60, C::mp4, V::hevc},
        {"hevc-alpha", "HEVC + Alpha", {1920, 1080}, 60, C::mov, V::hevcWithAlpha},
        {"prores-4444-alpha", "ProRes 4444 + Alpha", {1920, 1080}, 60, C::mov, V::prores4444},
        {"prores-4444", "ProRes 4444", {3840, 2160}, 60, C::mov, V::prores4444},
    };
    return catalogue;
}

const ExportPreset& ExportPreset::free() {
    return all()[0];
}
const ExportPreset& ExportPreset::youtube4K() {
    return all()[1];
}
const ExportPreset& ExportPreset::appStorePreview() {
    return all()[2];
}
const ExportPreset& ExportPreset::reels() {
    return all()[3];
}
const ExportPreset& ExportPreset::square() {
    return all()[4];
}
const ExportPreset& ExportPreset::hevcAlpha() {
    return all()[5];
}
const ExportPreset& ExportPreset::proresAlpha() {
    return all()[6];
}
const ExportPreset& ExportPreset::prores() {
    return all()[7];
}

std::vector<ExportPreset> ExportPreset::matching(AspectRatio canvasRatio) {
    std::vector<ExportPreset> rows;
    for (const ExportPreset& p : all()) {
        if (p.ratio() == canvasRatio) {
            rows.push_back(p);
        }
    }
    return rows;
}

const ExportPreset* ExportPreset::replacementOnThisSystem() const {
    return codec == Codec::hevcWithAlpha ? &proresAlpha() : nullptr;
}

} // namespace marlowick
