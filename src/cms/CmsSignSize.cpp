// The size of a message before signing: the DER lengths of its parts added
// up, so that a caller can reserve room for a signature (e.g. in a document)
// before the key is asked to sign.
#include "cms/CmsSignSize.h"

#include <openssl/asn1.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <ctime>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "SignedCms.h"
#include "SignerCms.h"
#include "cms/CmsSigning.h"

namespace TesseraLib {

namespace {

// Octets of the length field of a content of `n` bytes.
long LengthOctets(long n) {
    if (n < 128) {
        return 1;
    }
    long octets = 1;
    for (; n > 0; n >>= 8) {
        ++octets;
    }
    return octets;
}

// A whole TLV around a content of `n` bytes.
long Tlv(long n) {
    return 1 + LengthOctets(n) + n;
}

// The DER length of `value`; -1 when it cannot be encoded.
template <class T>
long DerLength(int (*i2d)(const T*, unsigned char**), const T* value) {
    const int length = value != nullptr ? i2d(value, nullptr) : 0;
    return length > 0 ? length : -1;
}

long IntegerLength(long value) {
    Asn1IntegerPtr integer(ASN1_INTEGER_new());
    if (!integer || ASN1_INTEGER_set(integer.get(), value) != 1) {
        return -1;
    }
    return DerLength(i2d_ASN1_INTEGER, integer.get());
}

long ObjectLength(int nid) {
    return DerLength(i2d_ASN1_OBJECT, OBJ_nid2obj(nid));
}

// The attribute `nid` with one value of ASN.1 type `type`, as OpenSSL adds it
// to a signer (`length` -1 for objects, which carry no length).
long AttributeLength(int nid, int type, const void* value, int length) {
    X509AttributePtr attribute(X509_ATTRIBUTE_create_by_NID(nullptr, nid, type, value, length));
    return DerLength(i2d_X509_ATTRIBUTE, attribute.get());
}

long AttributesLength(STACK_OF(X509_ATTRIBUTE) * attributes) {
    long total = 0;
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(attributes); ++i) {
        const long length = DerLength(i2d_X509_ATTRIBUTE, sk_X509_ATTRIBUTE_value(attributes, i));
        if (length < 0) {
            return -1;
        }
        total += length;
    }
    return total;
}

// The S/MIME capabilities attribute with OpenSSL's standard list.
long SmimeCapabilitiesLength() {
    STACK_OF(X509_ALGOR)* raw = nullptr;
    const int added = CMS_add_standard_smimecap(&raw);
    const X509AlgorStackPtr capabilities(raw);
    if (added != 1) {
        return -1;
    }
    unsigned char* der = nullptr;
    const int derLength = i2d_X509_ALGORS(capabilities.get(), &der);
    const OpenSslBytesPtr owned(der);
    if (derLength <= 0) {
        return -1;
    }
    Asn1OctetStringPtr sequence(ASN1_STRING_type_new(V_ASN1_SEQUENCE));
    if (!sequence || ASN1_STRING_set(sequence.get(), der, derLength) != 1) {
        return -1;
    }
    return AttributeLength(NID_SMIMECapabilities, V_ASN1_SEQUENCE, sequence.get(), -1);
}

// Message digest, content type (id-data) and, when asked, a signing time as
// UTCTime, whose text has the same length at any time before 2050.
long DefaultAttributesLength(const EVP_MD* md, bool signingTime) {
    const unsigned char digest[EVP_MAX_MD_SIZE] = {0};
    Asn1OctetStringPtr digestValue(ASN1_OCTET_STRING_new());
    if (!digestValue ||
        ASN1_OCTET_STRING_set(digestValue.get(), digest, EVP_MD_get_size(md)) != 1) {
        return -1;
    }
    Asn1UtcTimePtr now(ASN1_UTCTIME_set(nullptr, std::time(nullptr)));
    const long lengths[] = {
        AttributeLength(NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, digestValue.get(), -1),
        AttributeLength(NID_pkcs9_contentType, V_ASN1_OBJECT, OBJ_nid2obj(NID_pkcs7_data), -1),
        !signingTime ? 0
        : now        ? AttributeLength(NID_pkcs9_signingTime, V_ASN1_UTCTIME, now.get(), -1)
                     : -1};
    long total = 0;
    for (long length : lengths) {
        if (length < 0) {
            return -1;
        }
        total += length;
    }
    return total;
}

// The signature algorithm OpenSSL's CMS code writes for the key: plain
// rsaEncryption with NULL parameters for RSA (PKCS #1 v1.5), otherwise the
// combined digest-and-key algorithm without parameters.
long SignatureAlgorithmLength(EVP_PKEY* key, const EVP_MD* md) {
    X509AlgorPtr algorithm(X509_ALGOR_new());
    if (!algorithm) {
        return -1;
    }
    const int keyType = EVP_PKEY_get_base_id(key);
    if (keyType == EVP_PKEY_RSA) {
        if (X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(NID_rsaEncryption), V_ASN1_NULL,
                            nullptr) != 1) {
            return -1;
        }
    } else {
        int signatureNid = NID_undef;
        if (OBJ_find_sigid_by_algs(&signatureNid, EVP_MD_get_type(md), keyType) != 1 ||
            X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(signatureNid), V_ASN1_UNDEF, nullptr) !=
                1) {
            return -1;
        }
    }
    return DerLength(i2d_X509_ALGOR, algorithm.get());
}

// Bytes left in `content`, read through.
long ContentLength(BIO* content) {
    unsigned char buffer[4096];
    long total = 0;
    int got = 0;
    while ((got = BIO_read(content, buffer, sizeof(buffer))) > 0) {
        total += got;
    }
    return total;
}

}  // namespace

long QOR_PKCS7_GetSignSize(X509* cert, EVP_PKEY* key, STACK_OF(X509) * certs, BIO* content,
                           unsigned int flags, const EVP_MD* md,
                           STACK_OF(X509_ATTRIBUTE) * signedAttributes,
                           STACK_OF(X509_ATTRIBUTE) * unsignedAttributes) {
    if (cert == nullptr || key == nullptr || content == nullptr || md == nullptr) {
        return -1;
    }
    X509AlgorPtr digestAlgorithm(X509_ALGOR_new());
    if (!digestAlgorithm) {
        return -1;
    }
    // Parameters as the CMS code sets them (absent for the SHA family).
    X509_ALGOR_set_md(digestAlgorithm.get(), md);
    const long digestAlgorithmLength = DerLength(i2d_X509_ALGOR, digestAlgorithm.get());
    const long version = IntegerLength(1);
    const long contentType = ObjectLength(NID_pkcs7_signed);
    const long dataType = ObjectLength(NID_pkcs7_data);
    if (digestAlgorithmLength < 0 || version < 0 || contentType < 0 || dataType < 0) {
        return -1;
    }

    // SignedData: version, the one digest algorithm, the encapsulated content.
    long signedData = version + Tlv(digestAlgorithmLength);
    long encapsulated = dataType;
    if ((flags & CMS_DETACHED) == 0) {
        encapsulated += Tlv(Tlv(ContentLength(content)));  // [0] EXPLICIT OCTET STRING
    }
    signedData += Tlv(encapsulated);

    // [0] IMPLICIT certificates: the signer's unless NOCERTS, and the list.
    long certificates = 0;
    if ((flags & CMS_NOCERTS) == 0) {
        certificates += DerLength(i2d_X509, cert);
    }
    for (int i = 0; i < sk_X509_num(certs); ++i) {
        const long length = DerLength(i2d_X509, sk_X509_value(certs, i));
        if (length < 0) {
            return -1;
        }
        certificates += length;
    }
    if (certificates < 0) {
        return -1;
    }
    if (certificates > 0) {
        signedData += Tlv(certificates);
    }

    // SignerInfo: version, issuer and serial, digest algorithm, signed
    // attributes, signature algorithm, signature, unsigned attributes.
    const long issuer = DerLength(i2d_X509_NAME, X509_get_issuer_name(cert));
    const long serial = DerLength(i2d_ASN1_INTEGER, X509_get0_serialNumber(cert));
    const long signatureAlgorithm = SignatureAlgorithmLength(key, md);
    const int signatureSize = EVP_PKEY_get_size(key);
    if (issuer < 0 || serial < 0 || signatureAlgorithm < 0 || signatureSize <= 0) {
        return -1;
    }
    long signerInfo = version + Tlv(issuer + serial) + digestAlgorithmLength;
    if ((flags & CMS_NOATTR) == 0) {
        long attributes = DefaultAttributesLength(md, (flags & cmssign::kNoSigningTime) == 0);
        if (attributes >= 0 && (flags & CMS_NOSMIMECAP) == 0) {
            const long capabilities = SmimeCapabilitiesLength();
            attributes = capabilities < 0 ? -1 : attributes + capabilities;
        }
        const long extra = AttributesLength(signedAttributes);
        if (attributes < 0 || extra < 0) {
            return -1;
        }
        signerInfo += Tlv(attributes + extra);  // [0] IMPLICIT SET OF
    }
    signerInfo += signatureAlgorithm + Tlv(signatureSize);
    if (sk_X509_ATTRIBUTE_num(unsignedAttributes) > 0) {
        const long attributes = AttributesLength(unsignedAttributes);
        if (attributes < 0) {
            return -1;
        }
        signerInfo += Tlv(attributes);  // [1] IMPLICIT SET OF
    }
    signedData += Tlv(Tlv(signerInfo));  // SET OF { SEQUENCE }

    // ContentInfo: SEQUENCE { contentType, [0] EXPLICIT SignedData }.
    return Tlv(contentType + Tlv(Tlv(signedData)));
}

unsigned long SignedCms::EstimateSize(const SignerCms& signer, cptCmsType type,
                                      int detached) const {
    return EstimateSignedSize(signer, static_cast<long>(type), detached,
                              type == cptCmsTimeStamp ? 4000 : 0, ExtraAttributesStep());
}

unsigned long SignedCms::EstimateSignedSize(const SignerCms& signer, long type, int detached,
                                            unsigned long allowance,
                                            const ExtraAttributesStep& extraAttributes) const {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_log, L"EstimateSize(CertSN:%ls CertIssuer:%ls Type:%ld Detached:%ls)",
              cmssign::SerialText(certificate).c_str(), certificate.GetIssuerStringX500(0).c_str(),
              type, detached != 0 ? L"TRUE" : L"FALSE");
    if (detached == 0 && m_aContent.GetSize() == 0) {
        Fail(m_log, L"EstimateSize: Signed content not set - m_aContent is empty", ErrNoContent);
    }
    if (certificate.GetX509() == nullptr) {
        Fail(m_log, L"EstimateSize: Signer certificate is null.", ErrSignerCertNotSet);
    }
    CryptKey* key = certificate.GetPrivateKey();
    if (key == nullptr || key->GetKeyEVP() == nullptr) {
        Fail(m_log, L"EstimateSize: Signer private key is not set.", ErrSignerKeyUnusable);
    }
    const EVP_MD* md = cmssign::SignerDigest(signer);
    if (md == nullptr) {
        Fail(m_log, L"EstimateSize: pDigest is null", ErrAlgorithmNotSupported);
    }
    X509AttributeStackPtr attributes(extraAttributes ? extraAttributes() : nullptr);

    X509StackPtr certs(EnumSignerCertificates(signer, 1));
    BioPtr content(
        m_aContent.GetSize() == 0
            ? BIO_new(BIO_s_mem())
            : BIO_new_mem_buf(m_aContent.GetData(), static_cast<int>(m_aContent.GetSize())));
    if (!content) {
        Fail(m_log, L"EstimateSize: pBioContent=NULL", ErrOutOfMemory);
    }
    const long size =
        QOR_PKCS7_GetSignSize(certificate.GetX509(), key->GetKeyEVP(), certs.get(), content.get(),
                              SigningFlags(signer, detached), md, attributes.get(), nullptr);
    if (size <= 0) {
        TLOG_ERROR(m_log, L"EstimateSize: Failed to estimate signature size.");
        if (size < 0) {
            TLOG_CRYPTO_ERRORS(m_log, "EstimateSize: QOR_PKCS7_GetSignSize() failed.");
        }
        ERR_clear_error();
        return 0;
    }
    return static_cast<unsigned long>(size) + allowance;
}

}  // namespace TesseraLib
