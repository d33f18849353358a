#pragma once

namespace Tolvar::Testing {

/// While it is set, operator new fails. Of a test program that has Memory.cpp; one thread.
extern bool MemoryFails;

}  // namespace Tolvar::Testing
