// Owning smart pointers for OpenSSL handles, one deleter per type, shared by
// Tessera and the libraries beside it (internal, never installed).
//
// `get0` functions borrow, `get1`/`new` functions own; for `set0`/`add0`
// functions release() the pointer only after the call succeeded.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <memory>

namespace qorssl {

template <auto FreeFn>
struct OpenSslDeleter {
    template <class T>
    void operator()(T* handle) const noexcept {
        if (handle != nullptr) {
            FreeFn(handle);
        }
    }
};

template <class T, auto FreeFn>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter<FreeFn>>;

using Asn1ObjectPtr = OpenSslPtr<ASN1_OBJECT, ASN1_OBJECT_free>;
using BioPtr = OpenSslPtr<BIO, BIO_free_all>;
using EnginePtr = OpenSslPtr<ENGINE, ENGINE_free>;
using Asn1IntegerPtr = OpenSslPtr<ASN1_INTEGER, ASN1_INTEGER_free>;
using BignumPtr = OpenSslPtr<BIGNUM, BN_free>;
using CmsContentInfoPtr = OpenSslPtr<CMS_ContentInfo, CMS_ContentInfo_free>;
using TsMsgImprintPtr = OpenSslPtr<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free>;
using TsReqPtr = OpenSslPtr<TS_REQ, TS_REQ_free>;
using TsRespPtr = OpenSslPtr<TS_RESP, TS_RESP_free>;
using TsTstInfoPtr = OpenSslPtr<TS_TST_INFO, TS_TST_INFO_free>;
using TsVerifyCtxPtr = OpenSslPtr<TS_VERIFY_CTX, TS_VERIFY_CTX_free>;
using Pkcs7Ptr = OpenSslPtr<PKCS7, PKCS7_free>;
using X509AlgorPtr = OpenSslPtr<X509_ALGOR, X509_ALGOR_free>;
using EvpMdCtxPtr = OpenSslPtr<EVP_MD_CTX, EVP_MD_CTX_free>;
using EvpMdPtr = OpenSslPtr<EVP_MD, EVP_MD_free>;
using EvpPkeyPtr = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using X509Ptr = OpenSslPtr<X509, X509_free>;
using X509StorePtr = OpenSslPtr<X509_STORE, X509_STORE_free>;
using X509StoreCtxPtr = OpenSslPtr<X509_STORE_CTX, X509_STORE_CTX_free>;
using OcspResponsePtr = OpenSslPtr<OCSP_RESPONSE, OCSP_RESPONSE_free>;
using OcspBasicRespPtr = OpenSslPtr<OCSP_BASICRESP, OCSP_BASICRESP_free>;
using OcspRequestPtr = OpenSslPtr<OCSP_REQUEST, OCSP_REQUEST_free>;
using OcspCertIdPtr = OpenSslPtr<OCSP_CERTID, OCSP_CERTID_free>;
using EvpPkeyCtxPtr = OpenSslPtr<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Pkcs12Ptr = OpenSslPtr<PKCS12, PKCS12_free>;
using RsaPtr = OpenSslPtr<RSA, RSA_free>;
using RsaMethodPtr = OpenSslPtr<RSA_METHOD, RSA_meth_free>;

// CMS signer attributes.
using X509AttributePtr = OpenSslPtr<X509_ATTRIBUTE, X509_ATTRIBUTE_free>;
// A stack that owns its attributes.
inline void FreeX509AttributeStack(STACK_OF(X509_ATTRIBUTE) * stack) {
    sk_X509_ATTRIBUTE_pop_free(stack, X509_ATTRIBUTE_free);
}
using X509AttributeStackPtr = OpenSslPtr<STACK_OF(X509_ATTRIBUTE), FreeX509AttributeStack>;
using Asn1UtcTimePtr = OpenSslPtr<ASN1_UTCTIME, ASN1_UTCTIME_free>;
// A stack that owns its algorithm identifiers (S/MIME capabilities).
inline void FreeX509AlgorStack(STACK_OF(X509_ALGOR) * stack) {
    sk_X509_ALGOR_pop_free(stack, X509_ALGOR_free);
}
using X509AlgorStackPtr = OpenSslPtr<STACK_OF(X509_ALGOR), FreeX509AlgorStack>;

// Names, and buffers that OpenSSL allocates for encodings and texts.
using X509NamePtr = OpenSslPtr<X509_NAME, X509_NAME_free>;
using GeneralNamePtr = OpenSslPtr<GENERAL_NAME, GENERAL_NAME_free>;
using X509ExtensionPtr = OpenSslPtr<X509_EXTENSION, X509_EXTENSION_free>;
using Asn1OctetStringPtr = OpenSslPtr<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
inline void FreeOpenSslBytes(unsigned char* bytes) {
    OPENSSL_free(bytes);
}
using OpenSslBytesPtr = OpenSslPtr<unsigned char, FreeOpenSslBytes>;

// A stack that owns its certificates.
inline void FreeX509Stack(STACK_OF(X509) * stack) {
    sk_X509_pop_free(stack, X509_free);
}
using X509StackPtr = OpenSslPtr<STACK_OF(X509), FreeX509Stack>;

// CRLs and what is read from them.
using X509CrlPtr = OpenSslPtr<X509_CRL, X509_CRL_free>;
// A stack that owns its CRLs.
inline void FreeX509CrlStack(STACK_OF(X509_CRL) * stack) {
    sk_X509_CRL_pop_free(stack, X509_CRL_free);
}
using X509CrlStackPtr = OpenSslPtr<STACK_OF(X509_CRL), FreeX509CrlStack>;
using AuthorityKeyIdPtr = OpenSslPtr<AUTHORITY_KEYID, AUTHORITY_KEYID_free>;
using Asn1EnumeratedPtr = OpenSslPtr<ASN1_ENUMERATED, ASN1_ENUMERATED_free>;
using CrlDistPointsPtr = OpenSslPtr<CRL_DIST_POINTS, CRL_DIST_POINTS_free>;
// Texts OpenSSL allocates (BN_bn2dec, BN_bn2hex).
inline void FreeOpenSslText(char* text) {
    OPENSSL_free(text);
}
using OpenSslTextPtr = OpenSslPtr<char, FreeOpenSslText>;
// The own HTTP client's TLS exchange.
using SslCtxPtr = OpenSslPtr<SSL_CTX, SSL_CTX_free>;
using SslPtr = OpenSslPtr<SSL, SSL_free>;

// Another reference to a handle that something else owns, for as long as
// the result lives. Null for a null handle or when OpenSSL refuses the
// reference (its error queue is left as it is).
//
//     X509Ptr mine = UpRef(borrowed);
//     if (!mine) { Fail(ErrOutOfMemory); }
template <class Ptr, class T, int (*Reference)(T*)>
Ptr TakeReference(const T* handle) {
    T* shared = const_cast<T*>(handle);
    return Ptr(handle != nullptr && Reference(shared) == 1 ? shared : nullptr);
}
inline X509Ptr UpRef(const X509* handle) {
    return TakeReference<X509Ptr, X509, X509_up_ref>(handle);
}
inline X509CrlPtr UpRef(const X509_CRL* handle) {
    return TakeReference<X509CrlPtr, X509_CRL, X509_CRL_up_ref>(handle);
}
inline EvpPkeyPtr UpRef(const EVP_PKEY* handle) {
    return TakeReference<EvpPkeyPtr, EVP_PKEY, EVP_PKEY_up_ref>(handle);
}
inline EvpMdPtr UpRef(const EVP_MD* handle) {
    return TakeReference<EvpMdPtr, EVP_MD, EVP_MD_up_ref>(handle);
}

}  // namespace qorssl

// Tessera's own sources name the aliases without qualification.
namespace TesseraLib {
using namespace qorssl;
}  // namespace TesseraLib
