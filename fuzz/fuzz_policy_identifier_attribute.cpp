// SignaturePolicyAttribute::Decode over arbitrary bytes (a whole attribute):
// it must either decode a signature-policy identifier, whose qualifiers then
// answer, whose copies agree with it and whose encoding decodes to the same
// identifier, or throw CryptException and leave nothing decoded — never
// crash, leak, hang or let another exception type escape.
#include <openssl/err.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "CryptException.h"
#include "SignaturePolicyAttribute.h"

using namespace TesseraLib;

namespace {

void Touch(const SignaturePolicyAttribute& attribute) {
    (void)attribute.GetOID();
    (void)attribute.GetPolicyOID().length();
    (void)attribute.GetHashAlgorithmNID();
    (void)attribute.GetHashValue().GetSize();
    const auto& qualifiers = attribute.GetQualifiers();
    for (unsigned int i = 0; i < qualifiers.GetSize(); ++i) {
        const SignaturePolicyQualifier::cptQualifierType type = qualifiers[i].GetType();
        if (type == SignaturePolicyQualifier::qualifierNone) {
            std::abort();  // every decoded qualifier has an OID
        }
        (void)qualifiers[i].GetQualifierOID().length();
        (void)qualifiers[i].GetURI().length();
        (void)qualifiers[i].GetOrganization().length();
        (void)qualifiers[i].GetExplicitText().length();
    }
}

// The same identifier: policy OID, hash and qualifiers.
bool Same(const SignaturePolicyAttribute& a, const SignaturePolicyAttribute& b) {
    if (a.GetPolicyOID() != b.GetPolicyOID() ||
        a.GetHashAlgorithmNID() != b.GetHashAlgorithmNID() ||
        a.GetHashValue() != b.GetHashValue() ||
        a.GetQualifiers().GetSize() != b.GetQualifiers().GetSize()) {
        return false;
    }
    for (unsigned int i = 0; i < a.GetQualifiers().GetSize(); ++i) {
        const SignaturePolicyQualifier& x = a.GetQualifiers()[i];
        const SignaturePolicyQualifier& y = b.GetQualifiers()[i];
        if (x.GetQualifierOID() != y.GetQualifierOID() || x.GetURI() != y.GetURI() ||
            x.GetOrganization() != y.GetOrganization() ||
            x.GetExplicitText() != y.GetExplicitText()) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    SignaturePolicyAttribute attribute;
    try {
        attribute.Decode(qorstd::QorArray<unsigned char>(data, static_cast<unsigned int>(size)));
    } catch (const CryptException&) {
        if (!attribute.GetPolicyOID().empty() || attribute.GetQualifiers().GetSize() != 0 ||
            attribute.GetHashValue().GetSize() != 0) {
            std::abort();  // a failed decode leaves no identifier behind
        }
        ERR_clear_error();
        return 0;
    }
    Touch(attribute);
    const SignaturePolicyAttribute copy(attribute);
    SignaturePolicyAttribute assigned;
    assigned = attribute;
    if (!Same(copy, attribute) || !Same(assigned, attribute) ||
        copy.Encode() != attribute.Encode()) {
        std::abort();  // copies hold the same attribute
    }
    const qorstd::QorArray<unsigned char> der = attribute.Encode();
    SignaturePolicyAttribute again;
    try {
        again.Decode(der);
    } catch (const CryptException&) {
        std::abort();  // what decoded once must decode from its own encoding
    }
    if (!Same(again, attribute)) {
        std::abort();
    }
    ERR_clear_error();
    return 0;
}
