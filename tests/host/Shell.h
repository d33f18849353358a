#pragma once

#include <cstdio>
#include <string>

namespace Tolvar::Testing {

/// What a shell's command prints on standard output; Status as wait gives it.
inline std::string OutputOf(const std::string& Command, int* Status = nullptr) {
    std::string Output;
    FILE* const Pipe = popen(Command.c_str(), "r");
    for (int Byte; (Byte = std::fgetc(Pipe)) != EOF;)
        Output += static_cast<char>(Byte);
    const int Ended = pclose(Pipe);
    if (Status != nullptr) *Status = Ended;
    return Output;
}

}  // namespace Tolvar::Testing
