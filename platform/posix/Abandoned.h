#pragma once

#include <string>
#include <string_view>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// What programs make for a while (a temporary file or folder) is locked by them as long as they
/// live, so that what a killed one left behind can be told from what is in use.

/// Locks what was just made and opened. False when it is gone already: another program saw it
/// before it was locked, and swept it away. A file system that knows no locks is no failure.
bool KeepFromSweeping(const Descriptor& Made);

/// Removes the files or, with O_DIRECTORY in Flags, the folders in Folder ("" = the current one)
/// whose names begin and end so, which are this user's and nobody holds. What cannot be removed
/// stays for the next sweep.
void SweepAbandoned(const std::string& Folder, std::string_view Prefix, std::string_view Suffix,
                    int Flags) noexcept;

}  // namespace Tolvar
