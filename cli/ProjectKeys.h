#pragma once

#include "model/Coding.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace marlowick::cli {

// The project's settings that `set` changes and `style` reports, each named by its dotted path in the
// project's JSON ("canvas.shadow.opacity" is project.canvas.shadow.opacity in Document.json).
struct ProjectKey {
    // How the text a user types becomes the key's JSON.
    enum class Form {
        json,           // parsed as JSON; text that isn't JSON is a string
        text,           // the text as typed (a string), unless it is a quoted JSON string
        ratio,          // a case name, stored as {"case": {}}
        background,     // #RRGGBB, transparent, a swatch's name, or FROM,TO,DEGREES for a gradient
        device,         // a kind or an id from the catalogue, or none
        secondsOrNever, // a number, or never for none
        music,          // a file, or none
        captions,       // the whole track as JSON, or none
    };

    std::string_view name;
    Form form;
    std::string_view type; // what the value may be, as --list shows it
};

// Every settable key, in the order --list prints them.
const std::vector<ProjectKey>& projectKeys();

// The key with this exact name, or null.
const ProjectKey* findProjectKey(std::string_view name);

// Why `name` is not a key, for a line of its own: the keys of a group when it names one, otherwise the
// known key nearest to it.
std::string unknownKeyAdvice(std::string_view name);

// The key's value in the project's JSON as a user would type it: "0.08", "laptop-16", "never", "none".
// "-" when the key sits in a part the project doesn't have (a music bed's gain without a bed).
std::string presentValue(const ProjectKey& key, const Json& project);

// Sets the key in the project's JSON from the typed text, and checks the result by decoding the whole
// project as a package read does. Throws CodingError, its text starting with the key, for a value the
// key's forms or the reader refuse (the reader's words then say what the key takes); `project` is then
// unspecified.
void applySetting(Json& project, const ProjectKey& key, const std::string& text);

// One key whose value differs between two versions of a project.
struct KeyChange {
    std::string key;
    std::string before;
    std::string after;
};

// The keys under the given prefixes ("canvas.") whose values differ, in the order of `projectKeys`.
// A key inside a part that came or went (a music bed added) is left out: the part's own line says it.
std::vector<KeyChange> changedKeys(const Json& before, const Json& after,
                                   std::initializer_list<std::string_view> prefixes);

// "key: before → after", a line each.
std::string describeChanges(const std::vector<KeyChange>& changes);

} // namespace marlowick::cli
