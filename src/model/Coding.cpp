#include "model/Coding.h"

#include <cmath>

namespace marlowick {

namespace {

std::string childPath(const std::string& parent, std::string_view key) {
    return parent.empty() ? std::string(key) : parent + "." + std::string(key);
}

std::string_view typeName(const Json& value) {
    switch (value.type()) {
    case Json::value_t::null:
        return "null";
    case Json::value_t::object:
        return "an object";
    case Json::value_t::array:
        return "an array";
    case Json::value_t::string:
        return "a string";
    case Json::value_t::boolean:
        return "a boolean";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
        return "a number";
    default:
        return "an unknown value";
    }
}

} // namespace

void JsonReader::fail(std::string_view message) const {
    throw CodingError((m_path.empty() ? std::string("top level") : m_path) + ": " + std::string(message));
}

void JsonReader::typeMismatch(std::string_view expected) const {
    fail("expected " + std::string(expected) + ", found " + std::string(typeName(*m_value)));
}

std::optional<JsonReader> JsonReader::find(std::string_view key) const {
    if (!m_value->is_object()) {
        typeMismatch("an object");
    }
    const auto it = m_value->find(key);
    if (it == m_value->end() || it->is_null()) {
        return std::nullopt;
    }
    return JsonReader(*it, childPath(m_path, key));
}

JsonReader JsonReader::at(std::string_view key) const {
    if (auto child = find(key)) {
        return *child;
    }
    fail("missing key \"" + std::string(key) + "\"");
}

std::vector<JsonReader> JsonReader::elements() const {
    if (!m_value->is_array()) {
        typeMismatch("an array");
    }
    std::vector<JsonReader> out;
    out.reserve(m_value->size());
    for (std::size_t i = 0; i < m_value->size(); ++i) {
        out.emplace_back((*m_value)[i], m_path + "[" + std::to_string(i) + "]");
    }
    return out;
}

std::pair<std::string, JsonReader> JsonReader::singleKey() const {
    if (!m_value->is_object()) {
        typeMismatch("an object");
    }
    if (m_value->size() != 1) {
        fail("Invalid number of keys found, expected one.");
    }
    const auto it = m_value->begin();
    return {it.key(), JsonReader(it.value(), childPath(m_path, it.key()))};
}

double JsonReader::number() const {
    if (!m_value->is_number()) {
        typeMismatch("a number");
    }
    return m_value->get<double>();
}

std::int64_t JsonReader::integer() const {
    if (m_value->is_number_integer()) {
        return m_value->get<std::int64_t>();
    }
    if (m_value->is_number_float()) {
        const double v = m_value->get<double>();
        if (std::trunc(v) == v && std::abs(v) < 9.0e15) {
            return static_cast<std::int64_t>(v);
        }
    }
    typeMismatch("a whole number");
}

bool JsonReader::boolean() const {
    if (!m_value->is_boolean()) {
        typeMismatch("a boolean");
    }
    return m_value->get<bool>();
}

std::string JsonReader::string() const {
    if (!m_value->is_string()) {
        typeMismatch("a string");
    }
    return m_value->get<std::string>();
}

Json parseJson(std::string_view text, std::string_view what) {
    // The depth a container opens at is the number of containers around it.
    const auto limitDepth = [&](int depth, Json::parse_event_t event, Json&) {
        if ((event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start) &&
            depth >= maximumJsonDepth) {
            throw CodingError(std::string(what) + " nests deeper than " + std::to_string(maximumJsonDepth) +
                              " levels");
        }
        return true;
    };
    Json json = Json::parse(text, limitDepth, false);
    if (json.is_discarded()) {
        throw CodingError(std::string(what) + " is not valid JSON");
    }
    return json;
}

Json Coder<double>::encode(double value) {
    if (!std::isfinite(value)) {
        throw CodingError("a number that is not finite can't be written");
    }
    return value;
}

Uuid Coder<Uuid>::decode(const JsonReader& r) {
    const std::string text = r.string();
    if (auto id = Uuid::parse(text)) {
        return *id;
    }
    r.fail("\"" + text + "\" is not a UUID");
}

Url Coder<Url>::decode(const JsonReader& r) {
    std::string text = r.string();
    if (text.empty()) {
        r.fail("a URL can't be empty");
    }
    return Url{std::move(text)};
}

} // namespace marlowick
