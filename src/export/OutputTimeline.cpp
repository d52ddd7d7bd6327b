#include "export/OutputTimeline.h"

namespace marlowick {

OutputTimeline::OutputTimeline(const Project& source, const std::vector<InputEvent>& sourceTelemetry)
    : map(source.effectiveTrim()) {
    Project::Trimmed trimmed = source.applyingTrim(sourceTelemetry);
    project = std::move(trimmed.project);
    telemetry = std::move(trimmed.telemetry);
    if (!telemetry.empty()) {
        cursor.emplace(telemetry, project.source, project.cursor);
    }
}

double OutputTimeline::outputTime(double sourceTime) const {
    return map.isIdentity() ? sourceTime : map.outputTimeForSource(sourceTime);
}

double OutputTimeline::sourceTime(double outputTime) const {
    return map.sourceTimeForOutput(outputTime);
}

std::optional<CursorFrame> OutputTimeline::cursorAt(double outputTime) const {
    return cursor ? cursor->frameAt(outputTime) : std::nullopt;
}

} // namespace marlowick
