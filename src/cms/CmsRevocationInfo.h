// The parts of an encoded SignedData message that OpenSSL decodes but does
// not hand out (internal): the SignedData and signer-info versions, the
// certificate choices (attribute certificates among them) and the revocation
// choices (OCSP responses carried as "other" revocation info). One DER walker
// reads them all; it only steps over lengths it has checked, so it is safe on
// any input.
#pragma once

#include <cstddef>
#include <vector>

#include "ByteArrayVector.h"

namespace TesseraLib {
namespace cms {

// A run of bytes inside the walked buffer (valid while the buffer lives).
struct DerSpan {
    const unsigned char* data = nullptr;
    std::size_t length = 0;
};

// The fields of one SignerInfo an archive time-stamp covers, each a whole
// encoding as it stands in the message (signedAttrs empty when absent).
struct SignerFields {
    DerSpan version;
    DerSpan sid;
    DerSpan digestAlgorithm;
    DerSpan signedAttrs;
    DerSpan signatureAlgorithm;
    DerSpan signature;
};

struct SignedDataLayout {
    unsigned long version = 0;
    // The SignedData fields a rebuild copies unchanged, each whole.
    DerSpan digestAlgorithms;
    DerSpan encapContentInfo;
    DerSpan signerInfoSet;
    DerSpan eContentType;                       // the encapsulated content's type, whole OID
    std::vector<DerSpan> certificates;          // every CertificateChoices, whole encoding
    std::vector<DerSpan> revocationInfos;       // every RevocationInfoChoice, whole encoding
    std::vector<DerSpan> signerInfos;           // every SignerInfo, whole encoding
    std::vector<unsigned long> signerVersions;  // the version of each SignerInfo
    std::vector<DerSpan> signerSignatures;      // the signature octets of each SignerInfo
    std::vector<SignerFields> signerFields;     // per SignerInfo
};

// Reads a DER ContentInfo of type signedData. False when the bytes are not
// such a message (the layout is then incomplete and must not be used).
bool ReadSignedDataLayout(const unsigned char* der, std::size_t length, SignedDataLayout* layout);

// A ContentInfo of type signedData holding `layout`'s message with
// `version`, `certificates` and `revocationInfos` (whole choices, written
// in DER set order) in place of its own; digest algorithms, content and
// signer infos are copied byte for byte, so that nothing signed changes.
// An empty list leaves its set out.
std::vector<unsigned char> RebuildSignedData(
    const SignedDataLayout& layout, unsigned long version,
    std::vector<std::vector<unsigned char>> certificates,
    std::vector<std::vector<unsigned char>> revocationInfos);

// The revocation choice "other" that carries `response` (an OCSPResponse
// DER) under id-ri-ocsp-response.
std::vector<unsigned char> OcspRevocationChoice(const std::vector<unsigned char>& response);

// One OCSP response carried as "other" revocation info: the OCSPResponse
// DER, and the whole revocation choice it came in.
struct OcspChoice {
    std::vector<unsigned char> response;
    DerSpan choice;
};

// Every revocation choice of kind "other" whose value is a SEQUENCE of
// format id-ri-ocsp-response (1.3.6.1.5.5.7.16.2) or id-pkix-ocsp-basic
// (1.3.6.1.5.5.7.48.1.1), in message order. Signers in the wild put either
// an OCSPResponse or a bare BasicOCSPResponse under either format; the
// latter is wrapped into a successful OCSPResponse.
std::vector<OcspChoice> OcspChoicesOf(const SignedDataLayout& layout);

// Every v1 or v2 attribute certificate of the certificate choices, with its
// implicit [1]/[2] tag replaced by the universal SEQUENCE tag, in order.
std::vector<std::vector<unsigned char>> AttributeCertsOf(const SignedDataLayout& layout);

}  // namespace cms
}  // namespace TesseraLib
