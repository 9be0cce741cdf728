// The proofs of existence an archive time-stamp gives through its hash
// index: every item the index lists existed at the time-stamp's time.
#include "ATSHashIndexAttribute.h"

#include "CryptException.h"
#include "Failure.h"
#include "TimeStampAttribute.h"
#include "ValidationDataStore.h"
#include "X509Certificate.h"
#include "X509Crl.h"

namespace TesseraLib {

void ATSHashIndexAttributeBase::UpdatePOEInfo(
    const qorstd::QorVector<X509Certificate>& certificates, const qorstd::QorVector<X509Crl>& crls,
    const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& ocsps, const HashList& ocspChoices,
    const qorstd::QorVector<TimeStampAttribute>& signatureTimeStamps,
    const qorstd::QorVector<TimeStampAttribute>& archiveTimeStamps, const std::int64_t& time,
    ValidationDataStore* store) const {
    if (store == nullptr) {
        Fail(ErrInvalidParameter, L"pStore == NULL");
    }
    if (!m_certificatesHashIndex.IsEmpty()) {
        for (unsigned i = 0; i < certificates.GetSize(); ++i) {
            if (Lists(m_certificatesHashIndex, certificates[i].Export())) {
                store->AddCertificate(&certificates[i], time);
            }
        }
    }
    if (!m_crlsHashIndex.IsEmpty()) {
        // A CRL's revocation choice is the CRL itself; an OCSP response's is
        // the element it came in.
        for (unsigned i = 0; i < crls.GetSize(); ++i) {
            if (Lists(m_crlsHashIndex, crls[i].Export())) {
                store->AddCrl(&crls[i], time);
            }
        }
        for (unsigned i = 0; i < ocsps.GetSize() && i < ocspChoices.GetSize(); ++i) {
            if (Lists(m_crlsHashIndex, ocspChoices[i])) {
                store->AddOcsp(&ocsps[i], time);
            }
        }
    }
    UpdatePOEInfoUnsignedAttrs(signatureTimeStamps, archiveTimeStamps, time, store);
}

void ATSHashIndexAttributeBase::UpdatePOEInfoUnsignedAttrs(
    const qorstd::QorVector<TimeStampAttribute>& signatureTimeStamps,
    const qorstd::QorVector<TimeStampAttribute>& archiveTimeStamps, const std::int64_t& time,
    ValidationDataStore* store) const {
    if (m_unsignedAttrValuesHashIndex.IsEmpty()) {
        return;
    }
    const auto listed = [this](const TimeStampAttribute& stamp) {
        if (stamp.GetX509Attr() == nullptr) {
            return false;
        }
        const HashList inputs = UnsignedAttrHashInputs(stamp.GetX509Attr());
        for (unsigned i = 0; i < inputs.GetSize(); ++i) {
            if (Lists(m_unsignedAttrValuesHashIndex, inputs[i])) {
                return true;
            }
        }
        return false;
    };
    for (unsigned i = 0; i < signatureTimeStamps.GetSize(); ++i) {
        if (listed(signatureTimeStamps[i])) {
            store->AddSignatureTimeStamp(&signatureTimeStamps[i].GetTimeStamp(), time);
        }
    }
    for (unsigned i = 0; i < archiveTimeStamps.GetSize(); ++i) {
        if (listed(archiveTimeStamps[i])) {
            store->AddArchiveTimeStamp(&archiveTimeStamps[i].GetTimeStamp(), time);
        }
    }
}

}  // namespace TesseraLib
