#pragma once

#include "ui/InspectorPage.h"

#include <QObject>

namespace marlowick {

class EditorSession;

// The Captions section of the Audio tab. Without a caption track: the transcription's progress while it
// runs, else the languages installed for recognition (or a notice that there are none) and the button that
// transcribes. With a track, in place of all that: showing it, highlighting each word, its position and
// size, how many lines it has, its cues to correct one by one, and removing it.
//
// Thread: the main thread only. A child of the page it adds its section to; the session outlives it.
class InspectorCaptionSection : public QObject {
    Q_OBJECT
public:
    InspectorCaptionSection(InspectorPage& page, EditorSession& session);

private:
    InspectorPage& m_page;
    EditorSession& m_session;
};

} // namespace marlowick
