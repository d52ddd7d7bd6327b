#include "compositor/Easing.h"

namespace marlowick {

double apply(Easing easing, double p) {
    p = p <= 0 ? 0 : (p > 1 ? 1 : p);
    switch (easing) {
    case Easing::linear:
        return p;
    case Easing::easeIn:
        return p * p * p;
    case Easing::easeOut: {
        const double q = 1 - p;
        return 1 - q * q * q;
    }
    case Easing::easeInOut: {
        if (p < 0.5) {
            return 4 * p * p * p;
        }
        const double q = 2 - 2 * p;
        return 1 - 0.5 * q * q * q;
    }
    case Easing::spring: {
        const double u = p - 1;
        return 1 + 2.70158 * u * u * u + 1.70158 * u * u;
    }
    }
    return p;
}

} // namespace marlowick
