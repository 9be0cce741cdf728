#include "ArchiveImprint.h"

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"

namespace TesseraLib {
namespace cms {

namespace {

void Append(qorstd::QorArray<unsigned char>& out, const DerSpan& span) {
    if (span.length > 0) {
        out.Append(span.data, static_cast<unsigned int>(span.length));
    }
}

}  // namespace

qorstd::QorArray<unsigned char> ArchivedFields(const SignerFields& fields) {
    qorstd::QorArray<unsigned char> out;
    Append(out, fields.version);
    Append(out, fields.sid);
    Append(out, fields.digestAlgorithm);
    Append(out, fields.signedAttrs);
    Append(out, fields.signatureAlgorithm);
    Append(out, fields.signature);
    return out;
}

qorstd::QorArray<unsigned char> ArchiveImprintInput(
    const LogChannel* log, const qorstd::QorArray<unsigned char>& eContentType,
    const qorstd::QorArray<unsigned char>& contentDigest,
    const qorstd::QorArray<unsigned char>& archivedFields,
    const qorstd::QorArray<unsigned char>& hashIndexValue) {
    if (eContentType.IsEmpty()) {
        Fail(log, L"VerifyArchiveTimeStamp: pContentType == NULL", ErrInternal);
    }
    if (contentDigest.IsEmpty()) {
        Fail(log, L"VerifyArchiveTimeStamp: nContentLen <= 0", ErrInvalidParameter);
    }
    if (archivedFields.IsEmpty()) {
        Fail(log, L"VerifyArchiveTimeStamp: m_pSigner->sid == NULL", ErrInternal);
    }
    if (hashIndexValue.IsEmpty()) {
        Fail(log, L"VerifyArchiveTimeStamp - strSeq == NULL", ErrAsn1Decoding);
    }
    qorstd::QorArray<unsigned char> input;
    input.Append(eContentType);
    input.Append(contentDigest);
    input.Append(archivedFields);
    input.Append(hashIndexValue);
    return input;
}

}  // namespace cms
}  // namespace TesseraLib
