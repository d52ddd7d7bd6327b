// Opens a package made from the fuzz input. The input is split on NUL bytes into the package's files, in
// this order: Document.json, Telemetry/events.json, Media/take.mov. A file whose part is absent is left
// out of the package, so missing files are tried too. The read must succeed or fail with DocumentError
// or CodingError; whatever else escapes stops the run.

#include "FuzzCheck.h"

#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"
#include "model/TelemetryFile.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <string_view>
#include <unistd.h>

using namespace marlowick;
using marlowick::fuzz::fuzzFailure;
namespace fs = std::filesystem;

namespace {

constexpr std::array<std::string_view, 3> partFiles = {"Document.json", "Telemetry/events.json",
                                                       "Media/take.mov"};

// One private folder for the whole run, under /dev/shm where it exists so that writing the parts costs
// no disk work; it goes when the process ends.
class Scratch {
public:
    Scratch() {
        const fs::path base = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        std::string pattern = (base / "marlowick-fuzz-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            fuzzFailure("can't make a scratch folder under " + base.string());
        }
        m_path = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    const fs::path& path() const { return m_path; }

private:
    fs::path m_path;
};

void writeBytes(const fs::path& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        fuzzFailure("can't write " + path.string());
    }
}

// Writes the events through the package's writer and reads them back: they must come back the same.
void checkTelemetryRoundTrip(const fs::path& scratch, const std::vector<InputEvent>& events) {
    const fs::path path = scratch / "roundtrip.json";
    fs::remove(path);
    writeTelemetryFile(path, events);
    const auto read = readTelemetryFile(path);
    if (!read || *read != events) {
        fuzzFailure("telemetry that was read doesn't read back the same once written");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Scratch scratch;
    const fs::path package = scratch.path() / "Take.marlowick";
    fs::remove_all(package);
    fs::create_directories(package / "Telemetry");
    fs::create_directories(package / "Media");

    std::string_view rest(reinterpret_cast<const char*>(data), size);
    for (std::size_t i = 0; i < partFiles.size() && rest.data() != nullptr; ++i) {
        const std::size_t end = i + 1 < partFiles.size() ? rest.find('\0') : std::string_view::npos;
        writeBytes(package / partFiles[i], rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }

    try {
        const MarlowickDocument document = MarlowickDocument::read(package);
        // What was read can be stored again.
        document.storedProjectJson();
        checkTelemetryRoundTrip(scratch.path(), document.telemetry());
    } catch (const DocumentError&) {
    } catch (const CodingError&) {
    } catch (const std::exception& e) {
        fuzzFailure(std::string("the package read raised an untyped error: ") + e.what());
    }
    return 0;
}
