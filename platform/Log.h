#pragma once

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

}  // namespace Tolvar
