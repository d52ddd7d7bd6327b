#pragma once

#include "ui/InspectorPage.h"

namespace marlowick {

// The Audio tab of the inspector, from top to bottom: Sources (what the take holds), Voice (the chain on
// the microphone and the two levels), Clicks, Music, Trim silence, Captions, and at the foot what the
// player is playing. Every setting of the mix rebuilds the preview mix after its edit; music and silence
// go through the session's own operations.
//
// Thread: the main thread only. The session is not owned and outlives the tab.
class InspectorAudioTab : public InspectorPage {
    Q_OBJECT
public:
    explicit InspectorAudioTab(EditorSession& session, QWidget* parent = nullptr);

private:
    void buildSources();
    void buildVoice();
    void buildClicks();
    void buildMusic();
    void buildSilence();
    void buildFoot();

    // A slider and a toggle bound to a field of the audio settings: after the edit the preview mix is
    // rendered again.
    InspectorSlider* addMixSlider(QBoxLayout* rows, const QString& label, double low, double high,
                                  double AudioSettings::*field);
    QCheckBox* addMixToggle(QBoxLayout* rows, const QString& label, bool AudioSettings::*field,
                            const QString& help = {});
    // A slider and a toggle over the music bed: each builds the new bed and hands it to the session.
    InspectorSlider* addMusicSlider(QBoxLayout* rows, const QString& label, double low, double high,
                                    double MusicBed::*field);
    // A slider over the silence settings: it builds them from the current ones and hands them over.
    InspectorSlider* addSilenceSlider(QBoxLayout* rows, const QString& label, double low, double high,
                                      double SilenceTrim::*field);
};

} // namespace marlowick
