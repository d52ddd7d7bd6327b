#include "trajectory/NewRecording.h"

#include "trajectory/ZoomDirector.h"

namespace marlowick {

MarlowickDocument documentForNewRecording(const Recording& recording, const std::string& name) {
    Project project;
    project.id = Uuid::random();
    project.name = name;
    project.canvas = Canvas::freshRecording();
    ZoomDirector director;
    director.style = CameraTrack::Style::dynamic;
    project.camera.style = CameraTrack::Style::dynamic;
    project.camera.beats = director.beatsFor(recording);
    project.source = recording;
    project.source.inputEvents.clear();
    return MarlowickDocument(project, recording.inputEvents);
}

} // namespace marlowick
