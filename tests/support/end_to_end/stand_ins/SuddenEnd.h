#pragma once

#include "support/end_to_end/stand_ins/SharedRecord.h"

namespace Testing
{
// Ends this process at that moment, in the middle of the call that makes it come: nothing runs afterwards, as when
// somebody else ends the process just then. `moment` stays as long as the process.
void EndAt(SharedMoment& moment) noexcept;
} // namespace Testing
