// Decodes the fuzz input, parsed as JSON, as each top-level record a package holds: the project, the
// envelope of "Document.json" and the list of input events. A decode must succeed or fail with
// CodingError. What decodes must encode, and the encoded value must decode to a value that encodes the
// same: a round trip that changes a record would change a project at every save.

#include "FuzzCheck.h"

#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"

#include <cstdint>

using namespace marlowick;
using marlowick::fuzz::fuzzFailure;

namespace {

// The envelope of "Document.json", as the package reader decodes it.
struct Envelope {
    std::int64_t formatVersion = 0;
    std::string mediaRelativePath;
    Project project;
};

Envelope decodeEnvelope(const JsonReader& r) {
    return {r.decode<std::int64_t>("formatVersion"), r.decode<std::string>("mediaRelativePath"),
            r.decode<Project>("project")};
}

Json encodeEnvelope(const Envelope& e) {
    return {{"formatVersion", e.formatVersion},
            {"mediaRelativePath", e.mediaRelativePath},
            {"project", toJson(e.project)}};
}

template <class T, class Decode, class Encode>
void checkRoundTrip(const char* record, const Json& json, Decode decode, Encode encode) {
    std::optional<T> value;
    try {
        value = decode(JsonReader(json));
    } catch (const CodingError&) {
        return;
    } catch (const std::exception& e) {
        fuzzFailure(std::string(record) + ": the decode raised an untyped error: " + e.what());
    }
    try {
        const Json once = encode(*value);
        const Json twice = encode(decode(JsonReader(once)));
        if (once != twice) {
            fuzzFailure(std::string(record) + ": a round trip changed the record:\n" + once.dump() + "\n" +
                        twice.dump());
        }
    } catch (const std::exception& e) {
        fuzzFailure(std::string(record) + ": a decoded record doesn't round-trip: " + e.what());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Parsed as the package reader parses "Document.json", with its bound on nesting.
    Json json;
    try {
        json = parseJson(std::string_view(reinterpret_cast<const char*>(data), size), "input");
    } catch (const CodingError&) {
        return 0;
    }
    checkRoundTrip<Project>(
        "project", json, [](const JsonReader& r) { return r.decode<Project>(); },
        [](const Project& p) { return toJson(p); });
    checkRoundTrip<Envelope>("envelope", json, decodeEnvelope, encodeEnvelope);
    checkRoundTrip<std::vector<InputEvent>>(
        "events", json, [](const JsonReader& r) { return r.decode<std::vector<InputEvent>>(); },
        [](const std::vector<InputEvent>& events) { return toJson(events); });
    return 0;
}
