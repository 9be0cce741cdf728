#include "QorAsn1Time.h"

#include <ctime>

namespace qortime {

std::int64_t CivilToSeconds(int year, int month, int day, int hour, int minute, int second) {
    // Days from 1970-01-01 in the proleptic Gregorian calendar, without any
    // time zone (Howard Hinnant's days_from_civil).
    const std::int64_t y = static_cast<std::int64_t>(year) - (month <= 2 ? 1 : 0);
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t yearOfEra = y - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    const std::int64_t days = era * 146097 + dayOfEra - 719468;
    return days * 86400 + hour * 3600 + minute * 60 + second;
}

bool Asn1TimeToSeconds(const ASN1_TIME* time, std::int64_t* seconds) {
    if (time == nullptr || seconds == nullptr) {
        return false;
    }
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        return false;
    }
    *seconds = CivilToSeconds(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                              parts.tm_min, parts.tm_sec);
    return true;
}

}  // namespace qortime
