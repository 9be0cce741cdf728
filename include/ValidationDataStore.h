// Proofs of existence: the earliest time at which each piece of validation
// data (certificates, CRLs, OCSP responses, time-stamps, hashes) is known to
// have existed, as long-term validation gathers them from time-stamps.
#pragma once

#include <cstdint>

#include "QorArray.h"
#include "QorVector.h"
#include "TesseraExport.h"

struct x509_st;
struct X509_crl_st;

namespace QorOcsp2Lib {
class OcspResponse;
}  // namespace QorOcsp2Lib

namespace QorTsp2Lib {
class TspTimeStamp;
}  // namespace QorTsp2Lib

namespace TesseraLib {

class X509Certificate;
class X509Crl;

// One object with its proof of existence (seconds since 1970 UTC, 0 while
// unknown). The item owns its object; copies are deep, so an item taken out
// of a store stays valid after the store is gone.
class TESSERA_API ValidationDataPOEItem {
public:
    enum ValidationDataPOEItemType {
        typeCertificate = 0,         // X509Certificate
        typeCrl = 1,                 // X509Crl
        typeOcsp = 2,                // QorOcsp2Lib::OcspResponse
        typeSignatureTimeStamp = 3,  // QorTsp2Lib::TspTimeStamp
        typeArchiveTimeStamp = 4,    // QorTsp2Lib::TspTimeStamp
        typeHash = 5,                // qorstd::QorArray<unsigned char>
        typeNone = 6
    };

    // POE 0, type none.
    ValidationDataPOEItem();
    ValidationDataPOEItem(const ValidationDataPOEItem& other);
    ValidationDataPOEItem& operator=(const ValidationDataPOEItem& other);
    virtual ~ValidationDataPOEItem();

    // The object when the item holds one of that type, else null.
    const X509Certificate* GetCertificate() const;
    const X509Crl* GetCrl() const;
    const QorOcsp2Lib::OcspResponse* GetOcsp() const;
    const QorTsp2Lib::TspTimeStamp* GetSignatureTimeStamp() const;
    const QorTsp2Lib::TspTimeStamp* GetArchiveTimeStamp() const;
    const qorstd::QorArray<unsigned char>* GetHash() const;
    const void* GetValue(ValidationDataPOEItemType type) const;
    ValidationDataPOEItemType GetType() const { return m_type; }
    const std::int64_t& GetPOE() const { return m_poe; }

protected:
    friend class ValidationDataStore;

    // Holds a new copy of `value`, an object of `type`, in place of the one
    // held before.
    void SetValue(ValidationDataPOEItemType type, const void* value);
    // With `keepEarlier` set, a known POE that is not later than `poe` stays,
    // and an unknown `poe` (0) never replaces a known one; otherwise `poe`
    // is stored.
    void SetPOE(const std::int64_t& poe, const int& keepEarlier);
    // Releases the object; the type becomes none.
    void Deallocate();

private:
    std::int64_t m_poe;
    void* m_value;
    ValidationDataPOEItemType m_type;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::ValidationDataPOEItem>;
extern template class QorVectorIterator<TesseraLib::ValidationDataPOEItem>;
}  // namespace qorstd

namespace TesseraLib {

// The proofs of existence of one validation, one list per kind of object in
// the order of first recording. Adding an object that is already recorded
// keeps the earlier of the two POEs. Copies are deep.
//
// Identities: certificates by OpenSSL's certificate comparison, CRLs by its
// CRL match, OCSP responses and time-stamps by equal DER, hashes by equal
// bytes. Adding null → ErrInvalidParameter.
class TESSERA_API ValidationDataStore {
public:
    ValidationDataStore();
    ValidationDataStore(const ValidationDataStore& other);
    ValidationDataStore& operator=(const ValidationDataStore& other);
    virtual ~ValidationDataStore();

    void AddCertificate(const X509Certificate* cert, const std::int64_t& poe);
    void AddCrl(const X509Crl* crl, const std::int64_t& poe);
    void AddOcsp(const QorOcsp2Lib::OcspResponse* response, const std::int64_t& poe);
    void AddSignatureTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp, const std::int64_t& poe);
    void AddArchiveTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp, const std::int64_t& poe);
    void AddHash(const qorstd::QorArray<unsigned char>* hash, const std::int64_t& poe);

    // 1 and the recorded POE in `*poe` (when given) for a recorded object;
    // 0 otherwise, `*poe` untouched.
    int GetPOECertificate(const X509Certificate* cert, std::int64_t* poe) const;
    int GetPOECertificate(const x509_st* cert, std::int64_t* poe) const;
    int GetPOECrl(const X509Crl* crl, std::int64_t* poe) const;
    int GetPOECrl(const X509_crl_st* crl, std::int64_t* poe) const;
    int GetPOEOcsp(const QorOcsp2Lib::OcspResponse* response, std::int64_t* poe) const;
    int GetPOESignatureTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp,
                                 std::int64_t* poe) const;
    int GetPOEArchiveTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp, std::int64_t* poe) const;
    int GetPOEHash(const qorstd::QorArray<unsigned char>* hash, std::int64_t* poe) const;

    const qorstd::QorVector<ValidationDataPOEItem>& GetCertificates() const {
        return m_certificates;
    }
    const qorstd::QorVector<ValidationDataPOEItem>& GetCrls() const { return m_crls; }
    const qorstd::QorVector<ValidationDataPOEItem>& GetOcsps() const { return m_ocsps; }
    // The signature time-stamps.
    const qorstd::QorVector<ValidationDataPOEItem>& GetTimeStamps() const {
        return m_signatureTimeStamps;
    }
    const qorstd::QorVector<ValidationDataPOEItem>& GetArchiveTimeStamps() const {
        return m_archiveTimeStamps;
    }
    const qorstd::QorVector<ValidationDataPOEItem>& GetHashes() const { return m_hashes; }

private:
    // Keeps the earlier POE of a recorded object that `same` finds equal to
    // `value`, or records a copy of `value`.
    static void Record(qorstd::QorVector<ValidationDataPOEItem>& items,
                       ValidationDataPOEItem::ValidationDataPOEItemType type, const void* value,
                       const std::int64_t& poe, bool (*same)(const void*, const void*));

    qorstd::QorVector<ValidationDataPOEItem> m_certificates;
    qorstd::QorVector<ValidationDataPOEItem> m_crls;
    qorstd::QorVector<ValidationDataPOEItem> m_ocsps;
    qorstd::QorVector<ValidationDataPOEItem> m_signatureTimeStamps;
    qorstd::QorVector<ValidationDataPOEItem> m_archiveTimeStamps;
    qorstd::QorVector<ValidationDataPOEItem> m_hashes;
};

}  // namespace TesseraLib
