#include "model/TelemetryFile.h"

#include "model/Hex.h"

#include "model/Coding.h"
#include "model/FileOps.h"

#include <charconv>
#include <cmath>
#include <string>

namespace marlowick {

namespace {

char* appendNumber(char* out, char* end, double value) {
    if (!std::isfinite(value)) {
        throw CodingError("telemetry: a number that is not finite can't be written");
    }
    return std::to_chars(out, end, value).ptr;
}

char* appendText(char* out, std::string_view text) {
    for (char c : text) {
        *out++ = c;
    }
    return out;
}

} // namespace

void writeTelemetryFile(const std::filesystem::path& path, const std::vector<InputEvent>& events,
                        std::filesystem::perms permissions) {
    fileops::FileWriter writer(path, permissions);
    writer.append("[");
    char line[160]; // three shortest doubles (at most 24 characters each) and the fixed text
    for (std::size_t i = 0; i < events.size(); ++i) {
        const InputEvent& e = events[i];
        char* const end = line + sizeof line;
        char* p = appendText(line, i == 0 ? "{\"time\":" : ",{\"time\":");
        p = appendNumber(p, end, e.time);
        p = appendText(p, ",\"kind\":\"");
        p = appendText(p, enumName(e.kind));
        p = appendText(p, "\",\"location\":{\"x\":");
        p = appendNumber(p, end, e.location.x);
        p = appendText(p, ",\"y\":");
        p = appendNumber(p, end, e.location.y);
        p = appendText(p, "}}");
        writer.append({line, static_cast<std::size_t>(p - line)});
    }
    writer.append("]");
    writer.finish();
}

namespace {

// A strict JSON reader for an array of events. Anything that isn't JSON fails the read.
class EventsReader {
public:
    explicit EventsReader(std::string_view text)
        : m_p(text.data())
        , m_end(text.data() + text.size()) {}

    std::optional<std::vector<InputEvent>> read() {
        std::vector<InputEvent> events;
        if (!take('[')) {
            return std::nullopt;
        }
        // Our writer spends about 70 bytes an event; reserving from that avoids regrowing the list.
        events.reserve(static_cast<std::size_t>(m_end - m_p) / 64);
        if (!take(']')) {
            do {
                InputEvent e;
                if (!readEvent(e)) {
                    return std::nullopt;
                }
                events.push_back(e);
            } while (take(','));
            if (!take(']')) {
                return std::nullopt;
            }
        }
        skipSpace();
        if (m_p != m_end) {
            return std::nullopt; // anything after the array makes the whole file suspect
        }
        return events;
    }

private:
    static constexpr int maximumDepth = 64;

    void skipSpace() {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\n' || *m_p == '\r' || *m_p == '\t')) {
            ++m_p;
        }
    }

    bool take(char c) {
        skipSpace();
        if (m_p < m_end && *m_p == c) {
            ++m_p;
            return true;
        }
        return false;
    }

    bool takeWord(std::string_view word) {
        if (static_cast<std::size_t>(m_end - m_p) < word.size() ||
            std::string_view(m_p, word.size()) != word) {
            return false;
        }
        m_p += word.size();
        return true;
    }

    bool readHex4(unsigned& out) {
        if (m_end - m_p < 4) {
            return false;
        }
        out = 0;
        for (int i = 0; i < 4; ++i) {
            const int v = hexDigitValue(*m_p++);
            if (v < 0) {
                return false;
            }
            out = out * 16 + static_cast<unsigned>(v);
        }
        return true;
    }

    static void appendUtf8(std::string& out, unsigned code) {
        if (code < 0x80) {
            out.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (code >> 6)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (code >> 12)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (code >> 18)));
            out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }

    // A string's text. Without escapes it is a view into the file; with them it is decoded into
    // `scratch`, which the view then points into.
    bool readString(std::string& scratch, std::string_view& out) {
        if (!take('"')) {
            return false;
        }
        const char* start = m_p;
        while (m_p < m_end && *m_p != '"' && *m_p != '\\') {
            if (static_cast<unsigned char>(*m_p) < 0x20) {
                return false;
            }
            ++m_p;
        }
        if (m_p < m_end && *m_p == '"') {
            out = std::string_view(start, static_cast<std::size_t>(m_p - start));
            ++m_p;
            return true;
        }
        scratch.assign(start, m_p);
        while (m_p < m_end && *m_p != '"') {
            const char c = *m_p++;
            if (static_cast<unsigned char>(c) < 0x20) {
                return false;
            }
            if (c != '\\') {
                scratch.push_back(c);
                continue;
            }
            if (m_p == m_end) {
                return false;
            }
            switch (const char escaped = *m_p++) {
            case '"':
            case '\\':
            case '/':
                scratch.push_back(escaped);
                break;
            case 'b':
                scratch.push_back('\b');
                break;
            case 'f':
                scratch.push_back('\f');
                break;
            case 'n':
                scratch.push_back('\n');
                break;
            case 'r':
                scratch.push_back('\r');
                break;
            case 't':
                scratch.push_back('\t');
                break;
            case 'u': {
                unsigned code = 0;
                if (!readHex4(code)) {
                    return false;
                }
                if (code >= 0xD800 && code < 0xDC00 && takeWord("\\u")) {
                    unsigned low = 0;
                    if (!readHex4(low) || low < 0xDC00 || low >= 0xE000) {
                        return false;
                    }
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                }
                appendUtf8(scratch, code);
                break;
            }
            default:
                return false;
            }
        }
        if (m_p == m_end) {
            return false;
        }
        ++m_p;
        out = scratch;
        return true;
    }

    bool readNumber(double& out) {
        skipSpace();
        // JSON numbers start with a minus or a digit, which also keeps out "inf" and "nan".
        const char* digits = m_p < m_end && *m_p == '-' ? m_p + 1 : m_p;
        if (digits >= m_end || *digits < '0' || *digits > '9') {
            return false;
        }
        const auto [next, error] = std::from_chars(m_p, m_end, out, std::chars_format::general);
        if (error != std::errc()) {
            return false;
        }
        m_p = next;
        return true;
    }

    bool skipValue(int depth) {
        if (depth > maximumDepth) {
            return false;
        }
        skipSpace();
        if (m_p == m_end) {
            return false;
        }
        std::string_view ignored;
        switch (*m_p) {
        case '"':
            return readString(m_valueScratch, ignored);
        case 't':
            return takeWord("true");
        case 'f':
            return takeWord("false");
        case 'n':
            return takeWord("null");
        case '[':
            ++m_p;
            if (take(']')) {
                return true;
            }
            do {
                if (!skipValue(depth + 1)) {
                    return false;
                }
            } while (take(','));
            return take(']');
        case '{':
            ++m_p;
            if (take('}')) {
                return true;
            }
            do {
                if (!readString(m_keyScratch, ignored) || !take(':') || !skipValue(depth + 1)) {
                    return false;
                }
            } while (take(','));
            return take('}');
        default: {
            double number = 0;
            return readNumber(number);
        }
        }
    }

    // Walks an object's members, handing each key to `member`, which reads the value it knows and skips
    // the rest through `skipValue`.
    template <class Member> bool readObject(Member&& member) {
        if (!take('{')) {
            return false;
        }
        if (take('}')) {
            return true;
        }
        do {
            std::string_view key;
            if (!readString(m_keyScratch, key) || !take(':') || !member(key)) {
                return false;
            }
        } while (take(','));
        return take('}');
    }

    bool readLocation(Point& location) {
        bool hasX = false;
        bool hasY = false;
        const bool ok = readObject([&](std::string_view key) {
            if (key == "x") {
                return hasX = readNumber(location.x);
            }
            if (key == "y") {
                return hasY = readNumber(location.y);
            }
            return skipValue(1);
        });
        return ok && hasX && hasY;
    }

    bool readEvent(InputEvent& e) {
        bool hasTime = false;
        bool hasKind = false;
        bool hasLocation = false;
        const bool ok = readObject([&](std::string_view key) {
            if (key == "time") {
                return hasTime = readNumber(e.time);
            }
            if (key == "kind") {
                std::string_view name;
                if (!readString(m_valueScratch, name)) {
                    return false;
                }
                const auto kind = enumFromName<InputEvent::Kind>(name);
                e.kind = kind.value_or(InputEvent::Kind::move);
                return hasKind = kind.has_value();
            }
            if (key == "location") {
                return hasLocation = readLocation(e.location);
            }
            return skipValue(1);
        });
        return ok && hasTime && hasKind && hasLocation;
    }

    const char* m_p;
    const char* m_end;
    std::string m_keyScratch;
    std::string m_valueScratch;
};

} // namespace

std::optional<std::vector<InputEvent>> readTelemetryFile(const std::filesystem::path& path) {
    // A file that can't be read is no damaged file: the caller says what the system refused.
    const fileops::MappedFile file(path);
    return EventsReader(file.bytes()).read();
}

} // namespace marlowick
