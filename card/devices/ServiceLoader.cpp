#include "card/devices/ServiceLoader.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

thread_local ServiceHost* CurrentHost = nullptr;

std::string LibraryPath() {
    const char* Named = std::getenv("TOLVAR_SERVICE_LIBRARY");
    // Absolute, because a bare name would be looked for among the system's libraries.
    if (Named != nullptr && *Named != '\0') return std::filesystem::absolute(Named).string();
    // Wherever the program is, the two libraries lie in one folder.
    static const char Here = 0;
    Dl_info Found{};
    std::error_code Ignored;
    std::filesystem::path Own;
    if (::dladdr(&Here, &Found) != 0) Own = std::filesystem::canonical(Found.dli_fname, Ignored);
    return (Own.parent_path() / "libSondervalService2.so").string();
}

RuntimeFailure LoaderFailure(const std::string& What) {
    const char* Cause = ::dlerror();
    return {FailureKind::Library, What + ": " + (Cause != nullptr ? Cause : "no cause given")};
}

}  // namespace

ServiceHost* ServiceHost::Current() {
    return CurrentHost;
}

void ServiceHost::MakeCurrent(ServiceHost* Host) {
    CurrentHost = Host;
}

DlServiceLibrary::~DlServiceLibrary() {
    if (ServiceHost::Current() == &Host_) ServiceHost::MakeCurrent(nullptr);
    Host_.Held.reset();
    Unload();
}

void* DlServiceLibrary::Entry(const char* Name) {
    // One that lacked an entry may be whole by now. Only here nothing of it is playing: the engine
    // gives its buffer up by this entry before it has another made.
    if (LacksEntry_ && !Host_.Held && std::string_view(Name) == "Service03") Unload();
    if (Loaded_ == nullptr) Load();
    void*& Found = Entries_[Name];
    if (Found == nullptr) Found = ::dlsym(Loaded_, Name);
    if (Found == nullptr) {
        LacksEntry_ = true;
        throw LoaderFailure("the audio service library " + Path_ + " has no " + Name);
    }
    ServiceHost::MakeCurrent(&Host_);
    return Found;
}

void DlServiceLibrary::Load() {
    Path_ = LibraryPath();
    Loaded_ = ::dlopen(Path_.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (Loaded_ == nullptr) throw LoaderFailure("cannot load the audio service library " + Path_);
}

void DlServiceLibrary::Unload() {
    if (Loaded_ != nullptr) ::dlclose(Loaded_);
    Loaded_ = nullptr;
    LacksEntry_ = false;
    Entries_.clear();
}

}  // namespace Tolvar
