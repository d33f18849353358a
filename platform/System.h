#pragma once

namespace Tolvar {

class Apartment;
class Files;
class Log;
class MessageBox;
class WaveOut;

/// What the operating system gives to one server: handed by reference to everything that the
/// server makes. Whoever makes it owns the parts and keeps them until the server is gone.
struct System {
    Apartment& Home;
    Files& FileLayer;
    MessageBox& Box;
    Log& Journal;
    WaveOut& Wave;
};

}  // namespace Tolvar
