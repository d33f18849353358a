#pragma once

#include <cstddef>
#include <cstdint>

namespace Tolvar::Wire {

// The names of the server on the wire. docs/hosting.md is their document.
inline constexpr const char* BusName = "org.tolvar.WaveEditor";
inline constexpr const char* PlayerPath = "/org/tolvar/WaveEditor/PlayDllClass";
inline constexpr const char* SinkPath = "/org/tolvar/WaveEditor/Sink";  ///< of PlayDllClient
inline constexpr const char* PlayerInterface = "org.tolvar.WaveEditor._PlayDllClass";
inline constexpr const char* EventInterface = "org.tolvar.WaveEditor.__PlayDllClass";
inline constexpr const char* HostingInterface = "org.tolvar.WaveEditor.Hosting";
inline constexpr const char* Properties = "org.freedesktop.DBus.Properties";
inline constexpr const char* Introspectable = "org.freedesktop.DBus.Introspectable";
inline constexpr const char* Peer = "org.freedesktop.DBus.Peer";

inline constexpr const char* Failed = "org.tolvar.WaveEditor.Error.Failed";
inline constexpr const char* Busy = "org.tolvar.WaveEditor.Error.Busy";
inline constexpr const char* AccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* InvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr const char* LimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char* ReadOnly = "org.freedesktop.DBus.Error.PropertyReadOnly";
inline constexpr const char* UnknownObject = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr const char* UnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
inline constexpr const char* UnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char* UnknownProperty = "org.freedesktop.DBus.Error.UnknownProperty";

inline constexpr std::size_t MostArrayBytes = 64U << 20U;
/// The system's limit on a message, less room for its header and its other arguments.
inline constexpr std::size_t MostListBytes = (128U << 20U) - (64U << 10U);

inline constexpr std::int64_t SinkLimitMs = 2000;  ///< how long a report waits for its answer

}  // namespace Tolvar::Wire
