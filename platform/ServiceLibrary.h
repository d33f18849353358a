#pragma once

namespace Tolvar {

/// The run-time loader of the audio service library. Abstract so that tests can withhold the
/// library or an entry point. Apartment's thread only.
class ServiceLibrary {
  public:
    virtual ~ServiceLibrary() = default;

    /// The entry point of that name, as SondervalService2.h declares it; never null. The library
    /// is loaded by the first call. Every call also makes this server's sound card the one that
    /// the library works on until another server's Entry is called on this thread, so it is asked
    /// anew for each call into the library. RuntimeFailure(Library) names the file that is missing,
    /// which the next call looks for again, or lacks the entry point; such a library is loaded anew
    /// at the next hand-over (Service03), and never in the middle of a play.
    virtual void* Entry(const char* Name) = 0;
};

}  // namespace Tolvar
