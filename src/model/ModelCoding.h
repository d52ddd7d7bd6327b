#pragma once

// The JSON coders of the project records. Include this, not the record headers alone, wherever a
// record is read or written, so that every translation unit sees the same coders.

#include "model/Coding.h"
#include "model/Project.h"

namespace marlowick {

#define MARLOWICK_DECLARE_CODER(Type)                                                                        \
    template <> struct Coder<Type> {                                                                         \
        static Json encode(const Type& value);                                                               \
        static Type decode(const JsonReader& reader);                                                        \
    }

MARLOWICK_DECLARE_CODER(Point);
MARLOWICK_DECLARE_CODER(Size);
MARLOWICK_DECLARE_CODER(Span);
MARLOWICK_DECLARE_CODER(InputEvent);
MARLOWICK_DECLARE_CODER(CursorStyle);
MARLOWICK_DECLARE_CODER(Recording);
MARLOWICK_DECLARE_CODER(TimeMap);
MARLOWICK_DECLARE_CODER(ZoomBeat);
MARLOWICK_DECLARE_CODER(CameraTrack);
MARLOWICK_DECLARE_CODER(Background);
MARLOWICK_DECLARE_CODER(Shadow);
MARLOWICK_DECLARE_CODER(Tilt);
MARLOWICK_DECLARE_CODER(Canvas);
MARLOWICK_DECLARE_CODER(DeviceFrame::Bezel);
MARLOWICK_DECLARE_CODER(DeviceFrame);
MARLOWICK_DECLARE_CODER(CaptionTrack::Word);
MARLOWICK_DECLARE_CODER(CaptionTrack::Cue);
MARLOWICK_DECLARE_CODER(CaptionStyle);
MARLOWICK_DECLARE_CODER(CaptionTrack);
MARLOWICK_DECLARE_CODER(SilenceTrim);
MARLOWICK_DECLARE_CODER(MusicBed);
MARLOWICK_DECLARE_CODER(AudioSettings);
MARLOWICK_DECLARE_CODER(Project);

// Coded as {"case": {}} rather than as a string.
template <> struct Coder<AspectRatio> {
    static Json encode(AspectRatio value);
    static AspectRatio decode(const JsonReader& reader);
};

#undef MARLOWICK_DECLARE_CODER

} // namespace marlowick
