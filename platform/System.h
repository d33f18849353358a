#pragma once

#include <functional>
#include <memory>

namespace Tolvar {

class Apartment;
class DirectX7;
class Files;
class Log;
class MessageBox;
class ServiceLibrary;
class WaveOut;

/// What the operating system gives to one server: handed by reference to everything that the
/// server makes. Whoever makes it owns the parts and keeps them until the server is gone.
struct System {
    Apartment& Home;
    Files& FileLayer;
    MessageBox& Box;
    Log& Journal;
    WaveOut& Wave;
    ServiceLibrary& AudioService;
    /// The DirectX 7 root object; RuntimeFailure(Device) where there is none. Never null.
    std::function<std::unique_ptr<DirectX7>()> MakeDirectX7;
};

}  // namespace Tolvar
