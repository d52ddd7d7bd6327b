#pragma once

#include "model/MarlowickDocument.h"
#include "model/Recording.h"

#include <string>

namespace marlowick {

// The document a finished take becomes: a new project on the fresh-recording canvas, its camera in the
// dynamic style with the beats the director places from the take's events, the default cursor, sound and
// captions; the source is the recording without its events, which go to the document's telemetry.
MarlowickDocument documentForNewRecording(const Recording& recording, const std::string& name);

} // namespace marlowick
