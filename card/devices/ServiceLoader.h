#pragma once

#include <map>
#include <string>

#include "card/devices/ServiceHost.h"
#include "platform/ServiceLibrary.h"

namespace Tolvar {

/// The audio service library, loaded from the file that the environment variable
/// TOLVAR_SERVICE_LIBRARY names or, without it, from libSondervalService2.so beside the program.
class DlServiceLibrary : public ServiceLibrary {
  public:
    /// Both stay the caller's and outlive this.
    DlServiceLibrary(SoundCard& Card, Log& Journal) : Host_{Card, Journal, nullptr} {}
    /// Releases what the library still holds for this card, and then the library.
    ~DlServiceLibrary() override;
    DlServiceLibrary(const DlServiceLibrary&) = delete;
    DlServiceLibrary& operator=(const DlServiceLibrary&) = delete;

    void* Entry(const char* Name) override;

  private:
    void Load();
    void Unload();

    ServiceHost Host_;
    std::string Path_;
    void* Loaded_ = nullptr;  // dlopen's; null: not loaded
    bool LacksEntry_ = false;
    std::map<std::string, void*> Entries_;  // found so far
};

}  // namespace Tolvar
