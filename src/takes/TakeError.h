#pragma once

#include "model/TypedError.h"

namespace marlowick {

// A take that can't be made into a project as asked. The text is the movie's path for `noPicture`, and
// what broke the read for `recoveryCopyDamaged`.
enum class TakeErrorKind {
    noPicture,           // the movie holds no picture: the take ended before its first fragment was written
    recoveryCopyDamaged, // the recovery copy beside it doesn't read as a project; the movie may still
};
using TakeError = TypedError<TakeErrorKind>;

} // namespace marlowick
