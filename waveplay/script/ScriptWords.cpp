#include "waveplay/script/ScriptWords.h"

#include <cmath>

#include "waveplay/files/ParseNumber.h"

namespace Tolvar {
namespace {

bool IsBlank(char Letter) {
    return Letter == ' ' || Letter == '\t' || Letter == '\r';
}

// From behind the opening quotation mark to behind the closing one.
std::size_t TakeQuoted(std::string_view Line, std::size_t At, std::string& Word) {
    for (; At < Line.size(); ++At) {
        if (Line[At] == '"') return At + 1;
        const bool Escapes = Line[At] == '\\' && At + 1 < Line.size() &&
                             (Line[At + 1] == '"' || Line[At + 1] == '\\');
        if (Escapes) ++At;
        Word += Line[At];
    }
    throw ScriptMistake("a quotation that does not end");
}

std::size_t TakeWord(std::string_view Line, std::size_t At, std::string& Word) {
    while (At < Line.size() && !IsBlank(Line[At]) && Line[At] != '#') {
        if (Line[At] == '"') {
            At = TakeQuoted(Line, At + 1, Word);
        } else {
            Word += Line[At++];
        }
    }
    return At;
}

[[noreturn]] void Wrong(const char* Name, const std::string& Word, const char* Wanted) {
    throw ScriptMistake(std::string(Name) + " \"" + Word + "\" is not " + Wanted);
}

template <typename Number>
Number Parse(const char* Name, const std::string& Word, const char* Wanted) {
    const auto Value = ParseNumber<Number>(Word);
    if (!Value) Wrong(Name, Word, Wanted);
    return *Value;
}

}  // namespace

std::vector<std::string> SplitWords(std::string_view Line) {
    if (Line.find('\0') != std::string_view::npos) throw ScriptMistake("a zero byte");
    std::vector<std::string> Words;
    std::size_t At = 0;
    while (At < Line.size() && Line[At] != '#') {
        if (IsBlank(Line[At])) {
            ++At;
            continue;
        }
        At = TakeWord(Line, At, Words.emplace_back());
    }
    return Words;
}

const std::string& ScriptArguments::Text(const char* Name) {
    if (!More()) throw ScriptMistake(std::string(Name) + " is missing");
    return All_[Next_++];
}

std::int32_t ScriptArguments::Int32(const char* Name) {
    return Parse<std::int32_t>(Name, Text(Name), "a 32-bit integer");
}

std::int64_t ScriptArguments::Milliseconds(const char* Name) {
    constexpr std::int64_t TenYears = 315'360'000'000;
    constexpr const char* Wanted = "a time in milliseconds";
    const std::string& Word = Text(Name);
    const auto Ms = Parse<std::int64_t>(Name, Word, Wanted);
    if (Ms < 0 || Ms > TenYears) Wrong(Name, Word, Wanted);
    return Ms;
}

float ScriptArguments::Decimal(const char* Name) {
    constexpr const char* Wanted = "a decimal number";
    const std::string& Word = Text(Name);
    const auto Value = Parse<float>(Name, Word, Wanted);
    if (!std::isfinite(Value)) Wrong(Name, Word, Wanted);
    return Value;
}

bool ScriptArguments::Truth(const char* Name) {
    const std::string& Word = Text(Name);
    if (Word == "0") return false;
    if (Word == "1" || Word == "-1") return true;
    Wrong(Name, Word, "0, 1 or -1");
}

bool ScriptArguments::IsRight(const char* Name) {
    const std::string& Word = Text(Name);
    if (Word == "L") return false;
    if (Word == "R") return true;
    Wrong(Name, Word, "L or R");
}

void ScriptArguments::End() const {
    if (More()) throw ScriptMistake("\"" + All_[Next_] + "\" is one argument too many");
}

}  // namespace Tolvar
