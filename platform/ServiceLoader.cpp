#include "platform/ServiceLoader.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

thread_local ServiceHost* CurrentHost = nullptr;

std::string LibraryPath() {
    const char* Named = std::getenv("TOLVAR_SERVICE_LIBRARY");
    // Absolute, because a bare name would be looked for among the system's libraries.
    if (Named != nullptr && *Named != '\0') return std::filesystem::absolute(Named).string();
    const std::filesystem::path Program = std::filesystem::read_symlink("/proc/self/exe");
    return (Program.parent_path() / "libSondervalService2.so").string();
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
    if (ServiceHost::Current() == &Host) ServiceHost::MakeCurrent(nullptr);
    Host.Held.reset();
    Unload();
}

void* DlServiceLibrary::Entry(const char* Name) {
    if (Loaded == nullptr) Load();
    void* const Found = ::dlsym(Loaded, Name);
    if (Found == nullptr) {
        const RuntimeFailure Missing =
            LoaderFailure("the audio service library " + Path + " has no " + Name);
        if (!Host.Held) Unload();  // it may be a whole one when it is tried again
        throw Missing;
    }
    ServiceHost::MakeCurrent(&Host);
    return Found;
}

void DlServiceLibrary::Load() {
    Path = LibraryPath();
    Loaded = ::dlopen(Path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (Loaded == nullptr) throw LoaderFailure("cannot load the audio service library " + Path);
}

void DlServiceLibrary::Unload() {
    if (Loaded != nullptr) ::dlclose(Loaded);
    Loaded = nullptr;
}

}  // namespace Tolvar
