#pragma once

#include <filesystem>
#include <string>

namespace marlowick {

// A URL held as its absolute string, the form it takes in a file. Only `file:` URLs name something on
// this machine; other schemes are stored and written back untouched.
struct Url {
    std::string absoluteString;

    // A `file://` URL for the given path, made absolute against the working directory, with every byte
    // outside the characters allowed in a path percent-encoded.
    static Url fileUrl(const std::filesystem::path& path);

    bool isFileUrl() const;
    // The decoded path of a `file:` URL; an empty path for any other scheme.
    std::filesystem::path path() const;

    friend bool operator==(const Url&, const Url&) = default;
};

} // namespace marlowick
