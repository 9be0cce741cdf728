// Memory stores as an application sees them: lists that keep duplicates,
// PEM and PKCS#12 import (also of a file made by `openssl pkcs12 -export`),
// lookups, and the OpenSSL store built from the certificates.
#include <gtest/gtest.h>

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <string>
#include <vector>

#include "CryptException.h"
#include "TestTessera.h"
#include "X509Store.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

X509Crl MakeCrl(const Issued& issuer) {
    const std::vector<unsigned char> der = CrlToDer(IssueCrl(CrlPlan(), issuer).get());
    return X509Crl(der.data(), static_cast<long>(der.size()));
}

long Import(X509MemoryStore& store, const std::vector<unsigned char>& p12, const char* password) {
    store.ImportPKCS12(p12.data(), static_cast<long>(p12.size()), password);
    return static_cast<long>(store.GetCertificates().GetSize());
}

//   Root A (key 1) ── Intermediate ── Leaf (its key in the PKCS#12 files)
//   Root A (key 2, same subject as key 1) ── Sibling
class X509MemoryStoreTest : public ::testing::Test {
protected:
    struct Pki {
        Issued rootA = IssueCertificate(BasicProfile("Root A", 1, true), nullptr);
        Issued rootA2 = IssueCertificate(BasicProfile("Root A", 2, true), nullptr);
        Issued intermediate = IssueCertificate(BasicProfile("Intermediate", 3, true), &rootA);
        Issued leaf = IssueCertificate(BasicProfile("Leaf", 4, false), &intermediate);
        Issued sibling = IssueCertificate(BasicProfile("Sibling", 5, false), &rootA2);
    };
    static const Pki& Certs() {
        static const Pki pki;
        return pki;
    }

    std::vector<unsigned char> LeafPkcs12(const std::string& password, bool withMac = true) const {
        return BuildPkcs12(leaf->key.get(), leaf->cert.get(),
                           {intermediate->cert.get(), rootA->cert.get()}, password, withMac);
    }

    // The leaf with its key, then intermediate and root without key.
    void ExpectKeyHolderFirst(const X509MemoryStore& store) const {
        const qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
        ASSERT_EQ(certs.GetSize(), 3u) << "leaf and two CA certificates";
        EXPECT_TRUE(certs.GetAt(0).Equals(Cert(*leaf)) && certs.GetAt(0).HasPrivateKey())
            << "the end entity comes first, with its key";
        EXPECT_TRUE(certs.GetAt(1).Equals(Cert(*intermediate)) &&
                    certs.GetAt(2).Equals(Cert(*rootA)))
            << "then the others in file order";
        EXPECT_EQ(certs.GetAt(1).HasPrivateKey() + certs.GetAt(2).HasPrivateKey(), 0)
            << "the others carry no key";
    }

    const Issued* rootA = &Certs().rootA;
    const Issued* rootA2 = &Certs().rootA2;
    const Issued* intermediate = &Certs().intermediate;
    const Issued* leaf = &Certs().leaf;
    const Issued* sibling = &Certs().sibling;
};

TEST_F(X509MemoryStoreTest, KeepsDuplicatesAndRemovesTheFirstEqual) {
    X509MemoryStore store;
    store.AddCertificate(Cert(*leaf));
    store.AddCertificate(Cert(*rootA));
    store.AddCertificate(Cert(*leaf));
    ASSERT_EQ(store.GetCertificates().GetSize(), 3u) << "the same certificate twice is kept twice";

    store.RemoveCertificate(Cert(*leaf));
    const qorstd::QorVector<X509Certificate> left = store.GetCertificates();
    ASSERT_EQ(left.GetSize(), 2u) << "one copy removed";
    EXPECT_EQ(left.GetAt(0).Equals(Cert(*rootA)), 1) << "the first copy went, order kept";
    EXPECT_EQ(left.GetAt(1).Equals(Cert(*leaf)), 1) << "the second copy stays";
    store.RemoveCertificate(Cert(*sibling));
    EXPECT_EQ(store.GetCertificates().GetSize(), 2u) << "removing an absent one changes nothing";

    const X509Crl crl = MakeCrl(*rootA);
    qorstd::QorVector<X509Crl> crls;
    crls.Add(crl);
    crls.Add(crl);
    store.AddCrlRange(crls);
    store.AddCrl(crl);
    store.RemoveCrlRange(crls);
    EXPECT_EQ(store.GetCrls().GetSize(), 1u) << "each element of a range removes one CRL";

    const QorOcsp2Lib::OcspResponse response = DecodedOcsp(
        OcspPlan(rootA, rootA->cert.get(), {{intermediate->cert.get()}}, UtcTime(2024, 7, 1)));
    store.AddOcspResponse(response);
    store.AddOcspResponse(response);
    store.RemoveOcspResponse(response);
    EXPECT_EQ(store.GetOcspResponses().GetSize(), 1u) << "one OCSP copy removed";
}

TEST_F(X509MemoryStoreTest, ImportPemReplacesCertificatesUpToTheFirstOtherBlock) {
    X509MemoryStore store;
    store.AddCertificate(Cert(*sibling));
    store.AddCrl(MakeCrl(*rootA));
    const std::string leafPem = CertToPem(leaf->cert.get());
    const std::string rootPem = CertToPem(rootA->cert.get());
    const std::string keyPem = KeyToPem(leaf->key.get());

    store.ImportPEM((leafPem + rootPem + keyPem).c_str());
    qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
    ASSERT_EQ(certs.GetSize(), 2u) << "two certificates, the key block ends the list quietly";
    EXPECT_EQ(certs.GetAt(0).Equals(Cert(*leaf)), 1) << "text order kept";
    EXPECT_EQ(certs.GetAt(1).Equals(Cert(*rootA)), 1) << "text order kept";
    EXPECT_EQ(store.GetCrls().GetSize(), 1u) << "CRLs added before stay";

    store.ImportPEM((leafPem + keyPem + rootPem).c_str());
    EXPECT_EQ(store.GetCertificates().GetSize(), 1u) << "reading stops at the key block";
    store.ImportPEM("no PEM at all");
    EXPECT_EQ(store.GetCertificates().GetSize(), 0u) << "text without blocks: no certificates";

    const Thrown null = Catch([&] { store.ImportPEM(nullptr); });
    EXPECT_TRUE(null.code == ErrInvalidParameter && null.message == "pData=NULL")
        << "null text: 102 naming the argument";
    EXPECT_EQ(Catch([&] { store.ImportPEM(""); }).message, "nDataLength<=0") << "empty text";
}

TEST_F(X509MemoryStoreTest, ImportPkcs12PutsTheKeyHolderFirst) {
    X509MemoryStore store;
    ASSERT_EQ(Import(store, LeafPkcs12("s3cret"), "s3cret"), 3) << "leaf and two CA certificates";
    ExpectKeyHolderFirst(store);

    X509Certificate found = Cert(*leaf);
    EXPECT_EQ(store.FindCertificate(found, 0), 1) << "found by equality";
    EXPECT_EQ(found.HasPrivateKey(), 0) << "handed back without the key";
    EXPECT_EQ(store.FindCertificate(found, 1), 1) << "found again";
    EXPECT_EQ(found.HasPrivateKey(), 1) << "the stored entry kept its key";
    X509Certificate absent = Cert(*sibling);
    EXPECT_EQ(store.FindCertificate(absent, 1), 0) << "not stored";
    EXPECT_EQ(absent.Equals(Cert(*sibling)), 1) << "a failed lookup leaves the argument";
}

TEST_F(X509MemoryStoreTest, ImportPkcs12FailuresHaveTheirCodes) {
    X509MemoryStore store;
    store.AddCertificate(Cert(*sibling));
    const std::vector<unsigned char> p12 = LeafPkcs12("s3cret");
    EXPECT_EQ(CodeOf([&] { Import(store, p12, "wrong"); }), ErrIncorrectPassword)
        << "MAC does not verify: 132";
    EXPECT_EQ(store.GetCertificates().GetSize(), 0u) << "the failed import emptied the store";
    EXPECT_EQ(CodeOf([&] { Import(store, LeafPkcs12("s3cret", false), ""); }), ErrPkcs12Parsing)
        << "no MAC to check, contents do not decrypt: 133";
    const std::vector<unsigned char> corrupted(p12.begin(), p12.begin() + p12.size() / 2);
    EXPECT_EQ(CodeOf([&] { Import(store, corrupted, "s3cret"); }), ErrPkcs12Decoding)
        << "truncated file: 112";
    EXPECT_EQ(CodeOf([&] {
                  store.ImportPKCS12(p12.data(), static_cast<long>(p12.size()), L"p\u00e4ss");
              }),
              ErrPasswordInvalidChars)
        << "non-ASCII wide password: 131";
    EXPECT_EQ(Catch([&] { store.ImportPKCS12(nullptr, 5, "x"); }).message, "pData=NULL")
        << "null data";
    EXPECT_EQ(Catch([&] { store.ImportPKCS12(p12.data(), 0, "x"); }).message, "nSize<=0")
        << "size 0";
}

TEST_F(X509MemoryStoreTest, FindIssuerFollowsTheAuthorityKeyIdentifier) {
    X509MemoryStore store;
    store.AddCertificate(X509Certificate());  // skipped by the lookups
    store.AddCertificate(Cert(*rootA2));
    store.AddCertificate(Cert(*rootA));
    store.AddCertificate(Cert(*intermediate));

    X509Certificate issuer;
    ASSERT_EQ(store.FindIssuer(Cert(*intermediate), issuer), 1) << "issuer of the intermediate";
    EXPECT_EQ(issuer.Equals(Cert(*rootA)), 1) << "the root whose key id matches, not the first";
    ASSERT_EQ(store.FindIssuer(Cert(*sibling), issuer), 1) << "issuer of the sibling";
    EXPECT_EQ(issuer.Equals(Cert(*rootA2)), 1) << "the other key of the same subject";
    EXPECT_EQ(store.FindIssuer(Cert(*rootA2), issuer), 1) << "a self-signed root issues itself";
    EXPECT_EQ(store.FindIssuer(X509Certificate(), issuer), 0) << "empty certificate";

    X509Certificate found;
    ASSERT_EQ(store.FindCertificate(Cert(*rootA).GetSubjectName(), found), 1) << "by subject";
    EXPECT_EQ(found.Equals(Cert(*rootA2)), 1) << "the first of the same subject";
    EXPECT_EQ(store.FindCertificate(X509Name(), found), 0) << "empty name";
    EXPECT_EQ(store.FindCertificate(Cert(*leaf).GetSubjectName(), found), 0) << "no such subject";
}

TEST_F(X509MemoryStoreTest, GetX509StoreIsRebuiltOnEachCall) {
    X509MemoryStore store;
    store.AddCertificate(Cert(*rootA));
    store.AddCertificate(Cert(*rootA));
    X509_STORE* first = store.GetX509Store();
    ASSERT_NE(first, nullptr) << "a store is built";
    EXPECT_EQ(sk_X509_OBJECT_num(X509_STORE_get0_objects(first)), 1)
        << "a duplicate is held once, without error";

    store.AddCertificate(Cert(*intermediate));
    X509_STORE* second = store.GetX509Store();
    EXPECT_EQ(sk_X509_OBJECT_num(X509_STORE_get0_objects(second)), 2)
        << "the new handle has the certificate added since";

    X509MemoryStore copy(store);
    EXPECT_NE(copy.GetX509Store(), store.GetX509Store()) << "a copy builds its own handle";

    store.AddCertificate(X509Certificate());
    const Thrown empty = Catch([&] { store.GetX509Store(); });
    EXPECT_TRUE(empty.code == ErrInternal && empty.message == "cert.GetX509()=NULL")
        << "a certificate object without certificate: 101 naming it";
}

TEST_F(X509MemoryStoreTest, ReadsAPkcs12WrittenByOpensslPkcs12) {
    const ScratchDir dir;
    dir.Write("leaf.pem", CertToPem(leaf->cert.get()));
    dir.Write("leaf.key", KeyToPem(leaf->key.get()));
    dir.Write("chain.pem", CertToPem(intermediate->cert.get()) + CertToPem(rootA->cert.get()));
    ASSERT_TRUE(
        dir.Openssl("pkcs12 -export -in leaf.pem -inkey leaf.key -certfile chain.pem "
                    "-passout pass:p12 -out leaf.p12"))
        << "openssl wrote the PKCS#12 file: " << dir.Output();
    const std::vector<unsigned char> p12 = ReadBinaryFile(dir.Path("leaf.p12"));

    X509MemoryStore store;
    ASSERT_EQ(Import(store, p12, "p12"), 3) << "leaf and both chain certificates";
    ExpectKeyHolderFirst(store);
}

}  // namespace
