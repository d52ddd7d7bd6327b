#pragma once

#include "model/Uuid.h"

#include <algorithm>

namespace marlowick {

// A half-open range of seconds, `lower..<upper`.
struct Range {
    double lower = 0;
    double upper = 0;

    double length() const { return upper - lower; }
    bool contains(double t) const { return lower <= t && t < upper; }

    friend bool operator==(const Range&, const Range&) = default;
};

// A cut made by hand: a stretch of source seconds, with an identity across edits.
// Both constructors order the ends; a read from a file stores them as the file says.
struct Span {
    Uuid id;
    double start = 0;
    double end = 0;

    Span() = default;
    Span(Uuid id_, double a, double b)
        : id(id_)
        , start(std::min(a, b))
        , end(std::max(a, b)) {}
    // A fresh identity for the given range.
    explicit Span(Range range)
        : Span(Uuid::random(), range.lower, range.upper) {}

    double duration() const { return end - start; }
    Range range() const { return {start, end}; }

    friend bool operator==(const Span&, const Span&) = default;
};

} // namespace marlowick
