// The three ats-hash-index decoders over arbitrary bytes (the first byte
// picks the version): a decoded index must survive a copy and its own
// encoding, and checking it against an empty message must refuse with a
// mismatch code or pass an empty index. Every refusal must be a
// CryptException with one of the documented codes — never a crash, leak,
// hang or another exception type.
#include <openssl/err.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>

#include "ATSHashIndexAttribute.h"
#include "CryptException.h"
#include "X509Certificate.h"

using namespace TesseraLib;

namespace {

void ExpectCode(const CryptException& e, std::initializer_list<int> documented) {
    for (const int code : documented) {
        if (e.GetErrorCode() == code) {
            return;
        }
    }
    std::abort();  // a failure with a code the operation does not document
}

std::unique_ptr<ATSHashIndexAttributeBase> Version(std::uint8_t pick) {
    switch (pick % 3) {
        case 0:
            return std::make_unique<ATSHashIndexAttribute>();
        case 1:
            return std::make_unique<ATSHashIndexV2Attribute>();
        default:
            return std::make_unique<ATSHashIndexV3Attribute>();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > 1u << 16) {
        return 0;
    }
    std::unique_ptr<ATSHashIndexAttributeBase> index = Version(data[0]);
    try {
        index->Decode(qorstd::QorArray<unsigned char>(data + 1, static_cast<unsigned int>(size - 1)));
    } catch (const CryptException& e) {
        ExpectCode(e, {ErrInvalidParameter, ErrAsn1Decoding, ErrInternal});
        if (index->GetX509Attr() != nullptr && !index->GetCertificatesHashIndex().IsEmpty()) {
            std::abort();  // a failed decode leaves no lists behind
        }
        return 0;
    }
    std::unique_ptr<ATSHashIndexAttributeBase> again = Version(data[0]);
    again->Decode(index->Encode());
    if (again->GetCertificatesHashIndex().GetSize() != index->GetCertificatesHashIndex().GetSize() ||
        again->GetHashAlgorithm() != index->GetHashAlgorithm()) {
        std::abort();  // the encoding changed the index
    }
    const bool empty = index->GetCertificatesHashIndex().IsEmpty() &&
                       index->GetCrlsHashIndex().IsEmpty() &&
                       index->GetUnsignedAttrValuesHashIndex().IsEmpty();
    try {
        index->Verify(qorstd::QorVector<X509Certificate>(), ATSHashIndexAttributeBase::HashList(),
                      nullptr);
        if (!empty) {
            std::abort();  // listed items cannot be found in an empty message
        }
    } catch (const CryptException& e) {
        ExpectCode(e, {ErrAtsHashIndexCertMismatch, ErrAtsHashIndexCrlMismatch,
                       ErrAtsHashIndexAttrMismatch});
    }
    ERR_clear_error();
    return 0;
}
