#include "model/Url.h"

#include "model/Hex.h"

#include <string_view>

namespace marlowick {

namespace {

constexpr std::string_view fileScheme = "file://";

bool keptInPath(unsigned char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
        return true;
    }
    return std::string_view("-._~/!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string_view::npos;
}

} // namespace

Url Url::fileUrl(const std::filesystem::path& path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    const std::string native = std::filesystem::absolute(path).lexically_normal().native();
    std::string text(fileScheme);
    for (const char ch : native) {
        const auto c = static_cast<unsigned char>(ch);
        if (keptInPath(c)) {
            text.push_back(ch);
        } else {
            text.push_back('%');
            text.push_back(digits[c >> 4]);
            text.push_back(digits[c & 0x0F]);
        }
    }
    return Url{std::move(text)};
}

bool Url::isFileUrl() const {
    const std::string_view text(absoluteString);
    if (text.size() < 5) {
        return false;
    }
    std::string scheme(text.substr(0, 5));
    for (char& c : scheme) {
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return scheme == "file:";
}

std::filesystem::path Url::path() const {
    if (!isFileUrl()) {
        return {};
    }
    std::string_view rest = std::string_view(absoluteString).substr(5);
    if (rest.starts_with("//")) {
        // An authority follows: empty or "localhost" both mean this machine.
        rest.remove_prefix(2);
        const auto slash = rest.find('/');
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::string decoded;
    decoded.reserve(rest.size());
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == '%' && i + 2 < rest.size() && hexDigitValue(rest[i + 1]) >= 0 &&
            hexDigitValue(rest[i + 2]) >= 0) {
            decoded.push_back(
                static_cast<char>(hexDigitValue(rest[i + 1]) * 16 + hexDigitValue(rest[i + 2])));
            i += 2;
        } else {
            decoded.push_back(rest[i]);
        }
    }
    return decoded;
}

} // namespace marlowick
