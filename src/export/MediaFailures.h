#pragma once

#include "export/Exporter.h"
#include "media/MediaError.h"

namespace marlowick {

// Runs `work`, turning the media layer's failures into the export's.
template <typename Work> auto reportingMediaFailures(Work&& work) {
    try {
        return work();
    } catch (const MediaError& e) {
        throw ExportError(ExportError::Kind::writerFailed, e.what());
    }
}

} // namespace marlowick
