// Certificates from arbitrary bytes: the input is imported as DER, as PEM
// text (a NUL-terminated copy) and as PKCS#12 with a fixed password; every
// import that succeeds is then read through every getter, copied, compared
// with itself and checked against its own key. Failures must be
// CryptExceptions.
#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "X509Certificate.h"

using namespace TesseraLib;

namespace {

void ReadEverything(const X509Certificate& cert) {
    const auto guarded = [](auto&& read) {
        try {
            read();
        } catch (const CryptException&) {
        }
    };
    guarded([&] { cert.Export(); });
    guarded([&] { cert.ExportPEM(); });
    guarded([&] { cert.ExportPrivateKey(); });
    guarded([&] { cert.GetSerialNumberStringDec(); });
    guarded([&] { cert.GetSerialNumberStringHex(); });
    guarded([&] { cert.GetSHA1HashHex(); });
    guarded([&] { cert.GetSubjectStringX500(0); });
    guarded([&] { cert.GetIssuerStringX500(0x1010008); });
    guarded([&] { cert.VerifyDN({{"2.5.4.3", "x"}}, X509Certificate::DNSourceSubject); });
    guarded([&] { cert.VerifyDN({}, X509Certificate::DNSourceIssuer); });
    guarded([&] {
        cert.Verify(X509Certificate::cptVerifyTimeValidity, 1700000000, nullptr, nullptr, nullptr);
    });
    guarded([&] { cert.VerifySignature(X509_get_pubkey(cert.GetX509()), 1); });
    cert.GetSubjectKeyIdStringHex();
    cert.GetAuthorityKeyIdStringHex();
    cert.GetSignatureAlgorithmName();
    cert.GetSignatureAlgorithmOID();
    cert.GetHashAlgorithmName();
    cert.GetKeyAlgorithmName();
    cert.GetTimeToExpiration();
    cert.GetQorBraddleId();
    cert.IsCA();
    cert.IsSelfSigned();
    cert.HasPrivateKey();
    cert.IsQor();
    cert.IsQorStandard();
    cert.IsQorBraddles();
    cert.IsPseudonymous();
    cert.HasQualifiedQcStatement();
    const X509Certificate copy = cert;
    for (int option = 0; option <= 5; ++option) {
        cert.Compare(static_cast<X509Certificate::cptCompareOption>(option), copy);
    }
    cert.Equals(copy);
    X509Certificate::CheckTimeValidity(cert.GetX509(), 0);
    unsigned long keyUsage = 0;
    qorstd::QorVector<qorstd::QorString> oids;
    qorstd::QorVector<QcStatement> statements;
    guarded([&] { X509Certificate::ParseKeyUsage(cert.GetX509(), keyUsage); });
    guarded([&] { X509Certificate::ParseExtendedKeyUsage(cert.GetX509(), oids); });
    guarded([&] { X509Certificate::ParseCertificatePolicies(cert.GetX509(), oids); });
    guarded([&] { X509Certificate::ParseQCStatements(cert.GetX509(), statements); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    X509Certificate cert;
    try {
        cert.Import(data, static_cast<long>(size));
        ReadEverything(cert);
    } catch (const CryptException&) {
    }
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        cert.ImportPEM(text.c_str());
        ReadEverything(cert);
    } catch (const CryptException&) {
    }
    try {
        cert.ImportPKCS12(data, static_cast<long>(size), "fuzz");
        ReadEverything(cert);
    } catch (const CryptException&) {
    }
    return 0;
}
