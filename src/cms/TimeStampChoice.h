// Choosing a signer's signature time-stamp and reporting its failure
// (internal): shared by the verification with and without proofs of
// existence.
#pragma once

#include <algorithm>
#include <vector>

#include "CryptException.h"
#include "OcspException.h"
#include "QorVector.h"
#include "TimeStampAttribute.h"
#include "TspException.h"

namespace TesseraLib {
namespace cms {

// The latest time-stamp that holds a value; null when none does.
inline const TimeStampAttribute* LatestTimeStamp(
    const qorstd::QorVector<TimeStampAttribute>& timeStamps) {
    std::vector<const TimeStampAttribute*> ordered;
    for (unsigned int i = 0; i < timeStamps.GetSize(); ++i) {
        ordered.push_back(&timeStamps[i]);
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const TimeStampAttribute* a, const TimeStampAttribute* b) {
                         return TimeStampAttribute::CompareByTime(a, b) < 0;
                     });
    for (auto it = ordered.rbegin(); it != ordered.rend(); ++it) {
        if ((*it)->GetX509Attr() != nullptr && !(*it)->GetValue().IsEmpty()) {
            return *it;
        }
    }
    return nullptr;
}

// Runs `check` of `chosen`; a failure leaves as the time-stamp exception
// that names the attribute, so that the caller can tell which one failed.
// The time-stamp library's own exceptions pass unchanged.
template <class Check>
void CheckAsTimeStamp(const TimeStampAttribute* chosen, Check&& check) {
    try {
        check();
    } catch (const CryptException& e) {
        TimeStampException::Throw(chosen, e.GetErrorCode(), e.GetErrorMessage().c_str());
    } catch (const qorstd::QorException& e) {
        TimeStampException::Throw(chosen, e.GetErrorCode(), e.GetErrorMessage().c_str());
    } catch (const QorTsp2Lib::TspException&) {
        throw;
    } catch (const QorOcsp2Lib::OcspException& e) {
        TimeStampOcspException::Throw(chosen, e.GetErrorCode(), e.GetErrorMessage().c_str());
    } catch (...) {
        TimeStampException::Throw(chosen, ErrInternal, L"");
    }
}

}  // namespace cms
}  // namespace TesseraLib
