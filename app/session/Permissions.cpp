#include "session/Permissions.h"

#include <stdexcept>

namespace marlowick {

namespace {

std::size_t indexOf(Permissions::Item item) {
    return static_cast<std::size_t>(item);
}

} // namespace

Permissions::Texts Permissions::texts(Item item) {
    switch (item) {
    case Item::screenRecording:
        return {tr("Screen Recording"), true, tr("Capture your screen. Nothing works without this."),
                tr("Recording cannot start.")};
    case Item::accessibility:
        return {tr("Accessibility"), false,
                tr("Read clicks and keystrokes, so zooms land on what you clicked."),
                tr("Zooms fall back to guessing from where the pointer rests, which is vaguer.")};
    case Item::microphone:
        return {tr("Microphone"), false, tr("Record your voice alongside the screen."),
                tr("Recordings will have no voice in them.")};
    case Item::speech:
        return {tr("Speech Recognition"), false, tr("Generate captions, transcribed on this computer."),
                tr("Captions cannot be generated.")};
    }
    return {};
}

Permissions::Permissions(PermissionProbes probes, QObject* parent)
    : QObject(parent)
    , m_probes(std::move(probes)) {
    if (!m_probes.screenRecording || !m_probes.accessibility || !m_probes.microphone || !m_probes.speech) {
        throw std::invalid_argument("Permissions needs all four probes");
    }
}

Permissions::~Permissions() = default;

void Permissions::refresh() {
    for (const Item item : items) {
        store(item, probe(item).read());
    }
}

const PermissionReading& Permissions::reading(Item item) const {
    return m_readings.at(indexOf(item));
}

void Permissions::request(Item item) {
    PermissionReading answer = probe(item).read();
    const bool refused = answer.state == State::denied;
    store(item, std::move(answer));
    if (refused) {
        probe(item).openSettings();
    }
    refresh();
}

bool Permissions::openSettings(Item item) {
    return probe(item).openSettings();
}

PermissionProbe& Permissions::probe(Item item) const {
    switch (item) {
    case Item::screenRecording:
        return *m_probes.screenRecording;
    case Item::accessibility:
        return *m_probes.accessibility;
    case Item::microphone:
        return *m_probes.microphone;
    case Item::speech:
        return *m_probes.speech;
    }
    throw std::invalid_argument("no such permission");
}

void Permissions::store(Item item, PermissionReading reading) {
    PermissionReading& current = m_readings.at(indexOf(item));
    if (current == reading) {
        return;
    }
    current = std::move(reading);
    emit changed(item);
}

} // namespace marlowick
