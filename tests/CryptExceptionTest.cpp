// The error model seen from an application: codes and descriptions, copies,
// clones and re-throws that keep the dynamic type, and the exception store.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "CryptException.h"
#include "QorExceptionStore.h"

using namespace TesseraLib;

namespace {

std::wstring Description(int code) {
    return CryptException(code, nullptr).GetErrorDescription().c_str();
}

}  // namespace

TEST(CryptExceptionTest, DescriptionsComeFromTheCodeTable) {
    EXPECT_EQ(Description(ErrInvalidParameter), L"Invalid parameter value.");
    EXPECT_EQ(Description(ErrAsn1Decoding), L"ASN.1 decoding error.");
    EXPECT_EQ(Description(ErrPasswordInvalidChars), L"Password contains invalid characters")
        << "no final point in the table's text";
    EXPECT_EQ(Description(ErrCertPoeAfterRevocation),
              L"Certificate POE is higher than certificate's issuer revocatiom time.");
    EXPECT_EQ(Description(ErrPolicyRevocationModeNotSupported),
              L"Signature policy revocation mode is no supported.");
    EXPECT_EQ(Description(ErrPolicyFormatMismatch), L"Signature policy format mistmatch.");
    EXPECT_EQ(Description(ErrNotImplemented), L"Not yet implemented.");
    EXPECT_EQ(Description(ErrCrlBadSignature),
              L"CRL or one of the CRLs in the certificate chain does not have a valid signature.");
    EXPECT_EQ(Description(ErrPolicyDownloadResponse),
              L"Error in response to signature policy download request.");
}

TEST(CryptExceptionTest, UnlistedCodesAreUnspecified) {
    for (int code : {-1, 0, 99, 177, 179, 181, 499, 506, 599, 605, 100000}) {
        EXPECT_EQ(Description(code), L"Unspecified error") << "code " << code;
        EXPECT_STREQ(CryptException::GetErrorCodeName(code).c_str(), "") << "code " << code;
    }
    EXPECT_EQ(Description(ErrUnspecified), L"Unspecified error");
}

TEST(CryptExceptionTest, CodeListCoversTheTableInOrder) {
    qorstd::QorVector<int> codes = CryptException::GetErrorCodes();
    ASSERT_EQ(codes.GetSize(), 89u) << "100-176, 180, 500-505, 600-604";
    for (unsigned int i = 1; i < codes.GetSize(); ++i) {
        EXPECT_LT(codes[i - 1], codes[i]) << "ascending at " << i;
        EXPECT_NE(Description(codes[i]), L"Unspecified error") << "code " << codes[i];
    }
    EXPECT_STREQ(CryptException::GetErrorCodeName(149).c_str(), "ErrCertRevoked");
}

TEST(CryptExceptionTest, DefaultIsUnspecifiedWithoutMessage) {
    CryptException e;
    EXPECT_EQ(e.GetErrorCode(), 100);
    EXPECT_TRUE(e.GetErrorMessage().empty());
    EXPECT_EQ(std::wstring(e.GetErrorDescription().c_str()), L"Unspecified error");
}

TEST(CryptExceptionTest, ThrowCarriesCodeMessageAndDescriptionAcrossTheLibrary) {
    try {
        CryptException::Throw(ErrInvalidParameter, L"pCert=NULL");
        FAIL() << "Throw must throw";
    } catch (const qorstd::QorException& e) {
        // Caught by the base type: the library's type information is visible.
        const CryptException* crypt = dynamic_cast<const CryptException*>(&e);
        ASSERT_NE(crypt, nullptr);
        EXPECT_EQ(e.GetErrorCode(), 102);
        EXPECT_STREQ(e.GetErrorMessage().c_str(), L"pCert=NULL");
        EXPECT_STREQ(e.GetErrorDescription().c_str(), L"Invalid parameter value.");
        EXPECT_STREQ(e.ToString().c_str(),
                     L"TesseraLib::CryptException 102: Invalid parameter value. pCert=NULL");
    }
}

TEST(CryptExceptionTest, AssignmentCopiesEverything) {
    CryptException target(ErrSigning, L"first");
    const CryptException source(ErrWrongPin, L"second");
    target = source;
    EXPECT_EQ(target.GetErrorCode(), 130);
    EXPECT_STREQ(target.GetErrorMessage().c_str(), L"second");
    EXPECT_STREQ(target.GetErrorDescription().c_str(),
                 L"The card cannot be accessed because the wrong PIN was presented.");
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

    try {
        clone->ReThrow();
        FAIL() << "ReThrow must throw";
    } catch (const TimeStampException& e) {
        EXPECT_EQ(e.GetErrorCode(), 158);
        EXPECT_EQ(e.GetTimeStamp(), stamp);
        EXPECT_STREQ(e.GetErrorDescription().c_str(),
                     L"The timestamp time is higher than verify time.");
    }
    EXPECT_THROW(TimeStampException::Throw(stamp, ErrInternal, nullptr), TimeStampException);
}

TEST(CryptExceptionTest, ValidationExceptionClonesAsAPlainCryptException) {
    const auto* cert = reinterpret_cast<const X509Certificate*>(0x10);
    const auto* crl = reinterpret_cast<const X509Crl*>(0x20);
    X509CertificateValidationException e(cert, crl, nullptr, ErrCertRevoked, nullptr);
    EXPECT_EQ(e.GetCertificate(), cert);
    EXPECT_EQ(e.GetCrl(), crl);
    EXPECT_EQ(e.GetOcspResponse(), nullptr);
    X509CertificateValidationException copy(e);
    EXPECT_EQ(copy.GetCrl(), crl) << "copies carry the pointers along";

    // Only its own thrower sees the derived type; a clone or re-throw is a CryptException.
    std::unique_ptr<qorstd::QorException> clone(e.Clone());
    EXPECT_EQ(dynamic_cast<X509CertificateValidationException*>(clone.get()), nullptr);
    EXPECT_EQ(clone->GetErrorCode(), 149);
    try {
        e.ReThrow();
    } catch (const X509CertificateValidationException&) {
        FAIL() << "ReThrow is that of CryptException";
    } catch (const CryptException& thrown) {
        EXPECT_EQ(thrown.GetErrorCode(), 149);
    }
}

TEST(ExceptionStoreTest, EmptyStoreReThrowsNothing) {
    QorExceptionStore store;
    EXPECT_TRUE(store.IsEmpty());
    EXPECT_EQ(store.GetException(), nullptr);
    EXPECT_NO_THROW(store.ReThrow());
}

TEST(ExceptionStoreTest, ReThrowUsesTheStoredDynamicType) {
    QorExceptionStore store;
    store.SetException(TimeStampException(nullptr, ErrHashMismatch, L"imprint"));
    EXPECT_THROW(store.ReThrow(), TimeStampException);

    // Replacing keeps only the newest.
    store.SetException(CryptException(ErrInvalidSignature, L"sig"));
    try {
        store.ReThrow();
        FAIL();
    } catch (const TimeStampException&) {
        FAIL() << "the earlier exception was replaced";
    } catch (const CryptException& e) {
        EXPECT_EQ(e.GetErrorCode(), ErrInvalidSignature);
    }
    store.Reset();
    EXPECT_TRUE(store.IsEmpty());
}

TEST(ExceptionStoreTest, CopiesOwnTheirOwnClones) {
    QorExceptionStore copy;
    {
        QorExceptionStore store;
        store.SetException(CryptException(ErrNoSigner, L"first"));
        copy = store;
        QorExceptionStore constructed(store);
        EXPECT_NE(constructed.GetException(), store.GetException()) << "a clone, not a share";
        store.SetException(*store.GetException());  // setting its own exception is safe
        EXPECT_EQ(store.GetException()->GetErrorCode(), ErrNoSigner);
    }
    ASSERT_FALSE(copy.IsEmpty()) << "the copy outlives the original";
    EXPECT_STREQ(copy.GetException()->GetErrorMessage().c_str(), L"first");
    copy = copy;
    EXPECT_FALSE(copy.IsEmpty());
}

TEST(ExceptionStoreTest, WrapperReThrowsTheWrappedException) {
    const std::runtime_error failure("boom");
    QorExceptionWrapper<std::exception> wrapper(failure, ErrInternal, L"", L"");
    EXPECT_EQ(wrapper.GetErrorCode(), ErrInternal);
    EXPECT_TRUE(wrapper.GetErrorDescription().empty());

    QorExceptionStore store;
    store.SetException(wrapper);
    try {
        store.ReThrow();
        FAIL();
    } catch (const qorstd::QorException&) {
        FAIL() << "the wrapper itself must not be thrown";
    } catch (const std::exception&) {
        SUCCEED();
    }

    QorExceptionWrapper<std::exception> described(failure, 7, L"msg", L"described");
    std::unique_ptr<qorstd::QorException> clone(described.Clone());
    EXPECT_STREQ(clone->GetErrorDescription().c_str(), L"described") << "Clone copies all parts";
    EXPECT_STREQ(clone->GetErrorMessage().c_str(), L"msg");
}

TEST(ExceptionStoreTest, OcspFamilyExceptionsComeBackWithTheirFirstType) {
    const auto* stamp = reinterpret_cast<const TimeStampAttribute*>(0x99);
    TimeStampOcspException target(nullptr, 1, L"old");
    target =
        TimeStampOcspException(stamp, QorOcsp2Lib::OcspException::ocspErrResponseTooOld, nullptr);
    EXPECT_EQ(target.GetTimeStamp(), stamp) << "assignment copies the time-stamp pointer";
    EXPECT_EQ(target.GetErrorCode(), 138);
    EXPECT_STREQ(target.GetErrorDescription().c_str(),
                 QorOcsp2Lib::OcspException::DescribeErrorCode(138).c_str())
        << "and the description of the OCSP library";

    QorExceptionStore store;
    store.SetException(QorExceptionWrapper<TimeStampOcspException>(target, 138, L"", L""));
    try {
        store.ReThrow();
        FAIL();
    } catch (const TimeStampOcspException& e) {
        EXPECT_EQ(e.GetTimeStamp(), stamp) << "the wrapped exception, with its own type";
    }

    store.SetException(QorExceptionWrapper<QorOcsp2Lib::OcspException>(
        QorOcsp2Lib::OcspException(141, L"untrusted"), 141, L"untrusted", L"signature"));
    try {
        store.ReThrow();
        FAIL();
    } catch (const TimeStampOcspException&) {
        FAIL() << "a plain OCSP exception was stored";
    } catch (const QorOcsp2Lib::OcspException& e) {
        EXPECT_STREQ(e.GetErrorMessage().c_str(), L"untrusted");
    }
    EXPECT_THROW(TimeStampOcspException::Throw(stamp, 141, nullptr), QorOcsp2Lib::OcspException);
}
