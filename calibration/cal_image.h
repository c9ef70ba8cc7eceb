// The factory calibration image: read out of the sensor, cached in a file per
// sensor, checksummed, and decoded into a slot's calibration point table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv {

inline constexpr std::int32_t kCalImageBytes = 107470;
inline constexpr std::int32_t kCalPartOneBytes = 50000;   // region 2
inline constexpr std::int32_t kCalPartTwoBytes = 57470;   // region 6
inline constexpr std::int32_t kCalTestBytes = 1024;
inline constexpr std::int32_t kCalCacheBytes = kCalImageBytes + 4;

// Reads `length` (1..64000) bytes of region 2 or 6 from (posHi, posLo) in
// pieces of at most 64 bytes: the length; -1 other region; -2 bad length;
// -3 when a request fails or moves fewer bytes than asked (the read stops there).
std::int32_t ReadCalBlock(std::int64_t h, std::int32_t region, std::uint8_t* buffer,
                          std::int32_t length, std::uint8_t posHi, std::uint8_t posLo);
// The checksum the sensor stores: 1.
std::int32_t ReadCalChecksum(std::int64_t h, std::uint32_t* value);
// Stores a checksum in the sensor: 1; -4 no 252 echo; -5 no 253 echo.
std::int32_t WriteCalChecksum(std::int64_t h, std::uint32_t value);
// accumulator = accumulator * 2 + byte, modulo 2^32.
std::uint32_t CalChecksum(std::size_t length, const std::uint8_t* bytes);

// Path of the cache file of `serial` ("QV_CD_" + serial in upper case + ".dat"
// in the data directory); empty when the serial is empty or holds anything but
// ASCII letters and digits (it must never become part of another path).
std::string CalCachePath(const char* serial);
// 1 cache valid (image filled), 0 present but not valid (the image is then
// untouched), -1 no cache file.
std::int32_t ReadCalCache(const char* serial, std::int32_t imageLength, std::uint8_t* image,
                          std::int32_t testLength, const std::uint8_t* test,
                          std::uint32_t sensorChecksum);
// 1 written (checksum of the image in `checksum`), -1 not.
std::int32_t WriteCalCache(const char* serial, std::int32_t imageLength, const std::uint8_t* image,
                           std::uint32_t* checksum);

// Step 10 of initialisation: the image from the cache when valid, else from
// the sensor (then cached, and its checksum stored in the sensor). `image`
// has room for kCalImageBytes. 1; -1 when the image could not be read whole
// from the sensor, twice: then neither the cache nor the sensor's checksum
// is written.
std::int32_t LoadCalImage(std::int64_t h, const char* serial, std::uint8_t* image);

// Decodes the image into slot `slot`'s calibration points (b, a, Z) and calTmp;
// a zero divisor gives coefficient 0. Does nothing for a slot outside 0..12.
void DecodeCalImage(std::int32_t slot, const std::uint8_t* image);

}  // namespace qv
