#include "card/devices/ServiceLoader.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
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
