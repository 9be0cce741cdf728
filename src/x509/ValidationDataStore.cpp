// Proofs of existence of validation data: the items and the store that keeps
// the earliest proof of each object.
#include "ValidationDataStore.h"

#include <openssl/x509.h>

#include "CryptException.h"
#include "Failure.h"
#include "OcspResponse.h"
#include "TspTimeStamp.h"
#include "X509Certificate.h"
#include "X509Crl.h"

template class qorstd::QorVector<TesseraLib::ValidationDataPOEItem>;
template class qorstd::QorVectorIterator<TesseraLib::ValidationDataPOEItem>;

namespace TesseraLib {

using Item = ValidationDataPOEItem;
using Hash = qorstd::QorArray<unsigned char>;
using QorOcsp2Lib::OcspResponse;
using QorTsp2Lib::TspTimeStamp;

namespace {

// A new copy of `value`, an object of `type`; null for none.
void* CopyOf(Item::ValidationDataPOEItemType type, const void* value) {
    if (value == nullptr) {
        return nullptr;
    }
    switch (type) {
        case Item::typeCertificate:
            return new X509Certificate(*static_cast<const X509Certificate*>(value));
        case Item::typeCrl:
            return new X509Crl(*static_cast<const X509Crl*>(value));
        case Item::typeOcsp:
            return new OcspResponse(*static_cast<const OcspResponse*>(value));
        case Item::typeSignatureTimeStamp:
        case Item::typeArchiveTimeStamp:
            return new TspTimeStamp(*static_cast<const TspTimeStamp*>(value));
        case Item::typeHash:
            return new Hash(*static_cast<const Hash*>(value));
        default:
            return nullptr;
    }
}

void Release(Item::ValidationDataPOEItemType type, void* value) {
    switch (type) {
        case Item::typeCertificate:
            delete static_cast<X509Certificate*>(value);
            break;
        case Item::typeCrl:
            delete static_cast<X509Crl*>(value);
            break;
        case Item::typeOcsp:
            delete static_cast<OcspResponse*>(value);
            break;
        case Item::typeSignatureTimeStamp:
        case Item::typeArchiveTimeStamp:
            delete static_cast<TspTimeStamp*>(value);
            break;
        case Item::typeHash:
            delete static_cast<Hash*>(value);
            break;
        default:
            break;
    }
}

bool SameDer(const TspTimeStamp& a, const TspTimeStamp& b) {
    return a.Encode(0) == b.Encode(0);
}

// The POE recorded for the first item that `matches`.
template <class Matches>
int FindPOE(const qorstd::QorVector<Item>& items, std::int64_t* poe, Matches matches) {
    for (unsigned i = 0; i < items.GetSize(); ++i) {
        if (matches(items[i])) {
            if (poe != nullptr) {
                *poe = items[i].GetPOE();
            }
            return 1;
        }
    }
    return 0;
}

}  // namespace

// ---------------------------------------------------------------------- item

ValidationDataPOEItem::ValidationDataPOEItem() : m_poe(0), m_value(nullptr), m_type(typeNone) {}

ValidationDataPOEItem::ValidationDataPOEItem(const ValidationDataPOEItem& other)
    : m_poe(other.m_poe), m_value(CopyOf(other.m_type, other.m_value)), m_type(other.m_type) {}

ValidationDataPOEItem& ValidationDataPOEItem::operator=(const ValidationDataPOEItem& other) {
    if (this != &other) {
        SetValue(other.m_type, other.m_value);
        m_poe = other.m_poe;
    }
    return *this;
}

ValidationDataPOEItem::~ValidationDataPOEItem() {
    Deallocate();
}

const X509Certificate* ValidationDataPOEItem::GetCertificate() const {
    return static_cast<const X509Certificate*>(GetValue(typeCertificate));
}

const X509Crl* ValidationDataPOEItem::GetCrl() const {
    return static_cast<const X509Crl*>(GetValue(typeCrl));
}

const OcspResponse* ValidationDataPOEItem::GetOcsp() const {
    return static_cast<const OcspResponse*>(GetValue(typeOcsp));
}

const TspTimeStamp* ValidationDataPOEItem::GetSignatureTimeStamp() const {
    return static_cast<const TspTimeStamp*>(GetValue(typeSignatureTimeStamp));
}

const TspTimeStamp* ValidationDataPOEItem::GetArchiveTimeStamp() const {
    return static_cast<const TspTimeStamp*>(GetValue(typeArchiveTimeStamp));
}

const Hash* ValidationDataPOEItem::GetHash() const {
    return static_cast<const Hash*>(GetValue(typeHash));
}

const void* ValidationDataPOEItem::GetValue(ValidationDataPOEItemType type) const {
    return type == m_type ? m_value : nullptr;
}

void ValidationDataPOEItem::SetValue(ValidationDataPOEItemType type, const void* value) {
    // Copy first: `value` may be the object held now.
    void* copy = CopyOf(type, value);
    Deallocate();
    m_value = copy;
    m_type = copy != nullptr ? type : typeNone;
}

void ValidationDataPOEItem::SetPOE(const std::int64_t& poe, const int& keepEarlier) {
    if (keepEarlier != 0 && m_poe != 0 && (poe == 0 || m_poe <= poe)) {
        return;
    }
    m_poe = poe;
}

void ValidationDataPOEItem::Deallocate() {
    Release(m_type, m_value);
    m_value = nullptr;
    m_type = typeNone;
}

// --------------------------------------------------------------------- store

ValidationDataStore::ValidationDataStore() = default;
ValidationDataStore::ValidationDataStore(const ValidationDataStore& other) = default;
ValidationDataStore& ValidationDataStore::operator=(const ValidationDataStore& other) = default;
ValidationDataStore::~ValidationDataStore() = default;

void ValidationDataStore::Record(qorstd::QorVector<Item>& items,
                                 Item::ValidationDataPOEItemType type, const void* value,
                                 const std::int64_t& poe, bool (*same)(const void*, const void*)) {
    for (unsigned i = 0; i < items.GetSize(); ++i) {
        const void* recorded = items[i].GetValue(type);
        if (recorded != nullptr && same(recorded, value)) {
            items.GetAt(i).SetPOE(poe, 1);
            return;
        }
    }
    Item item;
    item.SetValue(type, value);
    item.SetPOE(poe, 0);
    items.Add(item);
}

namespace {

template <class T>
bool Same(const void* a, const void* b);

template <>
bool Same<X509Certificate>(const void* a, const void* b) {
    return static_cast<const X509Certificate*>(a)->Equals(
               *static_cast<const X509Certificate*>(b)) != 0;
}

template <>
bool Same<X509Crl>(const void* a, const void* b) {
    return static_cast<const X509Crl*>(a)->Equals(*static_cast<const X509Crl*>(b)) != 0;
}

template <>
bool Same<OcspResponse>(const void* a, const void* b) {
    return *static_cast<const OcspResponse*>(a) == *static_cast<const OcspResponse*>(b);
}

template <>
bool Same<TspTimeStamp>(const void* a, const void* b) {
    return SameDer(*static_cast<const TspTimeStamp*>(a), *static_cast<const TspTimeStamp*>(b));
}

template <>
bool Same<Hash>(const void* a, const void* b) {
    return *static_cast<const Hash*>(a) == *static_cast<const Hash*>(b);
}

// Adding null is a caller's mistake.
template <class T>
const void* Required(const T* value, const wchar_t* message) {
    if (value == nullptr) {
        Fail(ErrInvalidParameter, message);
    }
    return value;
}

}  // namespace

void ValidationDataStore::AddCertificate(const X509Certificate* cert, const std::int64_t& poe) {
    Record(m_certificates, Item::typeCertificate, Required(cert, L"pCert=NULL"), poe,
           Same<X509Certificate>);
}

void ValidationDataStore::AddCrl(const X509Crl* crl, const std::int64_t& poe) {
    Record(m_crls, Item::typeCrl, Required(crl, L"pCrl=NULL"), poe, Same<X509Crl>);
}

void ValidationDataStore::AddOcsp(const OcspResponse* response, const std::int64_t& poe) {
    Record(m_ocsps, Item::typeOcsp, Required(response, L"pOcsp=NULL"), poe, Same<OcspResponse>);
}

void ValidationDataStore::AddSignatureTimeStamp(const TspTimeStamp* timeStamp,
                                                const std::int64_t& poe) {
    Record(m_signatureTimeStamps, Item::typeSignatureTimeStamp,
           Required(timeStamp, L"pTimeStamp=NULL"), poe, Same<TspTimeStamp>);
}

void ValidationDataStore::AddArchiveTimeStamp(const TspTimeStamp* timeStamp,
                                              const std::int64_t& poe) {
    Record(m_archiveTimeStamps, Item::typeArchiveTimeStamp, Required(timeStamp, L"pTimeStamp=NULL"),
           poe, Same<TspTimeStamp>);
}

void ValidationDataStore::AddHash(const Hash* hash, const std::int64_t& poe) {
    Record(m_hashes, Item::typeHash, Required(hash, L"pHash=NULL"), poe, Same<Hash>);
}

int ValidationDataStore::GetPOECertificate(const X509Certificate* cert, std::int64_t* poe) const {
    return cert != nullptr ? GetPOECertificate(cert->GetX509(), poe) : 0;
}

int ValidationDataStore::GetPOECertificate(const x509_st* cert, std::int64_t* poe) const {
    if (cert == nullptr) {
        return 0;
    }
    return FindPOE(m_certificates, poe, [cert](const Item& item) {
        const X509Certificate* recorded = item.GetCertificate();
        return recorded != nullptr && recorded->GetX509() != nullptr &&
               X509_cmp(recorded->GetX509(), cert) == 0;
    });
}

int ValidationDataStore::GetPOECrl(const X509Crl* crl, std::int64_t* poe) const {
    return crl != nullptr ? GetPOECrl(crl->GetX509Crl(), poe) : 0;
}

int ValidationDataStore::GetPOECrl(const X509_crl_st* crl, std::int64_t* poe) const {
    if (crl == nullptr) {
        return 0;
    }
    return FindPOE(m_crls, poe, [crl](const Item& item) {
        const X509Crl* recorded = item.GetCrl();
        return recorded != nullptr && recorded->GetX509Crl() != nullptr &&
               X509_CRL_match(recorded->GetX509Crl(), crl) == 0;
    });
}

int ValidationDataStore::GetPOEOcsp(const OcspResponse* response, std::int64_t* poe) const {
    if (response == nullptr) {
        return 0;
    }
    return FindPOE(m_ocsps, poe, [response](const Item& item) {
        return item.GetOcsp() != nullptr && *item.GetOcsp() == *response;
    });
}

int ValidationDataStore::GetPOESignatureTimeStamp(const TspTimeStamp* timeStamp,
                                                  std::int64_t* poe) const {
    if (timeStamp == nullptr) {
        return 0;
    }
    return FindPOE(m_signatureTimeStamps, poe, [timeStamp](const Item& item) {
        return item.GetSignatureTimeStamp() != nullptr &&
               SameDer(*item.GetSignatureTimeStamp(), *timeStamp);
    });
}

int ValidationDataStore::GetPOEArchiveTimeStamp(const TspTimeStamp* timeStamp,
                                                std::int64_t* poe) const {
    if (timeStamp == nullptr) {
        return 0;
    }
    return FindPOE(m_archiveTimeStamps, poe, [timeStamp](const Item& item) {
        return item.GetArchiveTimeStamp() != nullptr &&
               SameDer(*item.GetArchiveTimeStamp(), *timeStamp);
    });
}

int ValidationDataStore::GetPOEHash(const Hash* hash, std::int64_t* poe) const {
    if (hash == nullptr) {
        return 0;
    }
    return FindPOE(m_hashes, poe, [hash](const Item& item) {
        return item.GetHash() != nullptr && *item.GetHash() == *hash;
    });
}

}  // namespace TesseraLib
