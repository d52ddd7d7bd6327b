#include "playback/PlayerItem.h"

namespace marlowick {

PlayerItem PlayerItem::ofMovie(const std::filesystem::path& movie, double duration, std::size_t audioTracks) {
    PlayerItem item;
    item.movie = movie;
    if (duration > 0) {
        item.composition.segments = {{0, duration, 0}};
    }
    item.composition.videoTracks = 1;
    if (audioTracks > 0) {
        item.composition.audio = {{movie, 0, false}};
    }
    return item;
}

} // namespace marlowick
