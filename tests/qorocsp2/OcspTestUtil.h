// Small helpers of the OCSP tests.
#pragma once

#include <functional>
#include <string>

#include "QorOcsp2.h"
#include "TestPki.h"

namespace ocsp_test {

// The OcspException code an action throws; 0 when it throws none.
inline int CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const QorOcsp2Lib::OcspException& e) {
        return e.GetErrorCode();
    }
    return 0;
}

inline QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate> One(X509* certificate) {
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate> out;
    out.Add(QorOcsp2Lib::OcspCertificate(certificate));
    return out;
}

inline std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

}  // namespace ocsp_test
