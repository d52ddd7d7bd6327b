#include "playback/PicturePool.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <tuple>

namespace marlowick {

namespace {

// Changes kept: a slot let go after more pictures than this is brought up to date by a whole copy.
constexpr std::size_t changesKept = 32;

} // namespace

BgraImage& PicturePool::next(const PictureChange& change) {
    // The free slot that held the most recent picture has the least to catch up on.
    Slot* slot = nullptr;
    for (Slot& candidate : m_slots) {
        if (candidate.image.use_count() == 1 && (slot == nullptr || candidate.picture > slot->picture)) {
            slot = &candidate;
        }
    }
    if (slot != nullptr) {
        // Whoever held it last let go on another thread: see its reads through before writing.
        std::atomic_thread_fence(std::memory_order_acquire);
    } else if (m_slots.size() < capacity) {
        m_slots.push_back({std::make_shared<BgraImage>(), 0});
        slot = &m_slots.back();
    }
    std::shared_ptr<BgraImage> image = slot != nullptr ? slot->image : std::make_shared<BgraImage>();
    if (!change.whole && m_latest) {
        bringUpToDate(*image, slot != nullptr ? slot->picture : 0);
    }
    ++m_latestPicture;
    if (slot != nullptr) {
        slot->picture = m_latestPicture;
    }
    m_latest = std::move(image);
    m_changes.emplace_back(m_latestPicture, change);
    if (m_changes.size() > changesKept) {
        m_changes.pop_front();
    }
    return *m_latest;
}

void PicturePool::bringUpToDate(BgraImage& image, std::uint64_t held) const {
    const BgraImage& latest = *m_latest;
    const bool known = held != 0 && !m_changes.empty() && m_changes.front().first <= held + 1 &&
                       image.width == latest.width && image.height == latest.height &&
                       image.stride == latest.stride;
    std::vector<PixelRect> areas;
    bool whole = !known;
    for (const auto& [picture, change] : m_changes) {
        if (whole) {
            break;
        }
        if (picture > held) {
            whole = change.whole;
            areas.insert(areas.end(), change.areas.begin(), change.areas.end());
        }
    }
    // The same places often change picture after picture (a caret, a clock): each is copied once. Where
    // the copies would add up to much of the picture, one copy of the whole is cheaper.
    std::sort(areas.begin(), areas.end(), [](const PixelRect& a, const PixelRect& b) {
        return std::tie(a.y, a.x, a.height, a.width) < std::tie(b.y, b.x, b.height, b.width);
    });
    areas.erase(std::unique(areas.begin(), areas.end()), areas.end());
    std::int64_t pixels = 0;
    for (const PixelRect& area : areas) {
        pixels += static_cast<std::int64_t>(area.width) * area.height;
    }
    if (whole || pixels * 2 > static_cast<std::int64_t>(latest.width) * latest.height) {
        image = latest;
        return;
    }
    for (const PixelRect& area : areas) {
        const auto offset = static_cast<std::size_t>(area.x) * 4;
        const auto bytes = static_cast<std::size_t>(area.width) * 4;
        for (int y = area.y; y < area.bottom(); ++y) {
            std::memcpy(image.row(y) + offset, latest.row(y) + offset, bytes);
        }
    }
}

} // namespace marlowick
