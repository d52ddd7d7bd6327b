#pragma once

#include "export/Exporter.h"
#include "media/MediaError.h"
#include "model/FileOps.h"

#include <string>

namespace marlowick {

// Runs `work`, turning the media layer's failures into the export's. A failure on `staged`'s hidden file
// is told with the name the person chose: the hidden one means nothing to them and is gone by then.
template <typename Work>
auto reportingMediaFailures(Work&& work, const fileops::StagedOutput* staged = nullptr) {
    try {
        return work();
    } catch (const MediaError& e) {
        std::string text = e.what();
        if (staged != nullptr) {
            const std::string hidden = staged->staging().string();
            for (auto at = text.find(hidden); at != std::string::npos; at = text.find(hidden, at)) {
                text.replace(at, hidden.size(), staged->target().string());
                at += staged->target().string().size();
            }
        }
        throw ExportError(ExportError::Kind::writerFailed, text);
    }
}

} // namespace marlowick
