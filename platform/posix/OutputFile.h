#pragma once

#include <cstdint>
#include <string>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// A file that is written whole or not at all. What is written goes to a temporary file in the
/// target's folder, which takes the target's place on Commit; until then a target that exists is
/// left as it is, so it may be read meanwhile. A killed program leaves its temporary file behind;
/// the next OutputFile in that folder removes it. A device, a pipe and standard output ("-") have
/// no such place: they are written directly, or, where they cannot be sought, on Commit. Failures
/// are RuntimeFailure(File). One thread.
class OutputFile {
  public:
    /// Fails at once for a target that cannot be written. A named pipe waits for its reader, and
    /// says so on standard error.
    explicit OutputFile(const std::string& Path);
    /// Without Commit the temporary file is removed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// For writing, reading back and seeking; owned here.
    int Fd() const { return Direct_ ? Target_.Get() : Scratch_.Get(); }

    /// As it is called in texts.
    const std::string& Name() const { return Name_; }

    /// At most once. While a stream is copied to, SIGINT, SIGTERM and SIGHUP end the program even
    /// where they are blocked: its reader may take nothing for ever. What failed is in the failure,
    /// and the target is then as it was (a pipe may have got a part).
    void Commit();

  private:
    void UseStream(Descriptor Stream);
    void UseTemporary(const std::string& FinalPath, bool KeepMode, unsigned Mode);
    void CopyToTarget();

    std::string Name_;
    Descriptor Target_;   // a stream; none when a temporary file takes the target's place
    Descriptor Scratch_;  // the temporary file; none when the target is written directly
    bool Direct_ = false;
    std::string Temporary_;  // its path while it has one
    std::string Final_;      // the path that it takes
};

}  // namespace Tolvar
