#pragma once

#include <string>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// What programs make for a while (a temporary file or folder) is locked by them as long as they
/// live, so that what a killed one left behind can be told from what is in use.

/// Locks what was just made and opened. False when it is gone already: another program saw it
/// before it was locked, and swept it away. A file system that knows no locks is no failure.
bool KeepFromSweeping(const Descriptor& Made);

/// Path, opened with Flags and locked, when it is this user's and nobody holds it; else nothing.
/// It may be removed as long as the answer lives.
Descriptor LockAbandoned(const std::string& Path, int Flags);

}  // namespace Tolvar
