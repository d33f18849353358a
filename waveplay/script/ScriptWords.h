#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Tolvar {

/// What is wrong with a line of a script.
class ScriptMistake : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The words of one line: parted by blanks, "…" groups (\" and \\ inside), # outside of quotation
/// marks starts a comment. ScriptMistake for a quotation that does not end or a zero byte.
std::vector<std::string> SplitWords(std::string_view Line);

/// The arguments of one command, taken from left to right. Everything throws ScriptMistake and
/// names the argument when the next word is missing or none of what is asked for.
class ScriptArguments {
  public:
    explicit ScriptArguments(std::vector<std::string> Words) : All_(std::move(Words)) {}

    bool More() const { return Next_ < All_.size(); }
    const std::string& Text(const char* Name);
    std::int32_t Int32(const char* Name);
    std::int64_t Milliseconds(const char* Name);  ///< 0 .. 10 years
    float Decimal(const char* Name);              ///< finite
    bool Truth(const char* Name);                 ///< 0, 1 or -1
    bool IsRight(const char* Name);               ///< L or R
    /// Nothing may be left.
    void End() const;

  private:
    std::vector<std::string> All_;
    std::size_t Next_ = 0;
};

}  // namespace Tolvar
