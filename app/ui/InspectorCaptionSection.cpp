#include "ui/InspectorCaptionSection.h"

#include "session/EditorSession.h"
#include "ui/CaptionCueList.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace marlowick {

InspectorCaptionSection::InspectorCaptionSection(InspectorPage& page, EditorSession& session)
    : QObject(&page)
    , m_page(page)
    , m_session(session) {
    QVBoxLayout* rows = m_page.addSection(tr("Captions"));

    // Without a track: the transcription's progress, or what it needs and the button that starts it.
    QWidget* transcribing = m_page.addProgress(rows, tr("Transcribing on device…"));
    QWidget* start = nullptr;
    QVBoxLayout* startRows = m_page.addGroup(rows, &start);
    QWidget* noLanguageLine = nullptr;
    QLabel* noLanguage = m_page.addIconText(startRows, {"dialog-warning"}, &noLanguageLine);
    noLanguage->setText(
        tr("No on-device speech language is installed. Install its speech models (for English, "
           "the pocketsphinx-en-us package), or put them in ~/.local/share/marlowick/speech."));
    QComboBox* language = m_page.addPicker(
        startRows, tr("Language"), tr("Only languages installed for on-device recognition are listed"));
    for (const Locale& locale : m_session.captionLocales()) {
        language->addItem(QString::fromStdString(locale.displayName()),
                          QString::fromStdString(locale.identifier()));
    }
    language->parentWidget()->setVisible(!m_session.captionLocales().empty());
    noLanguageLine->setVisible(m_session.captionLocales().empty());
    connect(language, &QComboBox::activated, this, [this, language] {
        if (!m_page.filling()) {
            m_session.setCaptionLocale(Locale(language->currentData().toString().toStdString()));
        }
    });
    QPushButton* generate = m_page.addButton(startRows, tr("Generate Captions"));
    connect(generate, &QPushButton::clicked, &m_session, &EditorSession::generateCaptions);

    // With a track: its switches, place and size.
    QWidget* withTrack = nullptr;
    QVBoxLayout* trackRows = m_page.addGroup(rows, &withTrack);
    m_page.addToggle(
        trackRows, tr("Show captions"), [](const Project& p) { return p.captions && p.captions->isEnabled; },
        [](Project& p, bool on) {
            if (p.captions) {
                p.captions->isEnabled = on;
            }
        });
    m_page.addToggle(
        trackRows, tr("Highlight each word"),
        [](const Project& p) { return p.captions && p.captions->style.highlightPerWord; },
        [](Project& p, bool on) {
            if (p.captions) {
                p.captions->style.highlightPerWord = on;
            }
        });
    QComboBox* position = m_page.addPicker(trackRows, tr("Position"));
    for (const auto& [value, name] : EnumNames<CaptionStyle::Position>::names) {
        position->addItem(QString::fromStdString(displayName(value)), static_cast<int>(value));
    }
    connect(position, &QComboBox::activated, this, [this, position] {
        const auto value = static_cast<CaptionStyle::Position>(position->currentData().toInt());
        m_page.edit(tr("Caption Position"), [value](Project& p) {
            if (p.captions) {
                p.captions->style.position = value;
            }
        });
    });
    m_page.addSlider(
        trackRows, tr("Size"), 0.03, 0.1,
        [](const Project& p) { return p.captions ? p.captions->style.fontScale : 0.055; },
        [](Project& p, double v) {
            if (p.captions) {
                p.captions->style.fontScale = v;
            }
        });
    QLabel* lines = m_page.addText(trackRows, {}, true);
    // The cues themselves, to correct what the recogniser misheard.
    trackRows->addWidget(new CaptionCueList(m_session, trackRows->parentWidget()));
    QPushButton* remove = m_page.addButton(trackRows, tr("Remove"), {}, true);
    connect(remove, &QPushButton::clicked, this,
            [this] { m_page.edit(tr("Remove Captions"), [](Project& p) { p.captions.reset(); }); });

    m_page.follow([this, transcribing, start, language, generate, withTrack, position, lines] {
        const auto& document = m_session.document();
        const bool hasTrack = document && document->project.captions;
        withTrack->setVisible(hasTrack);
        transcribing->setVisible(!hasTrack && m_session.isTranscribing());
        start->setVisible(!hasTrack && !m_session.isTranscribing());
        {
            const QSignalBlocker quiet(language);
            language->setCurrentIndex(
                language->findData(QString::fromStdString(m_session.captionLocale().identifier())));
        }
        const bool silent = m_session.audioTrackCount() == 0;
        generate->setEnabled(!silent);
        generate->setToolTip(silent ? tr("This recording has no audio track.")
                                    : tr("Transcribed on this computer. Nothing is uploaded."));
        if (hasTrack) {
            const CaptionTrack& track = *document->project.captions;
            const QSignalBlocker quiet(position);
            position->setCurrentIndex(position->findData(static_cast<int>(track.style.position)));
            lines->setText(format("%lld lines", static_cast<long long>(track.cues.size())));
        }
    });
}

} // namespace marlowick
