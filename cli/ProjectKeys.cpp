#include "ProjectKeys.h"

#include "model/FileOps.h"
#include "model/Hex.h"
#include "model/ModelCoding.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>

namespace marlowick::cli {

namespace {

using Form = ProjectKey::Form;

std::vector<std::string> splitPath(std::string_view name) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t dot = name.find('.', start);
        parts.emplace_back(name.substr(start, dot - start));
        if (dot == std::string_view::npos) {
            return parts;
        }
        start = dot + 1;
    }
}

// The value at the dotted path, or null when the path, or a part on the way, is absent.
const Json* lookUp(const Json& project, std::string_view name) {
    const Json* node = &project;
    for (const std::string& part : splitPath(name)) {
        if (!node->is_object()) {
            return nullptr;
        }
        const auto it = node->find(part);
        if (it == node->end() || it->is_null()) {
            return nullptr;
        }
        node = &*it;
    }
    return node;
}

// The keys in the table whose names start with `name` and a dot.
std::vector<const ProjectKey*> keysUnder(std::string_view name) {
    std::vector<const ProjectKey*> keys;
    for (const ProjectKey& key : projectKeys()) {
        if (key.name.size() > name.size() && key.name.starts_with(name) && key.name[name.size()] == '.') {
            keys.push_back(&key);
        }
    }
    return keys;
}

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// How many whole dotted parts two names share from their start.
std::size_t sharedParts(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    std::size_t n = 0;
    while (n < a.size() && n < b.size() && lowered(a[n]) == lowered(b[n])) {
        ++n;
    }
    return n;
}

// Strings as they are, whole numbers without a fraction ("20", not "20.0"), the rest as JSON.
std::string jsonText(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_float()) {
        const double v = value.get<double>();
        if (std::trunc(v) == v && std::abs(v) < 1e15) {
            return std::to_string(static_cast<long long>(v));
        }
    }
    return value.dump();
}

bool isHexColour(std::string_view text) {
    return text.size() == 7 && text[0] == '#' &&
           std::all_of(text.begin() + 1, text.end(), [](char c) { return hexDigitValue(c) >= 0; });
}

[[noreturn]] void refuse(const ProjectKey& key, const std::string& why) {
    throw CodingError(std::string(key.name) + ": " + why);
}

// Text that is JSON stands for that JSON; any other text for the string it is.
Json looseJson(const std::string& text) {
    Json parsed = Json::parse(text, nullptr, false);
    return parsed.is_discarded() ? Json(text) : parsed;
}

Json backgroundJson(const ProjectKey& key, const std::string& text) {
    if (text == "transparent") {
        return toJson(Background::transparent());
    }
    if (isHexColour(text)) {
        return toJson(Background::solid(text));
    }
    for (const BackgroundSwatch& swatch : backgroundSwatches()) {
        if (lowered(swatch.name) == lowered(text)) {
            return toJson(swatch.background);
        }
    }
    const auto first = text.find(',');
    const auto second = first == std::string::npos ? first : text.find(',', first + 1);
    if (second != std::string::npos) {
        const std::string from = text.substr(0, first);
        const std::string to = text.substr(first + 1, second - first - 1);
        const Json angle = Json::parse(text.substr(second + 1), nullptr, false);
        if (isHexColour(from) && isHexColour(to) && angle.is_number()) {
            return toJson(Background::linearGradient(from, to, angle.get<double>()));
        }
    }
    Json parsed = Json::parse(text, nullptr, false);
    if (parsed.is_object()) {
        return parsed;
    }
    refuse(key, "\"" + text + "\" is no background; give #RRGGBB, transparent, a swatch's name or " +
                    "#FROM,#TO,DEGREES");
}

Json deviceJson(const ProjectKey& key, const std::string& text) {
    for (const DeviceFrame& device : DeviceFrame::all()) {
        if (device.id == text) {
            return toJson(device);
        }
    }
    // A kind picks the first device of that kind in the catalogue.
    if (const auto kind = enumFromName<DeviceFrame::Kind>(text)) {
        for (const DeviceFrame& device : DeviceFrame::all()) {
            if (device.kind == *kind) {
                return toJson(device);
            }
        }
    }
    Json parsed = Json::parse(text, nullptr, false);
    if (parsed.is_object()) {
        return parsed;
    }
    std::string ids;
    for (const DeviceFrame& device : DeviceFrame::all()) {
        ids += ", " + device.id;
    }
    refuse(key, "unknown device \"" + text + "\"; choose laptop, display, tablet, phone, none" + ids);
}

// A bed for the file, keeping the levels of the bed it replaces.
Json musicJson(const ProjectKey& key, const std::string& text, const Json* present) {
    Url url;
    if (text.find("://") != std::string::npos) {
        url = Url{text};
    } else {
        std::error_code error;
        if (!std::filesystem::is_regular_file(text, error)) {
            refuse(key, "no such file \"" + text + "\"");
        }
        url = Url::fileUrl(text);
    }
    Json bed = toJson(MusicBed::forFile(url));
    if (present != nullptr && present->is_object()) {
        Json kept = *present;
        kept["url"] = bed["url"];
        kept["name"] = bed["name"];
        return kept;
    }
    return bed;
}

// The value to store, or null to remove the key.
Json valueFor(const ProjectKey& key, const std::string& text, const Json* present) {
    switch (key.form) {
    case Form::json:
        return looseJson(text);
    case Form::text: {
        const Json parsed = Json::parse(text, nullptr, false);
        return !parsed.is_discarded() && parsed.is_string() ? parsed : Json(text);
    }
    case Form::ratio: {
        const Json parsed = Json::parse(text, nullptr, false);
        return parsed.is_object() ? parsed : Json{{text, Json::object()}};
    }
    case Form::background:
        return backgroundJson(key, text);
    case Form::device:
        return text == "none" ? Json() : deviceJson(key, text);
    case Form::secondsOrNever:
        return text == "never" ? Json() : looseJson(text);
    case Form::music:
        return text == "none" ? Json() : musicJson(key, text, present);
    case Form::captions: {
        if (text == "none") {
            return Json();
        }
        std::error_code error;
        if (std::filesystem::is_regular_file(text, error)) {
            const Json parsed = Json::parse(fileops::readFile(text), nullptr, false);
            if (parsed.is_discarded()) {
                refuse(key, "\"" + text + "\" doesn't hold JSON");
            }
            return parsed;
        }
        return looseJson(text);
    }
    }
    return looseJson(text);
}

std::string backgroundText(const Json& value) {
    for (const BackgroundSwatch& swatch : backgroundSwatches()) {
        if (toJson(swatch.background) == value) {
            return std::string(swatch.name);
        }
    }
    if (value.contains("solid") && value["solid"].contains("hex")) {
        return jsonText(value["solid"]["hex"]);
    }
    if (value.contains("linearGradient")) {
        const Json& g = value["linearGradient"];
        return jsonText(g.value("from", Json())) + "," + jsonText(g.value("to", Json())) + "," +
               jsonText(g.value("angle", Json()));
    }
    return value.dump();
}

// Removes the keys of the table below `key` from its value, so that a group's value holds only what no
// key of its own covers.
Json withoutSubkeys(const ProjectKey& key, Json value) {
    for (const ProjectKey* sub : keysUnder(key.name)) {
        const std::vector<std::string> parts = splitPath(sub->name.substr(key.name.size() + 1));
        Json* node = &value;
        for (std::size_t i = 0; i + 1 < parts.size() && node != nullptr; ++i) {
            node = node->is_object() && node->contains(parts[i]) ? &(*node)[parts[i]] : nullptr;
        }
        if (node != nullptr && node->is_object()) {
            node->erase(parts.back());
        }
    }
    return value;
}

} // namespace

const std::vector<ProjectKey>& projectKeys() {
    static const std::vector<ProjectKey> keys{
        {"name", Form::text, "text: the project's name"},
        {"canvas.ratio", Form::ratio, "widescreen|vertical|square|classic|appStore"},
        {"canvas.background", Form::background,
         "#RRGGBB, transparent, a swatch (Charcoal, Violet, Ocean...) or a gradient #FROM,#TO,DEGREES"},
        {"canvas.inset", Form::json, "number: the margin on each side, a fraction of the canvas"},
        {"canvas.cornerRadius", Form::json, "number: the recording's corners, canvas pixels"},
        {"canvas.shadow.radius", Form::json, "number: canvas pixels"},
        {"canvas.shadow.opacity", Form::json, "number from 0 to 1"},
        {"canvas.shadow.offset.x", Form::json, "number: canvas pixels"},
        {"canvas.shadow.offset.y", Form::json, "number: canvas pixels, down"},
        {"canvas.deviceFrame", Form::device, "laptop|display|tablet|phone|none or a device's id"},
        {"canvas.tilt.x", Form::json, "number: degrees of perspective tilt; 0 and 0 is none"},
        {"canvas.tilt.y", Form::json, "number: degrees of perspective tilt; 0 and 0 is none"},
        {"canvas.contentMode", Form::text, "fill|fit: crop to fill the shape, or show everything"},
        {"canvas.contentAnchor.x", Form::json, "number from 0 to 1: where a fill crop rests"},
        {"canvas.contentAnchor.y", Form::json, "number from 0 to 1: where a fill crop rests"},
        {"cursor.scale", Form::json, "number: the drawn cursor's size, 1 being natural"},
        {"cursor.smoothing", Form::json, "number from 0 to 1"},
        {"cursor.motionBlur", Form::json, "true|false"},
        {"cursor.clickRipple", Form::json, "true|false"},
        {"cursor.hideWhenIdle", Form::secondsOrNever, "seconds of rest before the cursor fades, or never"},
        {"captions", Form::captions, "the whole track as JSON or a file of it, or none"},
        {"captions.isEnabled", Form::json, "true|false"},
        {"captions.style.fontName", Form::text, "text: a font family"},
        {"captions.style.fontScale", Form::json, "number: text height, a fraction of the canvas"},
        {"captions.style.highlightPerWord", Form::json, "true|false"},
        {"captions.style.position", Form::text, "top|center|bottom"},
        {"captions.style.textColor", Form::text, "#RRGGBB"},
        {"captions.style.highlightColor", Form::text, "#RRGGBB"},
        {"captions.style.backgroundOpacity", Form::json, "number from 0 to 1: the plate behind the text"},
        {"audio.systemGain", Form::json, "number: gain of the system's sound, 1 being as recorded"},
        {"audio.voiceGain", Form::json, "number: gain of the microphone, 1 being as recorded"},
        {"audio.enhanceVoice", Form::json, "true|false: the voice clean-up"},
        {"audio.noiseReduction", Form::json, "number from 0 to 1"},
        {"audio.presence", Form::json, "number from 0 to 1"},
        {"audio.compression", Form::json, "number from 0 to 1"},
        {"audio.ducking", Form::json, "number from 0 to 1: how far the system's sound dips under the voice"},
        {"audio.clickSounds", Form::json, "true|false"},
        {"audio.clickGain", Form::json, "number"},
        {"audio.normalize", Form::json, "true|false"},
        {"audio.silence.isEnabled", Form::json, "true|false: cut the pauses found by 'marlowick silence'"},
        {"audio.silence.threshold", Form::json, "number: silent below this fraction of the voice's level"},
        {"audio.silence.minimumSilence", Form::json, "number: seconds a pause lasts to be cut"},
        {"audio.silence.padding", Form::json, "number: seconds kept at each end of a cut"},
        {"audio.music", Form::music, "a sound file, played from where it lies, or none"},
        {"audio.music.name", Form::text, "text"},
        {"audio.music.gain", Form::json, "number"},
        {"audio.music.fadeIn", Form::json, "number: seconds"},
        {"audio.music.fadeOut", Form::json, "number: seconds"},
        {"audio.music.loops", Form::json, "true|false"},
        {"audio.music.duckUnderVoice", Form::json, "number from 0 to 1"},
        {"audio.music.startOffset", Form::json, "number: seconds of the file skipped at its start"},
    };
    return keys;
}

const ProjectKey* findProjectKey(std::string_view name) {
    for (const ProjectKey& key : projectKeys()) {
        if (key.name == name) {
            return &key;
        }
    }
    return nullptr;
}

std::string unknownKeyAdvice(std::string_view name) {
    const std::vector<const ProjectKey*> group = keysUnder(name);
    if (!group.empty()) {
        std::string list;
        for (const ProjectKey* key : group) {
            list += (list.empty() ? "" : ", ") + std::string(key->name);
        }
        return std::string(name) + " is a group of keys: " + list;
    }
    // Nearest first among the keys that share the most leading parts, so that "cursor.size" meets the
    // cursor's keys before a closer spelling elsewhere.
    const std::vector<std::string> parts = splitPath(name);
    const ProjectKey* best = nullptr;
    std::pair<std::size_t, std::size_t> bestScore{0, 0};
    for (const ProjectKey& key : projectKeys()) {
        const std::size_t shared = sharedParts(parts, splitPath(key.name));
        const std::size_t distance = editDistance(lowered(name), lowered(key.name));
        // More shared parts wins; then the smaller distance.
        if (best == nullptr || shared > bestScore.first ||
            (shared == bestScore.first && distance < bestScore.second)) {
            best = &key;
            bestScore = {shared, distance};
        }
    }
    return "unknown key '" + std::string(name) + "' (did you mean " + std::string(best->name) + "?)";
}

std::string presentValue(const ProjectKey& key, const Json& project) {
    const Json* value = lookUp(project, key.name);
    // A key's part is there but the key isn't: an optional value that is off.
    const auto parent = key.name.rfind('.');
    const bool partPresent =
        parent == std::string_view::npos || lookUp(project, key.name.substr(0, parent)) != nullptr;
    if (value == nullptr) {
        if (!partPresent) {
            return "-";
        }
        return key.form == Form::secondsOrNever ? "never" : "none";
    }
    switch (key.form) {
    case Form::ratio:
        return value->is_object() && value->size() == 1 ? value->begin().key() : value->dump();
    case Form::background:
        return backgroundText(*value);
    case Form::device:
        return jsonText(value->value("id", Json(value->dump())));
    case Form::music:
        return jsonText(value->value("url", Json(value->dump())));
    case Form::captions: {
        std::size_t words = 0;
        const Json cues = value->value("cues", Json::array());
        for (const Json& cue : cues) {
            words += cue.value("words", Json::array()).size();
        }
        return std::to_string(cues.size()) + (cues.size() == 1 ? " cue, " : " cues, ") +
               std::to_string(words) + (words == 1 ? " word" : " words");
    }
    default:
        return jsonText(*value);
    }
}

void applySetting(Json& project, const ProjectKey& key, const std::string& text) {
    const std::vector<std::string> parts = splitPath(key.name);
    Json* node = &project;
    std::string walked;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        walked += (walked.empty() ? "" : ".") + parts[i];
        if (!node->is_object() || !node->contains(parts[i]) || (*node)[parts[i]].is_null()) {
            std::string why = "the project has no " + walked;
            if (const ProjectKey* part = findProjectKey(walked)) {
                why += "; set " + std::string(part->name) + "=" +
                       (part->form == Form::music ? "FILE" : "TRACK.json") + " first";
            }
            refuse(key, why);
        }
        node = &(*node)[parts[i]];
    }
    const auto present = node->find(parts.back());
    Json value = valueFor(key, text, present == node->end() ? nullptr : &*present);
    if (value.is_null()) {
        node->erase(parts.back());
    } else {
        (*node)[parts.back()] = std::move(value);
    }
    try {
        // Encoding the decoded project again catches what decodes but can't be stored (an infinity).
        project = toJson(fromJson<Project>(project));
    } catch (const CodingError& e) {
        // The reader's words, with what the key takes beside them.
        const std::string what = e.what();
        const std::string takes = " (" + std::string(key.name) + " takes " + std::string(key.type) + ")";
        if (what.starts_with(std::string(key.name))) {
            throw CodingError(what + takes);
        }
        refuse(key, what + takes);
    }
}

std::vector<KeyChange> changedKeys(const Json& before, const Json& after,
                                   std::initializer_list<std::string_view> prefixes) {
    std::vector<KeyChange> changes;
    std::vector<std::string_view> cameOrWent;
    for (const ProjectKey& key : projectKeys()) {
        const bool wanted = std::any_of(prefixes.begin(), prefixes.end(), [&](std::string_view prefix) {
            return key.name.starts_with(prefix);
        });
        const bool insideChangedPart =
            std::any_of(cameOrWent.begin(), cameOrWent.end(), [&](std::string_view p) {
                return key.name.starts_with(p) && key.name.size() > p.size() && key.name[p.size()] == '.';
            });
        if (!wanted || insideChangedPart) {
            continue;
        }
        const Json* a = lookUp(before, key.name);
        const Json* b = lookUp(after, key.name);
        if ((a == nullptr) != (b == nullptr)) {
            cameOrWent.push_back(key.name);
        } else if (a == nullptr || withoutSubkeys(key, *a) == withoutSubkeys(key, *b)) {
            continue;
        }
        changes.push_back({std::string(key.name), presentValue(key, before), presentValue(key, after)});
    }
    return changes;
}

std::string describeChanges(const std::vector<KeyChange>& changes) {
    std::string text;
    for (const KeyChange& change : changes) {
        text += change.key + ": " + change.before + " → " + change.after + "\n";
    }
    return text;
}

} // namespace marlowick::cli
