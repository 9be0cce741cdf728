// The three ats-hash-index attributes: their ASN.1, decoding, the check
// against a message and the proofs of existence they give.
//
//   ats-hash-index    ::= SEQUENCE { certificatesHashIndex SEQUENCE OF OCTET STRING,
//                                    crlsHashIndex SEQUENCE OF OCTET STRING,
//                                    unsignedAttrValuesHashIndex SEQUENCE OF OCTET STRING }
//   ats-hash-index-v2, -v3 ::= SEQUENCE { hashIndAlgorithm AlgorithmIdentifier, the same three }
#include "ATSHashIndexAttribute.h"

#include <openssl/asn1t.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstring>
#include <string>

#include "CryptException.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "X509Certificate.h"
#include "X509Crl.h"
#include "cms/AttributeDer.h"

DEFINE_STACK_OF(ASN1_OCTET_STRING)

typedef struct TESSERA_ATS_HASH_INDEX_st {
    X509_ALGOR* hashIndAlgorithm;  // absent in the first version
    STACK_OF(ASN1_OCTET_STRING) * certificatesHashIndex;
    STACK_OF(ASN1_OCTET_STRING) * crlsHashIndex;
    STACK_OF(ASN1_OCTET_STRING) * unsignedAttrValuesHashIndex;
} TESSERA_ATS_HASH_INDEX;

ASN1_SEQUENCE(TESSERA_ATS_HASH_INDEX) = {
    ASN1_SEQUENCE_OF(TESSERA_ATS_HASH_INDEX, certificatesHashIndex, ASN1_OCTET_STRING),
    ASN1_SEQUENCE_OF(TESSERA_ATS_HASH_INDEX, crlsHashIndex, ASN1_OCTET_STRING),
    ASN1_SEQUENCE_OF(TESSERA_ATS_HASH_INDEX, unsignedAttrValuesHashIndex, ASN1_OCTET_STRING),
} static_ASN1_SEQUENCE_END(TESSERA_ATS_HASH_INDEX)

// The algorithm is read as optional so that its absence gets its own answer.
ASN1_SEQUENCE(TESSERA_ATS_HASH_INDEX_V2) = {
    ASN1_OPT(TESSERA_ATS_HASH_INDEX, hashIndAlgorithm, X509_ALGOR),
    ASN1_SEQUENCE_OF(TESSERA_ATS_HASH_INDEX, certificatesHashIndex, ASN1_OCTET_STRING),
    ASN1_SEQUENCE_OF(TESSERA_ATS_HASH_INDEX, crlsHashIndex, ASN1_OCTET_STRING),
    ASN1_SEQUENCE_OF(TESSERA_ATS_HASH_INDEX, unsignedAttrValuesHashIndex, ASN1_OCTET_STRING),
} static_ASN1_SEQUENCE_END_name(TESSERA_ATS_HASH_INDEX, TESSERA_ATS_HASH_INDEX_V2)

namespace TesseraLib {

namespace {

// Both templates share one structure; the one with the algorithm frees
// every field either can have filled.
void FreeHashIndex(TESSERA_ATS_HASH_INDEX* index) {
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(index), ASN1_ITEM_rptr(TESSERA_ATS_HASH_INDEX_V2));
}
using HashIndexPtr = qorssl::OpenSslPtr<TESSERA_ATS_HASH_INDEX, FreeHashIndex>;

using HashList = ATSHashIndexAttributeBase::HashList;

qorstd::QorArray<unsigned char> ToArray(const std::vector<unsigned char>& bytes) {
    return qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

HashList ReadList(const STACK_OF(ASN1_OCTET_STRING) * list) {
    HashList out;
    for (int i = 0; i < sk_ASN1_OCTET_STRING_num(list); ++i) {
        const ASN1_OCTET_STRING* entry = sk_ASN1_OCTET_STRING_value(list, i);
        out.Add(qorstd::QorArray<unsigned char>(ASN1_STRING_get0_data(entry),
                                                static_cast<unsigned int>(ASN1_STRING_length(entry))));
    }
    return out;
}

qorstd::QorArray<unsigned char> Digest(CryptHash::cptHashAlgorithm algorithm,
                                       const qorstd::QorArray<unsigned char>& data) {
    CryptHash hash(algorithm);
    hash.Update(data);
    qorstd::QorArray<unsigned char> out;
    hash.Finish(out);
    return out;
}

HashList Digests(CryptHash::cptHashAlgorithm algorithm, const HashList& inputs) {
    HashList out;
    for (unsigned i = 0; i < inputs.GetSize(); ++i) {
        out.Add(Digest(algorithm, inputs[i]));
    }
    return out;
}

// Same length, same bytes.
bool Contains(const HashList& hashes, const qorstd::QorArray<unsigned char>& wanted) {
    for (unsigned i = 0; i < hashes.GetSize(); ++i) {
        if (hashes[i] == wanted) {
            return true;
        }
    }
    return false;
}

// Every entry of `index` is one of `hashes`.
bool AllListed(const HashList& index, const HashList& hashes) {
    for (unsigned i = 0; i < index.GetSize(); ++i) {
        if (!Contains(hashes, index[i])) {
            return false;
        }
    }
    return true;
}

qorstd::QorArray<unsigned char> EncodeOrFail(const std::vector<unsigned char>& der) {
    if (der.empty()) {
        Fail(ErrAsn1Encoding, L"");
    }
    return ToArray(der);
}

qorstd::QorArray<unsigned char> TypeDer(const x509_attributes_st* attr) {
    return EncodeOrFail(qorssl::Encode(i2d_ASN1_OBJECT, X509_ATTRIBUTE_get0_object(
                                                            const_cast<X509_ATTRIBUTE*>(attr))));
}

qorstd::QorArray<unsigned char> ValueDer(const x509_attributes_st* attr, int index) {
    return EncodeOrFail(qorssl::Encode(
        i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(const_cast<X509_ATTRIBUTE*>(attr), index)));
}

}  // namespace

const char ATSHashIndexAttributeBase::kOidV1[] = "0.4.0.1733.2.5";
const char ATSHashIndexAttributeBase::kOidV2[] = "0.4.0.19122.1.4";
const char ATSHashIndexAttributeBase::kOidV3[] = "0.4.0.19122.1.5";

ATSHashIndexAttributeBase::ATSHashIndexAttributeBase() : m_hashAlgorithm(CryptHash::cptHashNone) {}

ATSHashIndexAttributeBase::ATSHashIndexAttributeBase(const ATSHashIndexAttributeBase& other)
    : X509Attribute(),
      m_hashAlgorithm(other.m_hashAlgorithm),
      m_certificatesHashIndex(other.m_certificatesHashIndex),
      m_crlsHashIndex(other.m_crlsHashIndex),
      m_unsignedAttrValuesHashIndex(other.m_unsignedAttrValuesHashIndex) {
    m_attr = CloneAttribute(other.m_attr);
}

ATSHashIndexAttributeBase& ATSHashIndexAttributeBase::operator=(
    const ATSHashIndexAttributeBase& other) {
    if (this != &other) {
        x509_attributes_st* copy = CloneAttribute(other.m_attr);
        FreeAttribute();
        m_attr = copy;
        m_hashAlgorithm = other.m_hashAlgorithm;
        m_certificatesHashIndex = other.m_certificatesHashIndex;
        m_crlsHashIndex = other.m_crlsHashIndex;
        m_unsignedAttrValuesHashIndex = other.m_unsignedAttrValuesHashIndex;
    }
    return *this;
}

ATSHashIndexAttributeBase::~ATSHashIndexAttributeBase() { ATSHashIndexAttributeBase::FreeAttribute(); }

void ATSHashIndexAttributeBase::FreeAttribute() {
    X509_ATTRIBUTE_free(m_attr);
    m_attr = nullptr;
}

x509_attributes_st* ATSHashIndexAttributeBase::CloneAttribute(x509_attributes_st* attr) {
    return attr != nullptr ? X509_ATTRIBUTE_dup(attr) : nullptr;
}

void ATSHashIndexAttributeBase::Reset() {
    FreeAttribute();
    m_hashAlgorithm = CryptHash::cptHashNone;
    m_certificatesHashIndex.RemoveAll();
    m_crlsHashIndex.RemoveAll();
    m_unsignedAttrValuesHashIndex.RemoveAll();
}

void ATSHashIndexAttributeBase::Decode(const qorstd::QorArray<unsigned char>& der) {
    cms::DecodeAttributeDer(
        nullptr, der, L"ATSHashIndexAttribute - attr is empty", [this] { Reset(); },
        [this](const x509_attributes_st* attr) { Decode(attr); });
}

void ATSHashIndexAttributeBase::DecodeAs(const x509_attributes_st* attr, const char* oid,
                                         const wchar_t* className, bool namedAlgorithm) {
    const auto fail = [className](int code, const wchar_t* what) {
        Fail(code, (std::wstring(className) + L" - " + what).c_str());
    };
    if (attr == nullptr) {
        fail(ErrInvalidParameter, L"pAttr is null");
    }
    Reset();
    m_attr = X509_ATTRIBUTE_dup(const_cast<X509_ATTRIBUTE*>(attr));
    if (m_attr == nullptr) {
        FailCrypto(nullptr, "X509_ATTRIBUTE_dup() failed.", ErrOutOfMemory);
    }
    if (std::strcmp(GetOID(m_attr).c_str(), oid) != 0) {
        fail(ErrAsn1Decoding, L"wrong attribute type");
    }
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(m_attr, 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        fail(ErrAsn1Decoding, L"strSeq == NULL");
    }
    const ASN1_STRING* sequence = value->value.sequence;
    const ASN1_ITEM* item = namedAlgorithm ? ASN1_ITEM_rptr(TESSERA_ATS_HASH_INDEX_V2)
                                           : ASN1_ITEM_rptr(TESSERA_ATS_HASH_INDEX);
    const unsigned char* cursor = ASN1_STRING_get0_data(sequence);
    const long length = ASN1_STRING_length(sequence);
    HashIndexPtr index(reinterpret_cast<TESSERA_ATS_HASH_INDEX*>(
        ASN1_item_d2i(nullptr, &cursor, length, item)));
    if (!index || cursor != ASN1_STRING_get0_data(sequence) + length) {
        ERR_clear_error();
        fail(ErrAsn1Decoding, L"hashIndex == NULL");
    }
    if (namedAlgorithm) {
        if (index->hashIndAlgorithm == nullptr) {
            fail(ErrAsn1Decoding, L"hashIndex->hashIndAlgorithm == NULL");
        }
        const ASN1_OBJECT* algorithm = nullptr;
        X509_ALGOR_get0(&algorithm, nullptr, nullptr, index->hashIndAlgorithm);
        if (algorithm == nullptr) {
            fail(ErrAsn1Decoding, L"alg == NULL");
        }
        m_hashAlgorithm = CryptHash::GetHashAlgorithmByNID(OBJ_obj2nid(algorithm));
        if (m_hashAlgorithm == CryptHash::cptHashNone) {
            fail(ErrInternal, L"hashAlg == CryptHash::cptHashNone");
        }
    } else {
        m_hashAlgorithm = CryptHash::cptHashSHA256;
    }
    m_certificatesHashIndex = ReadList(index->certificatesHashIndex);
    m_crlsHashIndex = ReadList(index->crlsHashIndex);
    m_unsignedAttrValuesHashIndex = ReadList(index->unsignedAttrValuesHashIndex);
}

bool ATSHashIndexAttributeBase::Lists(const HashList& index,
                                      const qorstd::QorArray<unsigned char>& input) const {
    return Contains(index, Digest(m_hashAlgorithm, input));
}

void ATSHashIndexAttributeBase::Verify(const qorstd::QorVector<X509Certificate>& certificates,
                                       const HashList& revocationChoices,
                                       const stack_st_X509_ATTRIBUTE* unsignedAttrs) const {
    if (!m_certificatesHashIndex.IsEmpty()) {
        HashList ders;
        for (unsigned i = 0; i < certificates.GetSize(); ++i) {
            ders.Add(certificates[i].Export());
        }
        if (certificates.GetSize() < m_certificatesHashIndex.GetSize() ||
            !AllListed(m_certificatesHashIndex, Digests(m_hashAlgorithm, ders))) {
            Fail(ErrAtsHashIndexCertMismatch, L"certificatesHashIndex");
        }
    }
    if (!m_crlsHashIndex.IsEmpty() &&
        (revocationChoices.GetSize() < m_crlsHashIndex.GetSize() ||
         !AllListed(m_crlsHashIndex, Digests(m_hashAlgorithm, revocationChoices)))) {
        Fail(ErrAtsHashIndexCrlMismatch, L"crlsHashIndex");
    }
    VerifyUnsignedAttrs(unsignedAttrs);
}

void ATSHashIndexAttributeBase::VerifyUnsignedAttrs(
    const stack_st_X509_ATTRIBUTE* unsignedAttrs) const {
    if (m_unsignedAttrValuesHashIndex.IsEmpty()) {
        return;
    }
    HashList inputs;
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(unsignedAttrs); ++i) {
        const X509_ATTRIBUTE* attr = sk_X509_ATTRIBUTE_value(unsignedAttrs, i);
        if (attr == nullptr) {
            Fail(ErrInternal, L"pAttr == NULL");
        }
        const HashList more = UnsignedAttrHashInputs(attr);
        for (unsigned k = 0; k < more.GetSize(); ++k) {
            inputs.Add(more[k]);
        }
    }
    // Counted in hash inputs: a version that lists every value of an
    // attribute may list more entries than there are attributes.
    if (inputs.GetSize() < m_unsignedAttrValuesHashIndex.GetSize()) {
        Fail(ErrAtsHashIndexAttrMismatch, L"_unsignedAttrValuesHashIndex.GetSize() > unsignedAttrCount");
    }
    if (!AllListed(m_unsignedAttrValuesHashIndex, Digests(m_hashAlgorithm, inputs))) {
        Fail(ErrAtsHashIndexAttrMismatch, L"unsignedAttrValuesHashIndex");
    }
}

// ------------------------------------------------------------ the versions

ATSHashIndexAttribute::ATSHashIndexAttribute(const x509_attributes_st* attr) { Decode(attr); }

void ATSHashIndexAttribute::Decode(const x509_attributes_st* attr) {
    DecodeAs(attr, kOidV1, L"ATSHashIndexAttribute", false);
}

HashList ATSHashIndexAttribute::UnsignedAttrHashInputs(const x509_attributes_st* attr) const {
    HashList inputs;
    inputs.Add(EncodeOrFail(qorssl::Encode(i2d_X509_ATTRIBUTE, attr)));
    return inputs;
}

ATSHashIndexV2Attribute::ATSHashIndexV2Attribute(const x509_attributes_st* attr) { Decode(attr); }

void ATSHashIndexV2Attribute::Decode(const x509_attributes_st* attr) {
    DecodeAs(attr, kOidV2, L"ATSHashIndexV2Attribute", true);
}

// The type's DER, then the DER of every value in order: the encoded type,
// not its dotted text, so that the index can be checked from the message's
// bytes alone.
HashList ATSHashIndexV2Attribute::UnsignedAttrHashInputs(const x509_attributes_st* attr) const {
    qorstd::QorArray<unsigned char> input = TypeDer(attr);
    for (int i = 0; i < X509_ATTRIBUTE_count(attr); ++i) {
        const qorstd::QorArray<unsigned char> value = ValueDer(attr, i);
        input.Append(value.GetData(), value.GetSize());
    }
    HashList inputs;
    inputs.Add(input);
    return inputs;
}

ATSHashIndexV3Attribute::ATSHashIndexV3Attribute(const x509_attributes_st* attr) { Decode(attr); }

void ATSHashIndexV3Attribute::Decode(const x509_attributes_st* attr) {
    DecodeAs(attr, kOidV3, L"ATSHashIndexV3Attribute", true);
}

ATSHashIndexV3Attribute ATSHashIndexV3Attribute::Create(
    CryptHash::cptHashAlgorithm algorithm, const HashList& certificates,
    const HashList& revocationChoices, const stack_st_X509_ATTRIBUTE* unsignedAttrs) {
    const evp_md_st* md =
        algorithm != CryptHash::cptHashNone ? CryptHash::GetHashEVP(algorithm) : nullptr;
    if (md == nullptr) {
        Fail(ErrAlgorithmNotSupported, L"ATSHashIndexV3Attribute - hashAlg");
    }
    ATSHashIndexV3Attribute index;
    index.m_hashAlgorithm = algorithm;
    HashList attrInputs;
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(unsignedAttrs); ++i) {
        const X509_ATTRIBUTE* attr = sk_X509_ATTRIBUTE_value(unsignedAttrs, i);
        if (attr == nullptr) {
            Fail(ErrInternal, L"pAttr == NULL");
        }
        const HashList more = index.UnsignedAttrHashInputs(attr);
        for (unsigned k = 0; k < more.GetSize(); ++k) {
            attrInputs.Add(more[k]);
        }
    }
    const auto stack = [algorithm](const HashList& inputs) {
        STACK_OF(ASN1_OCTET_STRING)* list = sk_ASN1_OCTET_STRING_new_null();
        for (unsigned i = 0; list != nullptr && i < inputs.GetSize(); ++i) {
            const qorstd::QorArray<unsigned char> digest = Digest(algorithm, inputs[i]);
            Asn1OctetStringPtr entry(ASN1_OCTET_STRING_new());
            if (!entry ||
                ASN1_OCTET_STRING_set(entry.get(), digest.GetData(),
                                      static_cast<int>(digest.GetSize())) != 1 ||
                sk_ASN1_OCTET_STRING_push(list, entry.get()) <= 0) {
                sk_ASN1_OCTET_STRING_pop_free(list, ASN1_OCTET_STRING_free);
                return static_cast<STACK_OF(ASN1_OCTET_STRING)*>(nullptr);
            }
            entry.release();
        }
        return list;
    };
    HashIndexPtr value(reinterpret_cast<TESSERA_ATS_HASH_INDEX*>(
        ASN1_item_new(ASN1_ITEM_rptr(TESSERA_ATS_HASH_INDEX_V2))));
    if (!value) {
        FailCrypto(nullptr, "ATSHashIndexV3Attribute::Create: ASN1_item_new() failed.",
                   ErrOutOfMemory);
    }
    // The fields the template made empty are replaced by the filled ones.
    sk_ASN1_OCTET_STRING_free(value->certificatesHashIndex);
    sk_ASN1_OCTET_STRING_free(value->crlsHashIndex);
    sk_ASN1_OCTET_STRING_free(value->unsignedAttrValuesHashIndex);
    value->certificatesHashIndex = stack(certificates);
    value->crlsHashIndex = stack(revocationChoices);
    value->unsignedAttrValuesHashIndex = stack(attrInputs);
    value->hashIndAlgorithm = X509_ALGOR_new();
    if (value->certificatesHashIndex == nullptr || value->crlsHashIndex == nullptr ||
        value->unsignedAttrValuesHashIndex == nullptr || value->hashIndAlgorithm == nullptr) {
        FailCrypto(nullptr, "ATSHashIndexV3Attribute::Create: allocation failed.", ErrOutOfMemory);
    }
    // SHA-2 algorithm identifiers go without parameters.
    X509_ALGOR_set_md(value->hashIndAlgorithm, md);
    unsigned char* der = nullptr;
    const int length = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(value.get()), &der,
                                     ASN1_ITEM_rptr(TESSERA_ATS_HASH_INDEX_V2));
    const OpenSslBytesPtr owned(der);
    if (length <= 0) {
        FailCrypto(nullptr, "ATSHashIndexV3Attribute::Create: ASN1_item_i2d() failed.",
                   ErrAsn1Encoding);
    }
    const X509AttributePtr attr(
        X509_ATTRIBUTE_create_by_txt(nullptr, kOidV3, V_ASN1_SEQUENCE, der, length));
    if (!attr) {
        FailCrypto(nullptr,
                   "ATSHashIndexV3Attribute::Create: X509_ATTRIBUTE_create_by_txt() failed.",
                   ErrAsn1Encoding);
    }
    index.Decode(attr.get());
    return index;
}

// One entry per value: the type's DER followed by that value's DER, so that
// a value added to an attribute later does not change the earlier entries.
HashList ATSHashIndexV3Attribute::UnsignedAttrHashInputs(const x509_attributes_st* attr) const {
    HashList inputs;
    const qorstd::QorArray<unsigned char> type = TypeDer(attr);
    for (int i = 0; i < X509_ATTRIBUTE_count(attr); ++i) {
        qorstd::QorArray<unsigned char> input = type;
        const qorstd::QorArray<unsigned char> value = ValueDer(attr, i);
        input.Append(value.GetData(), value.GetSize());
        inputs.Add(input);
    }
    return inputs;
}

}  // namespace TesseraLib

