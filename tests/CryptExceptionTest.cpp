// The error model seen from an application: codes and descriptions, copies,
// clones and re-throws that keep the dynamic type, and the exception store.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "CryptException.h"
#include "QorExceptionStore.h"

using namespace TesseraLib;
using QorOcsp2Lib::OcspException;

namespace {

std::wstring Description(int code) {
    return CryptException(code, nullptr).GetErrorDescription().c_str();
}

// The most derived of the known exception types that `action` throws.
std::string ThrownType(const std::function<void()>& action) {
    try {
        action();
    } catch (const TimeStampOcspException&) {
        return "TimeStampOcspException";
    } catch (const OcspException&) {
        return "OcspException";
    } catch (const X509CertificateValidationException&) {
        return "X509CertificateValidationException";
    } catch (const TimeStampException&) {
        return "TimeStampException";
    } catch (const CryptException&) {
        return "CryptException";
    } catch (const qorstd::QorException&) {
        return "QorException";
    } catch (const std::exception&) {
        return "std::exception";
    }
    return "nothing";
}

}  // namespace

TEST(CryptExceptionTest, DescriptionsComeFromTheCodeTable) {
    // The table's wording and misspellings are what applications show and match
    // (`tessera errors` in check_cli.sh shows codes 102 and 164).
    const std::pair<int, const wchar_t*> table[] = {
        {ErrAsn1Decoding, L"ASN.1 decoding error."},
        {ErrPasswordInvalidChars, L"Password contains invalid characters"},
        {ErrPolicyRevocationModeNotSupported, L"Signature policy revocation mode is no supported."},
        {ErrPolicyFormatMismatch, L"Signature policy format mistmatch."},
        {ErrNotImplemented, L"Not yet implemented."},
        {ErrCrlBadSignature,
         L"CRL or one of the CRLs in the certificate chain does not have a valid signature."},
        {ErrPolicyDownloadResponse, L"Error in response to signature policy download request."},
        {ErrUnspecified, L"Unspecified error"},
    };
    for (const auto& [code, text] : table) {
        EXPECT_EQ(Description(code), text) << "description of code " << code;
    }
}

TEST(CryptExceptionTest, CodeListCoversTheTableAndNothingElse) {
    qorstd::QorVector<int> codes = CryptException::GetErrorCodes();
    ASSERT_EQ(codes.GetSize(), 89u) << "100-176, 180, 500-505, 600-604";
    for (unsigned int i = 1; i < codes.GetSize(); ++i) {
        EXPECT_LT(codes[i - 1], codes[i]) << "ascending at " << i;
        EXPECT_NE(Description(codes[i]), L"Unspecified error") << "code " << codes[i];
    }
    EXPECT_STREQ(CryptException::GetErrorCodeName(149).c_str(), "ErrCertRevoked") << "149";
    for (int code : {-1, 0, 99, 177, 179, 181, 499, 506, 599, 605, 100000}) {
        EXPECT_EQ(Description(code), L"Unspecified error") << "unlisted code " << code;
        EXPECT_STREQ(CryptException::GetErrorCodeName(code).c_str(), "") << "code " << code;
    }
}

TEST(CryptExceptionTest, ThrowAndAssignmentCarryCodeMessageAndDescription) {
    try {
        CryptException::Throw(ErrInvalidParameter, L"pCert=NULL");
        FAIL() << "Throw must throw";
    } catch (const qorstd::QorException& e) {
        EXPECT_NE(dynamic_cast<const CryptException*>(&e), nullptr)
            << "caught by the base type, the library's type information is visible";
        EXPECT_STREQ(e.ToString().c_str(),
                     L"TesseraLib::CryptException 102: Invalid parameter value. pCert=NULL")
            << "class, code, description and message";
    }
    CryptException target(ErrSigning, L"first");
    target = CryptException(ErrWrongPin, L"second");
    EXPECT_STREQ(target.ToString().c_str(),
                 L"TesseraLib::CryptException 130: The card cannot be accessed because the wrong "
                 L"PIN was presented. second")
        << "assignment copies code, description and message";
    target = target;
    EXPECT_EQ(target.GetErrorCode(), 130) << "self-assignment changes nothing";
}

TEST(CryptExceptionTest, TimeStampExceptionKeepsItsTypeAndSharesThePointer) {
    const auto* stamp = reinterpret_cast<const TimeStampAttribute*>(0x1234);
    const TimeStampException original(stamp, ErrTimeStampAfterVerifyTime, L"late");
    std::unique_ptr<qorstd::QorException> clone(original.Clone());
    const auto* typed = dynamic_cast<const TimeStampException*>(clone.get());
    ASSERT_NE(typed, nullptr) << "Clone keeps the dynamic type";
    EXPECT_EQ(typed->GetTimeStamp(), stamp) << "the time-stamp pointer is shared, not copied";
    EXPECT_EQ(ThrownType([&] { clone->ReThrow(); }), "TimeStampException") << "ReThrow keeps it";
    EXPECT_EQ(ThrownType([&] { TimeStampException::Throw(stamp, ErrInternal, nullptr); }),
              "TimeStampException")
        << "Throw";
}

TEST(CryptExceptionTest, ValidationExceptionClonesAsAPlainCryptException) {
    const auto* cert = reinterpret_cast<const X509Certificate*>(0x10);
    const auto* crl = reinterpret_cast<const X509Crl*>(0x20);
    const X509CertificateValidationException e(cert, crl, nullptr, ErrCertRevoked, nullptr);
    const X509CertificateValidationException copy(e);
    EXPECT_TRUE(copy.GetCertificate() == cert && copy.GetCrl() == crl &&
                copy.GetOcspResponse() == nullptr)
        << "copies carry the certificate, CRL and OCSP response pointers";

    // Only its own thrower sees the derived type; a clone or re-throw is a CryptException.
    std::unique_ptr<qorstd::QorException> clone(e.Clone());
    EXPECT_EQ(ThrownType([&] { clone->ReThrow(); }), "CryptException") << "Clone";
    EXPECT_EQ(clone->GetErrorCode(), 149) << "the clone keeps the code";
    EXPECT_EQ(ThrownType([&] { e.ReThrow(); }), "CryptException") << "ReThrow";
}

TEST(ExceptionStoreTest, ReThrowUsesTheNewestStoredDynamicType) {
    QorExceptionStore store;
    EXPECT_EQ(ThrownType([&] { store.ReThrow(); }), "nothing") << "an empty store throws nothing";

    store.SetException(TimeStampException(nullptr, ErrHashMismatch, L"imprint"));
    EXPECT_EQ(ThrownType([&] { store.ReThrow(); }), "TimeStampException") << "stored type";
    store.SetException(CryptException(ErrInvalidSignature, L"sig"));
    EXPECT_EQ(ThrownType([&] { store.ReThrow(); }), "CryptException") << "replaced by the newest";
    store.Reset();
    EXPECT_TRUE(store.IsEmpty()) << "Reset empties";
}

TEST(ExceptionStoreTest, CopiesOwnTheirOwnClones) {
    QorExceptionStore copy;
    {
        QorExceptionStore store;
        store.SetException(CryptException(ErrNoSigner, L"first"));
        copy = store;
        QorExceptionStore constructed(store);
        EXPECT_NE(constructed.GetException(), store.GetException()) << "a clone, not a share";
        store.SetException(*store.GetException());
        EXPECT_EQ(store.GetException()->GetErrorCode(), ErrNoSigner)
            << "setting its own exception is safe";
    }
    ASSERT_FALSE(copy.IsEmpty()) << "the copy outlives the original";
    EXPECT_STREQ(copy.GetException()->GetErrorMessage().c_str(), L"first") << "with its message";
    copy = copy;
    EXPECT_FALSE(copy.IsEmpty()) << "self-assignment keeps it";
}

TEST(ExceptionStoreTest, WrapperReThrowsTheWrappedException) {
    const std::runtime_error failure("boom");
    const QorExceptionWrapper<std::exception> wrapper(failure, ErrInternal, L"", L"");
    QorExceptionStore store;
    store.SetException(wrapper);
    EXPECT_EQ(ThrownType([&] { store.ReThrow(); }), "std::exception")
        << "the wrapped exception is thrown, not the wrapper";

    const QorExceptionWrapper<std::exception> described(failure, 7, L"msg", L"described");
    std::unique_ptr<qorstd::QorException> clone(described.Clone());
    EXPECT_STREQ(clone->GetErrorDescription().c_str(), L"described") << "Clone copies all parts";
    EXPECT_STREQ(clone->GetErrorMessage().c_str(), L"msg") << "including the message";
}

TEST(ExceptionStoreTest, OcspFamilyExceptionsComeBackWithTheirFirstType) {
    const auto* stamp = reinterpret_cast<const TimeStampAttribute*>(0x99);
    TimeStampOcspException target(nullptr, 1, L"old");
    target = TimeStampOcspException(stamp, OcspException::ocspErrResponseTooOld, nullptr);
    EXPECT_EQ(target.GetTimeStamp(), stamp) << "assignment copies the time-stamp pointer";
    EXPECT_STREQ(target.GetErrorDescription().c_str(),
                 OcspException::DescribeErrorCode(138).c_str())
        << "and the code's description in the OCSP library";

    QorExceptionStore store;
    store.SetException(QorExceptionWrapper<TimeStampOcspException>(target, 138, L"", L""));
    try {
        store.ReThrow();
        FAIL() << "ReThrow must throw";
    } catch (const TimeStampOcspException& e) {
        EXPECT_EQ(e.GetTimeStamp(), stamp) << "the wrapped exception, with its own type";
    }
    EXPECT_NE(ThrownType([&] {
                  TimeStampOcspException::Throw(stamp, 141, nullptr);
              }).find("OcspException"),
              std::string::npos)
        << "Throw throws an OCSP exception";
}
