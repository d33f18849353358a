#pragma once

#include <string>

#include "platform/Log.h"
#include "platform/posix/Posix.h"

namespace Tolvar {

/// Text on one line: line breaks and other control characters are shown as \n, \r, \t and \xHH.
std::string OneLine(std::string_view Text);

/// A log in a text file, or on standard error. Several processes may write to one file: each line
/// is appended whole.
class TextLog : public Log {
  public:
    /// Path "" is standard error. A file that cannot be opened is said there once and replaced by
    /// it: a log is no reason not to start.
    explicit TextLog(const std::string& Path);

    /// In a file the line stands behind its time, UTC with milliseconds.
    void Write(std::string_view Line) noexcept override;

    bool IsStandardError() const { return !Out_; }

  private:
    Descriptor Out_;
};

/// One line on standard error. It never waits for a reader: a line for which there is no room now
/// is dropped, and the next one that finds room says how many were. Any thread.
void PrintError(std::string_view Line) noexcept;

}  // namespace Tolvar
