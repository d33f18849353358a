#pragma once

namespace Tolvar {

/// To be called once, before anything is opened: makes a program safe from how it was started.
/// Standard streams that are closed are opened so that using them is a failure, as it would have
/// been, and no file that is opened later is written to in their place. A reader that is gone
/// (SIGPIPE) and a file that may not grow (SIGXFSZ) are failed writes, not the program's end.
void GuardProcess();

}  // namespace Tolvar
