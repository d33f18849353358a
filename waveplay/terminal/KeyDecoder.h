#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tolvar {

/// One key of the terminal: a character, or one of the keys that have none.
struct Key {
    enum class Name { Character, Left, Right, Up, Down, Home, End, Backspace, Escape };
    Name Is = Name::Character;
    char32_t Character = 0;  ///< for Name::Character; controls such as Ctrl-L are characters too

    bool operator==(const Key&) const = default;
};

/// Turns the bytes that a terminal sends into keys, however they are cut: escape sequences of the
/// usual terminals (with or without modifiers, which are ignored) and UTF-8. What it does not know
/// gives no key. Never reads or waits itself, as the decoder of curses does: the apartment has the
/// clock.
class KeyDecoder {
  public:
    /// The keys that are complete with Bytes; the beginning of another is kept.
    std::vector<Key> Feed(std::string_view Bytes);

    /// True while an escape character waits for what may follow it. When nothing has followed for
    /// a while, Flush.
    bool Waiting() const { return !Held_.empty() && Held_.front() == '\x1b'; }

    /// Nothing follows: an escape character alone was the key Escape.
    std::vector<Key> Flush();

  private:
    std::string Held_;  // the beginning of a key
};

}  // namespace Tolvar
