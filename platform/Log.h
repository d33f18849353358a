#pragma once

#include <string>
#include <string_view>

namespace Tolvar {

/// Where causes are written for the person who looks into a fault. Abstract because tests read it
/// and a server writes it to a file.
class Log {
  public:
    virtual ~Log() = default;

    /// One line, without its line break. Never throws. Apartment's thread only.
    virtual void Write(std::string_view Line) noexcept = 0;
};

/// What went wrong, and why: "What: Cause".
inline void LogCause(Log& Journal, std::string_view What, std::string_view Cause) noexcept try {
    Journal.Write(std::string(What) + ": " + std::string(Cause));
} catch (...) {
    Journal.Write(What);  // out of memory for the cause
}

}  // namespace Tolvar
