#pragma once

#include <cstdint>

/// The entry points of the audio service library, which owns one streaming sound buffer of 16-bit
/// PCM per server and plays it round and round. Loaded at run time (ServiceLibrary.h), never
/// linked. Byte offsets and the cursor count from the buffer's start. Apartment's thread only;
/// nothing throws. Where a result is named, anything else is a refusal and changes nothing.
extern "C" {

/// Wraps: times the play cursor passed the buffer's end since the last start with Restart 1.
/// Cursor: bytes. Result 0: there is no position, and neither is written.
std::int32_t Service01(std::int32_t* Wraps, std::int32_t* Cursor);

/// Makes a buffer in place of any earlier one. Bits must be 16; Channels 1 or 2; Rate 100 to
/// 100000 Hz. Result 1: made.
std::int32_t Service02(std::int32_t Window, std::int32_t Channels, std::int32_t Rate,
                       std::int32_t Bits, std::int32_t Bytes);

/// Releases the buffer if there is one. Result 1.
std::int32_t Service03();

/// Plays at Frequency, 100 to 100000 Hz. Restart 1: from the start, wraps and crossings counted
/// anew; 0: from where Service05 left the cursor. Result 1: it plays.
std::int32_t Service04(std::int32_t Restart, std::int32_t Frequency);

/// Stops and leaves the cursor where it stood. Result 1.
std::int32_t Service05();

/// Copies Bytes bytes of samples to Offset, also while the buffer plays. Result 1: copied.
std::int32_t Service06(const std::int16_t* FirstSample, std::int32_t Bytes, std::int32_t Offset);

/// Shuts the library down; the next Service02 starts it again. Result 1.
std::int32_t Service07();

/// Stopped: 0 while the buffer plays. RefillSecond, RefillFirst: not 0 when the cursor has entered
/// the first or the second half since the last call (a start with Restart 1 enters the first);
/// each crossing is told once. Spare is 0. Result 1.
std::int32_t Service08(std::int32_t* Stopped, std::int32_t* RefillSecond, std::int32_t* RefillFirst,
                       std::int32_t* Spare);
}
