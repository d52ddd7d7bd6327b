#include "Errors.h"

#include "model/Coding.h"
#include "model/MarlowickDocument.h"

#include <iostream>

namespace marlowick::cli {

std::string describe(const std::exception& error, const std::filesystem::path& package, Operation operation) {
    const std::string where = package.string() + ": ";
    if (const auto* e = dynamic_cast<const DocumentError*>(&error)) {
        switch (e->kind()) {
        case DocumentError::Kind::notAPackage:
            return operation == Operation::opening
                       ? where + "not a Marlowick package (it has no Document.json)"
                       : where + "already exists and is not a Marlowick package; it was left as it is";
        case DocumentError::Kind::unsupportedFormatVersion:
            return where + "was saved by a newer Marlowick (format version " + e->payload() +
                   "); this one reads versions up to " +
                   std::to_string(MarlowickDocument::currentFormatVersion);
        case DocumentError::Kind::mediaMissing:
            return operation == Operation::opening
                       ? where + "the movie " + e->payload() + " is missing from the package"
                       : where + "can't save: the movie " + e->payload() + " can't be found";
        }
    }
    if (dynamic_cast<const CodingError*>(&error) != nullptr) {
        return where + (operation == Operation::opening ? "Document.json is damaged: " : "can't save: ") +
               error.what();
    }
    if (const auto* e = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        std::string line = where + (operation == Operation::opening ? "can't read " : "can't save: ");
        line += e->path1().empty() ? std::string("a file") : e->path1().string();
        return line + ": " + e->code().message();
    }
    return where + error.what();
}

void report(const std::string& line) {
    std::cerr << "marlowick: " << line << '\n';
}

} // namespace marlowick::cli
