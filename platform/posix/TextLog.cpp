#include "platform/posix/TextLog.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <span>

namespace Tolvar {
namespace {

std::string UtcNow() {
    timespec Time{};
    tm Utc{};
    clock_gettime(CLOCK_REALTIME, &Time);
    gmtime_r(&Time.tv_sec, &Utc);
    std::array<char, 32> Date{};
    std::array<char, 40> Text{};
    std::strftime(Date.data(), Date.size(), "%Y-%m-%dT%H:%M:%S", &Utc);
    std::snprintf(Text.data(), Text.size(), "%s.%03dZ ", Date.data(),
                  static_cast<int>(Time.tv_nsec / 1'000'000));
    return Text.data();
}

void AppendVisible(std::string& Line, unsigned char Byte) {
    constexpr std::string_view Hex = "0123456789abcdef";
    switch (Byte) {
        case '\n':
            Line += "\\n";
            break;
        case '\r':
            Line += "\\r";
            break;
        case '\t':
            Line += "\\t";
            break;
        default:
            Line += "\\x";
            Line += Hex[Byte >> 4U];
            Line += Hex[Byte & 15U];
    }
}

// A pipe with room takes as much as PIPE_BUF whole, and longer lines in parts for which it waits.
bool Printed(std::string Line) noexcept {
    if (Line.size() >= PIPE_BUF) Line.resize(PIPE_BUF - 1);
    Line += '\n';
    pollfd Ready{STDERR_FILENO, POLLOUT, 0};
    return poll(&Ready, 1, 0) > 0 && write(STDERR_FILENO, Line.data(), Line.size()) >= 0;
}

std::atomic<int> LinesDropped = 0;

}  // namespace

std::string OneLine(std::string_view Text) {
    std::string Line;
    for (const char Each : Text) {
        const auto Byte = static_cast<unsigned char>(Each);
        if (Byte < 0x20 || Byte == 0x7f) {
            AppendVisible(Line, Byte);
        } else {
            Line += Each;
        }
    }
    return Line;
}

void PrintError(std::string_view Line) noexcept {
    try {
        const int Before = LinesDropped;
        if (Before > 0 && Printed("(" + std::to_string(Before) + " lines dropped here)")) {
            LinesDropped -= Before;
        }
        if (!Printed(OneLine(Line))) ++LinesDropped;
    } catch (...) {
        ++LinesDropped;
    }
}

TextLog::TextLog(const std::string& Path) {
    if (Path.empty()) return;
    Out_ = OpenDescriptor(Path, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK);
    if (!Out_) {
        PrintError(ErrnoFailure("cannot open the log " + Path, errno).what() +
                   std::string("; it goes to standard error"));
    }
}

void TextLog::Write(std::string_view Line) noexcept {
    if (IsStandardError()) return PrintError(Line);
    try {
        const std::string Whole = UtcNow() + OneLine(Line) + "\n";
        WriteWhole(Out_, std::as_bytes(std::span(Whole)), "the log");
    } catch (const std::exception& Lost) {
        PrintError(Line);
        PrintError(Lost.what());
    }
}

}  // namespace Tolvar
