#pragma once

// The JSON coding machinery every record uses. A record's coder reads through a JsonReader, which knows
// where in the document it stands, so that every failure names the key that broke the read.

#include "model/EnumNames.h"
#include "model/Url.h"
#include "model/Uuid.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace marlowick {

// nlohmann's object keeps its keys in a sorted map, so every object is written with sorted keys.
using Json = nlohmann::json;

// A value that could not be read from, or written to, JSON. The text names the place and the fault.
class CodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <class T> struct Coder;

// A read-only view of one JSON value and the path that leads to it ("project.canvas.shadow").
// A key that is absent and a key that holds null are the same to every lookup here.
class JsonReader {
public:
    explicit JsonReader(const Json& value, std::string path = {})
        : m_value(&value)
        , m_path(std::move(path)) {}

    const Json& value() const { return *m_value; }
    const std::string& path() const { return m_path; }

    // The value under a required key; fails when it is absent or null.
    JsonReader at(std::string_view key) const;
    std::optional<JsonReader> find(std::string_view key) const;
    std::vector<JsonReader> elements() const;
    // The one key of an object that codes an enumeration case with values.
    std::pair<std::string, JsonReader> singleKey() const;

    double number() const;
    std::int64_t integer() const;
    bool boolean() const;
    std::string string() const;

    template <class T> T decode() const { return Coder<T>::decode(*this); }
    template <class T> T decode(std::string_view key) const { return at(key).decode<T>(); }
    template <class T> std::optional<T> decodeIfPresent(std::string_view key) const {
        if (auto child = find(key)) {
            return child->decode<T>();
        }
        return std::nullopt;
    }
    template <class T> T decode(std::string_view key, T fallback) const {
        if (auto child = find(key)) {
            return child->decode<T>();
        }
        return fallback;
    }

    [[noreturn]] void fail(std::string_view message) const;
    [[noreturn]] void typeMismatch(std::string_view expected) const;

private:
    const Json* m_value;
    std::string m_path;
};

template <> struct Coder<double> {
    // JSON has no place for infinities or NaN; writing one would make a file that can't be read back.
    static Json encode(double value);
    static double decode(const JsonReader& r) { return r.number(); }
};
template <> struct Coder<bool> {
    static Json encode(bool value) { return value; }
    static bool decode(const JsonReader& r) { return r.boolean(); }
};
template <> struct Coder<std::int64_t> {
    static Json encode(std::int64_t value) { return value; }
    static std::int64_t decode(const JsonReader& r) { return r.integer(); }
};
template <> struct Coder<std::string> {
    static Json encode(const std::string& value) { return value; }
    static std::string decode(const JsonReader& r) { return r.string(); }
};
template <> struct Coder<Uuid> {
    static Json encode(const Uuid& value) { return value.toString(); }
    static Uuid decode(const JsonReader& r);
};
template <> struct Coder<Url> {
    static Json encode(const Url& value) { return value.absoluteString; }
    static Url decode(const JsonReader& r);
};
template <NamedEnum E> struct Coder<E> {
    static Json encode(E value) { return std::string(enumName(value)); }
    static E decode(const JsonReader& r) {
        const std::string name = r.string();
        if (auto value = enumFromName<E>(name)) {
            return *value;
        }
        r.fail("unknown value \"" + name + "\"");
    }
};
template <class T> struct Coder<std::vector<T>> {
    static Json encode(const std::vector<T>& values) {
        Json array = Json::array();
        for (const T& v : values) {
            array.push_back(Coder<T>::encode(v));
        }
        return array;
    }
    static std::vector<T> decode(const JsonReader& r) {
        std::vector<T> values;
        for (const JsonReader& element : r.elements()) {
            values.push_back(element.decode<T>());
        }
        return values;
    }
};

// A file's text parsed as JSON. Throws CodingError, naming the file as `what`, for text that isn't JSON or
// that nests containers deeper than `maximumJsonDepth`: no record goes near that deep, and a file nested a
// million levels would cost seconds and hundreds of megabytes to parse only to be refused.
inline constexpr int maximumJsonDepth = 64;
Json parseJson(std::string_view text, std::string_view what);

template <class T> Json toJson(const T& value) {
    return Coder<T>::encode(value);
}
template <class T> T fromJson(const Json& json) {
    return Coder<T>::decode(JsonReader(json));
}

} // namespace marlowick
