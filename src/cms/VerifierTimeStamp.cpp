// One time-stamp token checked against its data: imprint and time, the TSA
// signer, and the token's own CAdES verification, with the first failure of
// the first group reported even when a later group fails too.
#include "VerifierTimeStamp.h"

#include <cstring>
#include <exception>
#include <memory>
#include <typeinfo>

#include "CryptException.h"
#include "CryptHash.h"
#include "CryptUtils.h"
#include "ExceptionRecording.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspException.h"
#include "QorExceptionStore.h"
#include "SignedCades.h"
#include "SignedCades2.h"
#include "TspException.h"
#include "ValidationDataStore.h"
#include "VerifierCades.h"
#include "X509Chain.h"

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"VerifierTimeStamp";
constexpr const char* kOidTimeStamping = "1.3.6.1.5.5.7.3.8";

bool HasUsage(const X509Certificate& cert, const char* oid) {
    const qorstd::QorVector<qorstd::QorString>& usages = cert.GetExtendedKeyUsages();
    for (unsigned int i = 0; i < usages.GetSize(); ++i) {
        if (usages[i].compare(oid) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

VerifierTimeStamp::VerifierTimeStamp() : VerifierTimeStamp(nullptr) {}

VerifierTimeStamp::VerifierTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp)
    : m_timeStamp(timeStamp), m_log(std::make_unique<LogChannel>(kChannelName)) {}

VerifierTimeStamp::VerifierTimeStamp(const VerifierTimeStamp& other)
    : VerifierTimeStamp(other.m_timeStamp) {}

VerifierTimeStamp& VerifierTimeStamp::operator=(const VerifierTimeStamp& other) {
    m_timeStamp = other.m_timeStamp;
    return *this;
}

VerifierTimeStamp::~VerifierTimeStamp() = default;

void VerifierTimeStamp::Reset() {
    m_timeStamp = nullptr;
}

void VerifierTimeStamp::Verify(const qorstd::QorArray<unsigned char>& msg,
                               const VerifierCades& verifier, std::int64_t* time,
                               X509Chain** chain) {
    VerifyDigest(ImprintOf(msg), verifier, time, chain);
}

qorstd::QorArray<unsigned char> VerifierTimeStamp::ImprintOf(
    const qorstd::QorArray<unsigned char>& msg) const {
    TLOG_DEBUG(m_log, L"Verify()");
    if (m_timeStamp == nullptr) {
        Fail(m_log, L"Verify: Invalid operation - timestamp is not set", ErrInternal,
             L"_timestamp == NULL");
    }
    if (msg.IsEmpty()) {
        Fail(m_log, L"Verify: Bad parameter - msg is empty", ErrInvalidParameter,
             L"TimeStampAttribute - msg.IsEmpty()");
    }
    CryptHash digest(static_cast<CryptHash::cptHashAlgorithm>(
        m_timeStamp->GetMessageImprint().GetHashAlgorithm()));
    digest.Update(msg);
    qorstd::QorArray<unsigned char> hash;
    digest.Finish(hash);
    return hash;
}

void VerifierTimeStamp::Verify(const qorstd::QorArray<unsigned char>& msg,
                               const VerifierCades& verifier, const ValidationDataStore* store,
                               X509Chain** chain) {
    VerifyDigest(ImprintOf(msg), verifier, store, chain);
}

void VerifierTimeStamp::VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                                     const VerifierCades& verifier, std::int64_t* time,
                                     X509Chain** chain) {
    Check(hash, verifier, time, nullptr, chain);
}

void VerifierTimeStamp::VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                                     const VerifierCades& verifier,
                                     const ValidationDataStore* store, X509Chain** chain) {
    if (store == nullptr) {
        Fail(m_log, L"VerifyDigest: Bad parameter - store is null", ErrInvalidParameter);
    }
    Check(hash, verifier, nullptr, store, chain);
}

void VerifierTimeStamp::Check(const qorstd::QorArray<unsigned char>& hash,
                              const VerifierCades& verifier, std::int64_t* time,
                              const ValidationDataStore* store, X509Chain** chain) {
    TLOG_DEBUG(m_log, L"VerifyDigest()");
    if (m_timeStamp == nullptr) {
        Fail(m_log, L"VerifyDigest: Invalid operation - timestamp is not set", ErrInternal,
             L"_timestamp == NULL");
    }
    if (verifier.GetChainPolicy() == nullptr) {
        Fail(m_log, L"VerifyDigest: Bad parameter - chain policy is not set", ErrInvalidParameter,
             L"TimeStampAttribute - policy == NULL");
    }
    // With proofs of existence the token is read with its long-term forms,
    // so that its TSA's path is built at the token's proven time.
    const std::unique_ptr<SignedCades> token(store != nullptr ? new SignedCades2()
                                                              : verifier.CreateSignatureObject());
    QorExceptionStore kept;

    // Imprint and time.
    RunKeepingFailure(kept, [&] {
        if (hash.IsEmpty()) {
            Fail(m_log, L"VerifyDigest: Bad parameter - hash is empty", ErrInvalidParameter,
                 L"TimeStampAttribute - hash.IsEmpty()");
        }
        if (chain != nullptr) {
            *chain = nullptr;
        }
        const std::int64_t at = verifier.GetVerifyTime() != 0 ? verifier.GetVerifyTime()
                                                              : CryptUtils::GetCurrentTimeUTC();
        if (verifier.GetCompareTsTimeVerifyTime() != 0) {
            if (m_timeStamp->GetTime() > at) {
                Fail(m_log,
                     L"VerifyDigest: Verify time is not valid - timestamp's time is higher than "
                     L"verify time.",
                     ErrTimeStampAfterVerifyTime);
            }
        } else {
            TLOG_DEBUG(m_log, L"VerifyDigest: TS time with VerifyTime comparision disabled.");
        }
        if (time != nullptr) {
            *time = m_timeStamp->GetTime();
        }
        const QorTsp2Lib::TspArray<unsigned char>& imprint =
            m_timeStamp->GetMessageImprint().GetHashedMessage();
        if (imprint.GetSize() != hash.GetSize() ||
            std::memcmp(imprint.GetData(), hash.GetData(), hash.GetSize()) != 0) {
            Fail(m_log, L"VerifyDigest: hash != stamp_hash", ErrHashMismatch,
                 L"TimeStampAttribute - hash != stamp_hash");
        }
    });

    // The TSA signer.
    try {
        const QorTsp2Lib::TspArray<unsigned char> der = m_timeStamp->Encode(1);
        const SignedCades& made = *token;
        if (!der.IsEmpty() &&
            (typeid(made) == typeid(SignedCades) || typeid(made) == typeid(SignedCades2))) {
            // The token's message as the time-stamp decoded it, unless an
            // earlier check took it; a signature class of the verifier's own
            // may decode in its own way.
            token->DecodeAdopting(der, m_timeStamp->TakeDecodedToken());
        } else {
            token->Decode(der.GetData(), static_cast<long>(der.GetSize()));
        }
        if (token->GetSignerInfoCount() == 0) {
            if (store != nullptr) {
                Fail(m_log, L"VerifyDigest: pTsaSigners is empty", ErrSignerCertNotFound,
                     L"pTsaSigners->IsEmpty()");
            }
            Fail(m_log, L"VerifyDigest: TsaSigners is empty", ErrSignerCertNotFound,
                 L"TsaSigners is empty");
        }
        if (token->GetSignerInfoCount() > 1) {
            if (store != nullptr) {
                Fail(m_log, L"VerifyDigest: Multiple TSA signers found.", ErrInvalidMessageFormat,
                     L"pTsaSigners->GetSize() > 1");
            }
            Fail(m_log, L"VerifyDigest: Multiple TSA signers found.", ErrInvalidMessageFormat,
                 L"Tsa Signers count > 1");
        }
        const SignedCades::SignerInfo* signer = token->GetSignerInfo(0);
        if (signer == nullptr) {
            Fail(m_log, L"VerifyDigest: SignerInfo 0 is not a SignedCades. Bad usage ?",
                 ErrInvalidParameter, L"SignerInfo 0 is not a SignedCades");
        }
        if (!signer->GetSignatureTimeStamps().IsEmpty()) {
            Fail(m_log, L"VerifyDigest: tsa_signer.GetSignatureTimeStamps() is not empty",
                 ErrInvalidMessageFormat, L"tsa_signer.GetSignatureTimeStamps() > 0");
        }
        if (signer->GetCertificate().GetX509() == nullptr) {
            Fail(m_log, L"VerifyDigest: tsa_signer.GetCertificate() is null",
                 ErrInvalidMessageFormat, L"tsa_cert.GetX509() = NULL");
        }
        if (!HasUsage(signer->GetCertificate(), kOidTimeStamping)) {
            Fail(m_log, L"VerifyDigest: tsa_cert error", ErrCertUsage);
        }
    } catch (...) {
        kept.ReThrow();
        throw;
    }

    // The token as a CAdES message, its path checked for time-stamping.
    RunKeepingFailure(kept, [&] {
        if (store == nullptr) {
            token->Verify(verifier, SignedCades::cptCadesNone);
            return;
        }
        // The token's check may add proofs of its own; they stay with it.
        ValidationDataStore proofs(*store);
        static_cast<SignedCades2*>(token.get())
            ->Verify(verifier, &proofs, SignedCades2::cptCades2None);
    });
    const SignedCades::SignerInfo* signer = token->GetSignerInfo(0);
    if (chain != nullptr && signer != nullptr && signer->GetX509Chain() != nullptr) {
        *chain = signer->GetX509Chain()->Clone();
    }
    kept.ReThrow();
}

}  // namespace TesseraLib
