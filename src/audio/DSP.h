#pragma once

// The sample-level toolbox of the sound: one mono channel of 32-bit floats in memory, nominally −1 to 1.
// Arithmetic inside the per-sample loops is in doubles, narrowed only when a sample is stored. Lengths
// and coefficients come from the sample rate passed in. Pure computation, on any thread.

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

namespace marlowick {

// A second-order filter in transposed direct form II, coefficients already divided by a0.
struct Biquad {
    double b0 = 1;
    double b1 = 0;
    double b2 = 0;
    double a1 = 0;
    double a2 = 0;

    static Biquad highPass(double frequency, double q, double sampleRate);
    static Biquad peaking(double frequency, double q, double gainDB, double sampleRate);

    double process(double x) {
        const double y = b0 * x + m_z1;
        m_z1 = b1 * x - a1 * y + m_z2;
        m_z2 = b2 * x - a2 * y;
        return y;
    }
    // Filters every sample in place; the state carries on into the next call.
    void process(std::span<float> samples);
    void reset() { m_z1 = m_z2 = 0; }

private:
    double m_z1 = 0;
    double m_z2 = 0;
};

// A peak level that rises with the attack time and falls with the release time.
class EnvelopeFollower {
public:
    EnvelopeFollower(double attackSeconds, double releaseSeconds, double sampleRate);

    double process(float x) {
        const double r = x < 0 ? -static_cast<double>(x) : static_cast<double>(x);
        // Attack while the input rises above the level, release otherwise (equal levels release). Both
        // steps are worked out and one kept: real sound makes a branch impossible to predict, and the
        // choice then waits on nothing but the comparison.
        const double d = m_value - r;
        const double attacked = m_attack * d + r;
        const double released = m_release * d + r;
        m_value = m_value < r ? attacked : released;
        return m_value;
    }
    double current() const { return m_value; }

private:
    double m_attack;
    double m_release;
    double m_value = 0;
};

// The downward expander of `DSP::denoise`, one sample at a time, for a noise floor already measured.
class Expander {
public:
    Expander(double floor, double amount, double sampleRate);
    float process(float s) {
        const double e = m_follower.process(s);
        const double t = std::min(std::max((e - m_floor) / m_span, 0.0), 1.0);
        return static_cast<float>(static_cast<double>(s) * (m_minimum + (1 - m_minimum) * t));
    }

private:
    EnvelopeFollower m_follower;
    double m_floor;
    double m_minimum;
    double m_span;
};

// The compressor of `DSP::compress`, one sample at a time.
class Compressor {
public:
    Compressor(double amount, double sampleRate);
    float process(float s);

private:
    EnvelopeFollower m_follower;
    double m_makeup;
    double m_threshold; // dB
    double m_ratio;
    double m_below; // linear level clearly below the threshold
};

// Amounts run from 0 to 1: above 1 counts as 1, and 0 or less leaves the sound as it is.
namespace DSP {

// The RMS of the quietest `percentile` of whole `window`-second frames; 0 for a buffer of at most one frame.
double noiseFloor(std::span<const float> samples, double sampleRate, double window, double percentile);

// A downward expander over the noise floor: closed (down to 5% at amount 1) at the floor, open at 2.5
// times it.
void denoise(std::span<float> samples, double amount, double sampleRate);

// A hard-knee peak compressor: threshold −12 to −24 dB, ratio up to 6:1, makeup up to 6 dB.
void compress(std::span<float> samples, double amount, double sampleRate);

// The element at truncate(fraction × (count − 1)) of the sorted values; 0 for none.
double percentile(std::vector<double> values, double fraction);

// How far to turn other sound down while the voice speaks: one gain per voice sample, 1 at rest, down to
// 0.15 at amount 1 once the voice is well above its own noise.
std::vector<float> duckingGains(std::span<const float> voice, double amount, double sampleRate);

// `sampleCount` samples of silence with a short 2.2 kHz click added at each time (seconds).
std::vector<float> clickTrack(std::span<const double> times, std::size_t sampleCount, double sampleRate,
                              double gain);

// Scales the buffer so that its largest sample reaches `peak`, by at most `maximumGain`; near-silence
// (peak 0.0005 or less) is left alone. Doesn't clip.
void normalize(std::span<float> samples, float peak, float maximumGain);

} // namespace DSP

} // namespace marlowick
