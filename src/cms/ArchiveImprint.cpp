#include "ArchiveImprint.h"

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"

namespace TesseraLib {
namespace cms {

namespace {

void Append(qorstd::QorArray<unsigned char>& out, const DerSpan& span) {
    out.Append(span.data, static_cast<unsigned int>(span.length));
}

}  // namespace

qorstd::QorArray<unsigned char> ArchiveImprintInput(
    const LogChannel* log, const SignedDataLayout& layout, unsigned int signerIndex,
    const qorstd::QorArray<unsigned char>& contentDigest,
    const qorstd::QorArray<unsigned char>& hashIndexValue) {
    if (layout.eContentType.length == 0) {
        Fail(log, L"VerifyArchiveTimeStamp: pContentType == NULL", ErrInternal);
    }
    if (contentDigest.IsEmpty()) {
        Fail(log, L"VerifyArchiveTimeStamp: nContentLen <= 0", ErrInvalidParameter);
    }
    if (signerIndex >= layout.signerFields.size()) {
        Fail(log, L"VerifyArchiveTimeStamp: m_pSigner->sid == NULL", ErrInternal);
    }
    if (hashIndexValue.IsEmpty()) {
        Fail(log, L"VerifyArchiveTimeStamp - strSeq == NULL", ErrAsn1Decoding);
    }
    const SignerFields& fields = layout.signerFields[signerIndex];
    qorstd::QorArray<unsigned char> input;
    Append(input, layout.eContentType);
    input.Append(contentDigest);
    Append(input, fields.version);
    Append(input, fields.sid);
    Append(input, fields.digestAlgorithm);
    Append(input, fields.signedAttrs);
    Append(input, fields.signatureAlgorithm);
    Append(input, fields.signature);
    input.Append(hashIndexValue);
    return input;
}

}  // namespace cms
}  // namespace TesseraLib
