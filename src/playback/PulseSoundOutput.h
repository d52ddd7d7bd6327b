#pragma once

#include "playback/SoundMixer.h"
#include "playback/SoundOutput.h"

#include <memory>
#include <string>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_stream;
struct pa_operation;

namespace marlowick {

// The sound played through PulseAudio (PipeWire serves the same protocol), its clock the sound card's: the
// server's timing of a playback stream says how much of it has been heard. The position is the time last
// sought to plus what has been heard since the first sample written after that seek. The stream pulls its
// sound from the mixer on the PulseAudio loop's thread; a seek empties the stream (flush), a pause stops it
// (cork).
//
// The mixer is touched only with the loop's lock held: by the loop's thread when the stream asks for
// sound, by `seek` otherwise. `m_base`, `m_anchor`, `m_corked`, `m_latest`, `m_seeking` and `m_playing` are
// guarded by the same lock.
class PulseSoundOutput : public SoundOutput {
public:
    // None when the server can't be reached or refuses the stream. `server` as $PULSE_SERVER takes it;
    // empty: the default one.
    static std::unique_ptr<PulseSoundOutput> open(const std::string& server,
                                                  std::unique_ptr<SoundMixer> mixer);
    ~PulseSoundOutput() override;
    PulseSoundOutput(const PulseSoundOutput&) = delete;
    PulseSoundOutput& operator=(const PulseSoundOutput&) = delete;

    void seek(double time) override;
    void play() override;
    void pause() override;
    double position() const override;

private:
    explicit PulseSoundOutput(std::unique_ptr<SoundMixer> mixer);
    bool connect(const std::string& server);
    // These with the loop's lock held.
    double positionLocked() const;
    void seekLocked(double time);
    void cork(bool corked);
    void write(std::size_t bytes);
    // Holds the loop's lock until the operation is done; takes the operation.
    void await(pa_operation* operation);

    std::unique_ptr<SoundMixer> m_mixer;
    pa_threaded_mainloop* m_loop = nullptr;
    pa_context* m_context = nullptr;
    pa_stream* m_stream = nullptr;
    double m_base = 0;   // the item time of the first sample written after the latest seek
    double m_anchor = 0; // the stream's position, in seconds, at which that sample is heard
    bool m_corked = true;
    mutable double m_latest = 0; // the position last reported; held while corked, never back while playing
    bool m_seeking = false;      // while a seek waits for the server: nothing is written
    bool m_playing = false;
};

} // namespace marlowick
