#include "policy/PolicyParse.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include "CryptException.h"
#include "Failure.h"
#include "QorAsn1Time.h"
#include "QorTextConv.h"
#include "cms/CmsOid.h"

namespace TesseraLib {
namespace policy {

RuleFields::RuleFields(const ESI_COMMON_RULES& rules)
    : signerAndVerifierRules(rules.signerAndVeriferRules),
      signingCertTrustCondition(rules.signingCertTrustCondition),
      timeStampTrustCondition(rules.timeStampTrustCondition),
      algorithmConstraintSet(rules.algorithmConstraintSet),
      extensions(rules.signPolExtensions) {}

RuleFields::RuleFields(const ESI_COMMITMENT_RULE& rule)
    : signerAndVerifierRules(rule.signerAndVeriferRules),
      signingCertTrustCondition(rule.signingCertTrustCondition),
      timeStampTrustCondition(rule.timeStampTrustCondition),
      algorithmConstraintSet(rule.algorithmConstraintSet),
      extensions(rule.signPolExtensions) {}

qorstd::QorString OidText(const ASN1_OBJECT* object) {
    return cms::OidText(object);
}

void AppendOids(qorstd::QorVector<qorstd::QorString>& target, const STACK_OF(ASN1_OBJECT) * oids) {
    for (int i = 0; i < sk_ASN1_OBJECT_num(oids); ++i) {
        const qorstd::QorString text = OidText(sk_ASN1_OBJECT_value(oids, i));
        if (!text.empty()) {
            target.Add(text);
        }
    }
}

void AppendExtensions(SignaturePolicyExtensions& target,
                      const STACK_OF(ESI_SIGN_POL_EXTN) * extensions) {
    for (int i = 0; i < sk_ESI_SIGN_POL_EXTN_num(extensions); ++i) {
        const ESI_SIGN_POL_EXTN* extension = sk_ESI_SIGN_POL_EXTN_value(extensions, i);
        if (extension != nullptr) {
            target.Add(SignaturePolicyExtension(extension));
        }
    }
}

qorstd::QorStringW DirectoryText(const ASN1_STRING* text, const wchar_t* failure) {
    unsigned char* utf8 = nullptr;
    const int length = text != nullptr ? ASN1_STRING_to_UTF8(&utf8, text) : -1;
    if (length < 0) {
        Fail(ErrAsn1Decoding, failure);
    }
    qorstd::QorStringW wide;
    if (length > 0) {
        wide = qorstd::text::NarrowToWide(reinterpret_cast<const char*>(utf8),
                                          static_cast<unsigned int>(length),
                                          qorstd::text::kCharsetUtf8);
    }
    OPENSSL_free(utf8);
    if (length > 0 && wide.empty()) {
        Fail(ErrAsn1Decoding, failure);
    }
    return wide;
}

std::int64_t TimeSeconds(const ASN1_GENERALIZEDTIME* time) {
    std::int64_t seconds = 0;
    if (!qortime::Asn1TimeToSeconds(time, &seconds)) {
        Fail(ErrAsn1Decoding);
    }
    return seconds;
}

unsigned long* NewUnsigned(const ASN1_INTEGER* value) {
    // A value that does not fit reads as OpenSSL's error value, kept as it is.
    const long read = ASN1_INTEGER_get(value);
    ERR_clear_error();
    return new unsigned long(static_cast<unsigned long>(read));
}

}  // namespace policy
}  // namespace TesseraLib
