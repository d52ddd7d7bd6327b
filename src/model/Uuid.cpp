#include "model/Uuid.h"

#include "model/Hex.h"

#include <cstring>
#include <stdexcept>
#include <sys/random.h>

namespace marlowick {

Uuid Uuid::random() {
    Uuid id;
    std::size_t filled = 0;
    while (filled < id.bytes.size()) {
        const ssize_t got = getrandom(id.bytes.data() + filled, id.bytes.size() - filled, 0);
        if (got < 0) {
            throw std::runtime_error("no random source for a new identifier");
        }
        filled += static_cast<std::size_t>(got);
    }
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40); // version 4
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    return id;
}

namespace {

bool isDashPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

} // namespace

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    Uuid id;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (isDashPosition(i)) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        const int high = hexDigitValue(text[i]);
        const int low = hexDigitValue(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        id.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return id;
}

std::string Uuid::toString() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text.push_back('-');
        }
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0F]);
    }
    return text;
}

} // namespace marlowick

std::size_t std::hash<marlowick::Uuid>::operator()(const marlowick::Uuid& id) const noexcept {
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    std::memcpy(&a, id.bytes.data(), 8);
    std::memcpy(&b, id.bytes.data() + 8, 8);
    return static_cast<std::size_t>(a ^ (b * 0x9E3779B97F4A7C15ULL));
}
