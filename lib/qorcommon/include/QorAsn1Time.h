// ASN.1 times (UTCTime or GeneralizedTime) as seconds since 1970 UTC
// (internal). One conversion for every decoder of the library family.
#pragma once

#include <openssl/asn1.h>

#include <cstdint>

namespace qortime {

// False when `time` is null or not a valid time; fractions of a second are dropped.
bool Asn1TimeToSeconds(const ASN1_TIME* time, std::int64_t* seconds);

// Seconds since 1970 for a UTC calendar date and time.
std::int64_t CivilToSeconds(int year, int month, int day, int hour, int minute, int second);

}  // namespace qortime
