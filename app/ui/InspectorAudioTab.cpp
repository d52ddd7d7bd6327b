#include "ui/InspectorAudioTab.h"

#include "session/EditorSession.h"
#include "ui/InspectorCaptionSection.h"
#include "ui/InspectorSlider.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace marlowick {

InspectorAudioTab::InspectorAudioTab(EditorSession& session, QWidget* parent)
    : InspectorPage(session, parent) {
    buildSources();
    buildVoice();
    buildClicks();
    buildMusic();
    buildSilence();
    new InspectorCaptionSection(*this, session);
    finishSections();
    buildFoot();
    connect(&session, &EditorSession::documentChanged, this, &InspectorPage::refresh);
    connect(&session, &EditorSession::audioTrackCountChanged, this, &InspectorPage::refresh);
    connect(&session, &EditorSession::isAnalysingSilenceChanged, this, &InspectorPage::refresh);
    connect(&session, &EditorSession::isTranscribingChanged, this, &InspectorPage::refresh);
    connect(&session, &EditorSession::isRenderingAudioPreviewChanged, this, &InspectorPage::refresh);
    connect(&session, &EditorSession::captionLocaleChanged, this, &InspectorPage::refresh);
    refresh();
}

InspectorSlider* InspectorAudioTab::addMixSlider(QBoxLayout* rows, const QString& label, double low,
                                                 double high, double AudioSettings::*field) {
    return addSlider(
        rows, label, low, high, [field](const Project& p) { return p.audio.*field; },
        [field](Project& p, double v) {
            AudioSettings audio = p.audio;
            audio.*field = v;
            p.audio = audio;
        });
}

QCheckBox* InspectorAudioTab::addMixToggle(QBoxLayout* rows, const QString& label, bool AudioSettings::*field,
                                           const QString& help) {
    return addToggle(
        rows, label, [field](const Project& p) { return p.audio.*field; },
        [field](Project& p, bool on) {
            AudioSettings audio = p.audio;
            audio.*field = on;
            p.audio = audio;
        },
        help);
}

InspectorSlider* InspectorAudioTab::addMusicSlider(QBoxLayout* rows, const QString& label, double low,
                                                   double high, double MusicBed::*field) {
    auto* slider = new InspectorSlider(label, low, high, rows->parentWidget());
    rows->addWidget(slider);
    const QString gesture = QString("slider@%1").arg(reinterpret_cast<quintptr>(slider));
    connect(slider, &InspectorSlider::moved, this, [this, field, label, gesture](double value) {
        edit(
            label,
            [&](Project& project) {
                if (project.audio.music) {
                    (*project.audio.music).*field = value;
                }
            },
            gesture);
    });
    follow([this, slider, field] {
        const auto& document = m_session.document();
        if (document && document->project.audio.music) {
            slider->setValue(*document->project.audio.music.*field);
        }
    });
    return slider;
}

InspectorSlider* InspectorAudioTab::addSilenceSlider(QBoxLayout* rows, const QString& label, double low,
                                                     double high, double SilenceTrim::*field) {
    auto* slider = new InspectorSlider(label, low, high, rows->parentWidget());
    rows->addWidget(slider);
    connect(slider, &InspectorSlider::moved, this, [this, field](double value) {
        const auto& document = m_session.document();
        if (filling() || !document) {
            return;
        }
        SilenceTrim trim = document->project.audio.silence;
        trim.*field = value;
        m_session.setSilence(trim);
    });
    follow([this, slider, field] {
        if (const auto& document = m_session.document()) {
            slider->setValue(document->project.audio.silence.*field);
        }
    });
    return slider;
}

void InspectorAudioTab::buildSources() {
    QVBoxLayout* rows = addSection(tr("Sources"));
    QWidget* warningLine = nullptr;
    QLabel* warning =
        addIconText(rows, {"microphone-sensitivity-muted", "audio-input-microphone-muted"}, &warningLine);
    QLabel* tracks = addText(rows, {}, true);
    follow([this, warning, warningLine, tracks] {
        const auto text = m_session.audioWarning();
        warningLine->setVisible(text.has_value());
        if (text) {
            warning->setText(QString::fromStdString(*text));
        }
        tracks->setText(QString::fromStdString(m_session.audioTrackSummary()));
    });
}

void InspectorAudioTab::buildVoice() {
    QVBoxLayout* rows = addSection(tr("Voice"));
    addMixToggle(rows, tr("Enhance"), &AudioSettings::enhanceVoice,
                 tr("High-pass, de-noise, presence lift and levelling on the microphone"));
    QWidget* chain = nullptr;
    QVBoxLayout* chainRows = addGroup(rows, &chain);
    addMixSlider(chainRows, tr("Noise"), 0, 1, &AudioSettings::noiseReduction);
    addMixSlider(chainRows, tr("Presence"), 0, 1, &AudioSettings::presence);
    addMixSlider(chainRows, tr("Levelling"), 0, 1, &AudioSettings::compression);
    addMixSlider(rows, tr("Voice level"), 0, 2, &AudioSettings::voiceGain);
    addMixSlider(rows, tr("System level"), 0, 2, &AudioSettings::systemGain);
    addMixSlider(rows, tr("Duck system"), 0, 1, &AudioSettings::ducking);
    addText(rows, tr("How far system audio drops while you are speaking."), true);
    addMixToggle(rows, tr("Normalise"), &AudioSettings::normalize);
    follow([this, chain] {
        const auto& document = m_session.document();
        chain->setVisible(document && document->project.audio.enhanceVoice);
    });
}

void InspectorAudioTab::buildClicks() {
    QVBoxLayout* rows = addSection(tr("Clicks"));
    addMixToggle(rows, tr("Click sounds"), &AudioSettings::clickSounds);
    QLabel* note = addText(rows, {}, true);
    QWidget* level = addMixSlider(rows, tr("Tick level"), 0, 1, &AudioSettings::clickGain);
    follow([this, note, level] {
        const int clicks = m_session.clickCount();
        note->setText(clicks == 0 ? tr("No click telemetry in this recording")
                                  : format("A soft tick at each of your %lld real clicks",
                                           static_cast<long long>(clicks)));
        const auto& document = m_session.document();
        level->setVisible(document && document->project.audio.clickSounds);
    });
}

void InspectorAudioTab::buildMusic() {
    QVBoxLayout* rows = addSection(tr("Music"));
    QWidget* withBed = nullptr;
    QVBoxLayout* bedRows = addGroup(rows, &withBed);
    QLabel* track = addValue(bedRows, tr("Track"));
    addMusicSlider(bedRows, tr("Level"), 0, 1, &MusicBed::gain);
    addMusicSlider(bedRows, tr("Duck under voice"), 0, 1, &MusicBed::duckUnderVoice);
    addMusicSlider(bedRows, tr("Fade in"), 0, 5, &MusicBed::fadeIn);
    addMusicSlider(bedRows, tr("Fade out"), 0, 8, &MusicBed::fadeOut);
    auto* loops = new QCheckBox(tr("Loop to fill"), withBed);
    bedRows->addWidget(loops);
    connect(loops, &QCheckBox::toggled, this, [this](bool on) {
        const auto& document = m_session.document();
        if (filling() || !document || !document->project.audio.music) {
            return;
        }
        MusicBed bed = *document->project.audio.music;
        bed.loops = on;
        m_session.setMusic(bed);
    });
    QPushButton* remove = addButton(bedRows, tr("Remove Music"), {}, true);
    connect(remove, &QPushButton::clicked, this, [this] { m_session.setMusic(std::nullopt); });

    QWidget* withoutBed = nullptr;
    QVBoxLayout* emptyRows = addGroup(rows, &withoutBed);
    QPushButton* add = addButton(emptyRows, tr("Add Music…"));
    connect(add, &QPushButton::clicked, &m_session, &EditorSession::chooseMusic);
    addText(emptyRows,
            tr("Bring your own track. Marlowick ships no music — that would mean holding a licence for it. "
               "Free-to-use sources include the YouTube Audio Library, Pixabay Music, Free Music Archive and "
               "ccMixter; check each track's own licence."),
            true);

    follow([this, withBed, withoutBed, track, loops] {
        const auto& document = m_session.document();
        const bool hasBed = document && document->project.audio.music;
        withBed->setVisible(hasBed);
        withoutBed->setVisible(!hasBed);
        if (hasBed) {
            const MusicBed& bed = *document->project.audio.music;
            track->setText(QString::fromStdString(bed.name));
            const QSignalBlocker quiet(loops);
            loops->setChecked(bed.loops);
        }
    });
}

void InspectorAudioTab::buildSilence() {
    QVBoxLayout* rows = addSection(tr("Trim silence"));
    auto* enabled = new QCheckBox(tr("Remove dead air"), rows->parentWidget());
    enabled->setToolTip(tr("Cuts long pauses, and moves zoom beats and captions with them"));
    rows->addWidget(enabled);
    connect(enabled, &QCheckBox::toggled, this, [this](bool on) {
        const auto& document = m_session.document();
        if (filling() || !document) {
            return;
        }
        SilenceTrim trim = document->project.audio.silence;
        trim.isEnabled = on;
        m_session.setSilence(trim);
    });
    QWidget* settings = nullptr;
    QVBoxLayout* settingRows = addGroup(rows, &settings);
    addSilenceSlider(settingRows, tr("Sensitivity"), 0.02, 0.3, &SilenceTrim::threshold);
    addSilenceSlider(settingRows, tr("Shortest gap"), 0.3, 3.0, &SilenceTrim::minimumSilence);
    QLabel* gaps = addText(settingRows, {}, true);
    QPushButton* analyse = addButton(settingRows, tr("Re-analyse"));
    connect(analyse, &QPushButton::clicked, &m_session, &EditorSession::analyseSilence);
    QWidget* analysing = addProgress(settingRows, tr("Analysing audio…"));
    QWidget* summaryLine = nullptr;
    QLabel* summaryText = addIconText(settingRows, {"edit-cut"}, &summaryLine);

    follow([this, enabled, settings, gaps, analyse, analysing, summaryLine, summaryText] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const SilenceTrim& trim = document->project.audio.silence;
        {
            const QSignalBlocker quiet(enabled);
            enabled->setChecked(trim.isEnabled);
        }
        settings->setVisible(trim.isEnabled);
        gaps->setText(format("Gaps under %.1fs are left alone.", trim.minimumSilence));
        const bool busy = m_session.isAnalysingSilence();
        analyse->setVisible(!busy);
        analysing->setVisible(busy);
        const auto summaryValue = m_session.trimSummary();
        summaryLine->setVisible(summaryValue.has_value());
        if (summaryValue) {
            summaryText->setText(QString::fromStdString(*summaryValue));
        }
    });
}

void InspectorAudioTab::buildFoot() {
    QVBoxLayout* foot = pageColumn();
    QWidget* rendering = addProgress(foot, tr("Rendering preview mix…"));
    QWidget* noteLine = nullptr;
    QLabel* note = addIconText(foot, {"audio-x-generic"}, &noteLine);
    note->setText(tr("Playback plays the processed mix, so what you hear is the export."));
    follow([this, rendering, noteLine] {
        const bool busy = m_session.isRenderingAudioPreview();
        rendering->setVisible(busy);
        noteLine->setVisible(!busy);
    });
}

} // namespace marlowick
