#pragma once

#include <cstdint>

#include "platform/WaveFormat.h"

namespace Tolvar {

using UINT = std::uint32_t;
using MMRESULT = std::uint32_t;
using HWAVEOUT = std::uint32_t;  ///< 0 names no device

inline constexpr UINT WAVE_MAPPER = 0xFFFFFFFFU;
inline constexpr UINT TIME_SAMPLES = 2;
inline constexpr UINT TIME_BYTES = 4;

inline constexpr MMRESULT MMSYSERR_NOERROR = 0;
inline constexpr MMRESULT MMSYSERR_BADDEVICEID = 2;
inline constexpr MMRESULT MMSYSERR_ALLOCATED = 4;
inline constexpr MMRESULT MMSYSERR_INVALHANDLE = 5;
inline constexpr MMRESULT MMSYSERR_NODRIVER = 6;
inline constexpr MMRESULT MMSYSERR_INVALFLAG = 10;
inline constexpr MMRESULT MMSYSERR_INVALPARAM = 11;
inline constexpr MMRESULT WAVERR_BADFORMAT = 32;
inline constexpr MMRESULT WAVERR_STILLPLAYING = 33;
inline constexpr MMRESULT WAVERR_UNPREPARED = 34;

inline constexpr DWORD WHDR_DONE = 0x01;
inline constexpr DWORD WHDR_PREPARED = 0x02;
inline constexpr DWORD WHDR_INQUEUE = 0x10;

struct WAVEHDR {
    const char* lpData = nullptr;
    DWORD dwBufferLength = 0;
    DWORD dwBytesRecorded = 0;
    DWORD dwUser = 0;
    DWORD dwFlags = 0;
    DWORD dwLoops = 0;
    WAVEHDR* lpNext = nullptr;
    DWORD reserved = 0;
};

struct MMTIME {
    UINT wType = 0;
    union {
        DWORD ms;
        DWORD sample;
        DWORD cb;
    };
};

/// The record sizes that a caller names. They are those of the 32-bit interface, in which a
/// pointer takes 4 bytes; a function that is given any other size answers MMSYSERR_INVALPARAM.
inline constexpr UINT WaveHdrBytes = 32;
inline constexpr UINT MmTimeBytes = 12;

/// The wave output functions of the multimedia library. Abstract so that tests can let the n-th
/// call fail. Apartment's thread only. Every function but the first answers an MMRESULT.
class WaveOut {
  public:
    virtual ~WaveOut() = default;

    virtual UINT waveOutGetNumDevs() = 0;

    /// Format: 16-bit PCM, one or two channels, 100 to 384000 Hz; anything else is
    /// WAVERR_BADFORMAT. Device is WAVE_MAPPER or 0. Callback, Instance and Flags must be 0.
    virtual MMRESULT waveOutOpen(HWAVEOUT* Handle, UINT Device, const WAVEFORMATEX* Format,
                                 std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) = 0;
    /// WAVERR_STILLPLAYING, and still open, while headers are queued.
    virtual MMRESULT waveOutClose(HWAVEOUT Handle) = 0;

    virtual MMRESULT waveOutPrepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) = 0;
    /// WAVERR_STILLPLAYING while the header is queued; one never prepared is no error.
    virtual MMRESULT waveOutUnprepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) = 0;

    /// Queues a prepared header. Header and samples stay the caller's, in place and unchanged,
    /// until WHDR_DONE is set in dwFlags (after which the device no longer reads them).
    virtual MMRESULT waveOutWrite(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) = 0;

    /// Frames (TIME_SAMPLES) or bytes (TIME_BYTES) heard since the device was opened or last
    /// reset; stops exactly at what was written. A wType it does not know becomes TIME_SAMPLES.
    virtual MMRESULT waveOutGetPosition(HWAVEOUT Handle, MMTIME* Time, UINT Bytes) = 0;

    virtual MMRESULT waveOutPause(HWAVEOUT Handle) = 0;
    virtual MMRESULT waveOutRestart(HWAVEOUT Handle) = 0;
    /// Stops at once, gives every queued header back (WHDR_DONE), ends a pause, counts from 0.
    virtual MMRESULT waveOutReset(HWAVEOUT Handle) = 0;
};

}  // namespace Tolvar
